#include "controller/tunnels.h"

#include <netdb.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <optional>
#include <stdexcept>
#include <utility>

#include "tunnel/tunnel_tls.h"

namespace controller {

namespace {

// Destination of the client manager's messages. Frames for other destinations are ignored.
constexpr std::uint32_t client_manager_destination = 106;

constexpr timeval accept_error_pause = {1, 0};
constexpr timeval batch_pause = {0, 100'000};
constexpr std::size_t batch_max = 64;
// The kernel's limit, net.core.somaxconn, may be lower.
constexpr int listen_backlog = 4096;

// Leaves three quarters of the descriptors to the tunnels that are up.
std::size_t limit_of_waiting() {
    rlimit descriptors{};
    getrlimit(RLIMIT_NOFILE, &descriptors);
    return std::clamp<rlim_t>(descriptors.rlim_cur / 4, 1, 256);
}

struct host_and_port {
    std::string host, port;
};

host_and_port split_address(const sockaddr *address, socklen_t length) {
    char host[NI_MAXHOST];
    char port[NI_MAXSERV];
    if (getnameinfo(address, length, host, sizeof(host), port, sizeof(port), NI_NUMERICHOST | NI_NUMERICSERV) != 0) {
        return {"unknown address", "0"};
    }
    return {address->sa_family == AF_INET6 ? '[' + std::string(host) + ']' : host, port};
}

struct address_list {
    addrinfo *first = nullptr;
    address_list(const std::string &host, std::uint16_t port) {
        addrinfo hints{};
        hints.ai_flags = AI_PASSIVE | AI_NUMERICHOST | AI_NUMERICSERV;
        hints.ai_socktype = SOCK_STREAM;
        const int failed = getaddrinfo(host.c_str(), std::to_string(port).c_str(), &hints, &first);
        if (failed != 0) {
            throw std::runtime_error(host + ": " + gai_strerror(failed) + "; expected a numeric address");
        }
    }
    ~address_list() { freeaddrinfo(first); }
    address_list(const address_list &) = delete;
    address_list &operator=(const address_list &) = delete;
};

std::uint16_t local_port(int fd) {
    sockaddr_storage address{};
    socklen_t length = sizeof(address);
    char port[NI_MAXSERV];
    auto *generic = reinterpret_cast<sockaddr *>(&address);
    if (getsockname(fd, generic, &length) != 0 ||
        getnameinfo(generic, length, nullptr, 0, port, sizeof(port), NI_NUMERICSERV) != 0) {
        throw std::runtime_error("cannot read the port of the listening socket");
    }
    return static_cast<std::uint16_t>(std::stoi(port));
}

}  // namespace

tunnels::tunnels(event_base *base, std::shared_ptr<SSL_CTX> tls, const std::string &address, std::uint16_t port,
                 callbacks handlers, std::chrono::milliseconds probe)
    : base_(base),
      tls_(std::move(tls)),
      handlers_(std::move(handlers)),
      probe_(probe),
      pause_(event_new(base, -1, 0, on_pause_end, this)),
      waiting_max_(limit_of_waiting()) {
    const address_list list(address, port);
    const auto accepted = [](evconnlistener *, evutil_socket_t fd, sockaddr *from, int length, void *self) {
        const auto [host, port_text] = split_address(from, static_cast<socklen_t>(length));
        static_cast<tunnels *>(self)->accept(fd, host, port_text);
    };
    listener_.reset(
        evconnlistener_new_bind(base, accepted, this, LEV_OPT_CLOSE_ON_FREE | LEV_OPT_REUSEABLE | LEV_OPT_CLOSE_ON_EXEC,
                                listen_backlog, list.first->ai_addr, static_cast<int>(list.first->ai_addrlen)));
    if (!listener_) {
        throw std::runtime_error("cannot listen on " + address + " port " + std::to_string(port) + ": " +
                                 std::strerror(errno));
    }
    evconnlistener_set_error_cb(listener_.get(), on_accept_error);
    port_ = local_port(evconnlistener_get_fd(listener_.get()));
}

tunnels::~tunnels() = default;

bool tunnels::send(tunnel_id to, std::span<const std::uint8_t> message) {
    return send(to, client_manager_destination, message);
}

bool tunnels::send_roaming_frame(tunnel_id to, std::span<const std::uint8_t> frame) {
    return send(to, kx::tunnel_destination_own, frame);
}

bool tunnels::send(tunnel_id to, std::uint32_t destination, std::span<const std::uint8_t> message) {
    const auto found = tunnels_.find(to);
    if (found == tunnels_.end() || !found->second.up) {
        return false;
    }
    const bool sent = found->second.connection->send(destination, message);
    if (!sent) {
        count(found->second.other.mac, {.messages_unsent = 1});
    }
    if (sent && handlers_.on_passage) {
        handlers_.on_passage(
            {.other = found->second.other, .to_controller = false, .destination = destination, .message = message});
    }
    return sent;
}

std::size_t tunnels::queued(tunnel_id to) const {
    const auto found = tunnels_.find(to);
    return found == tunnels_.end() || !found->second.up ? 0 : found->second.connection->queued();
}

void tunnels::close(tunnel_id which, const std::string &reason) {
    const auto found = tunnels_.find(which);
    if (found == tunnels_.end()) {
        return;
    }
    found->second.connection->close_because(reason);
    closing_[which] = std::move(found->second.connection);
    went_down(which, reason);
}

void tunnels::use(std::shared_ptr<SSL_CTX> tls) {
    tls_ = std::move(tls);
    std::map<tunnel_id, std::string> refused;
    for (const auto &[id, each] : tunnels_) {
        if (each.up) {
            refused[id] = each.connection->recheck(tls_.get());
        }
    }
    for (const auto &[id, reason] : refused) {
        if (!reason.empty()) {
            close(id, "its certificate is not accepted any more: " + reason);
        }
    }
}

std::string tunnels::find_fault(const std::string &certificate) const {
    return kx::check_client_certificate(certificate, tls_.get());
}

void tunnels::recheck() {
    std::map<tunnel_id, std::string> refused;
    for (const auto &[id, each] : tunnels_) {
        if (each.other.mac != mac_address{} && handlers_.refusal) {
            refused[id] = handlers_.refusal(each.other);
        }
    }
    for (const auto &[id, reason] : refused) {
        if (!reason.empty()) {
            close(id, reason);
        }
    }
}

// Without the pause the loop would try again at once, for as long as descriptors are short.
void tunnels::on_accept_error(evconnlistener *, void *self) {
    const int error = errno;
    auto *const of = static_cast<tunnels *>(self);
    of->batch_.clear();  // only the time ends this pause
    of->pause(accept_error_pause);
    of->handlers_.on_accept_error(std::strerror(error));
}

void tunnels::pause(const timeval &time) {
    paused_ = true;
    evconnlistener_disable(listener_.get());
    event_add(pause_.get(), &time);
}

void tunnels::on_pause_end(evutil_socket_t, short, void *self) {
    auto *const of = static_cast<tunnels *>(self);
    of->paused_ = false;
    of->batch_.clear();
    evconnlistener_enable(of->listener_.get());
}

// The connection has come up or is gone.
void tunnels::handshake_ended(tunnel_id which) {
    waiting_.erase(which);
    if (batch_.erase(which) > 0 && paused_) {
        event_del(pause_.get());
        paused_ = false;
        evconnlistener_enable(listener_.get());
    }
}

void tunnels::make_room() {
    if (waiting_.size() < waiting_max_) {
        return;
    }
    std::map<std::string, std::vector<tunnel_id>> of_host;
    for (const tunnel_id each : waiting_) {
        of_host[tunnels_.at(each).host].push_back(each);
    }
    displace(
        std::ranges::max_element(of_host, {}, [](const auto &each) { return each.second.size(); })->second.front());
}

void tunnels::displace(tunnel_id which) {
    const tunnel gone = std::move(tunnels_.extract(which).mapped());
    handshake_ended(which);
    handlers_.on_displaced(gone.other);
}

void tunnels::accept(int fd, const std::string &host, const std::string &port) {
    make_room();
    const tunnel_id id = ++last_;
    waiting_.insert(id);
    batch_.insert(id);
    if (batch_.size() >= batch_max) {
        pause(batch_pause);
    }
    tunnel &added = tunnels_[id];
    added.host = host;
    added.tls = tls_;
    added.other.address = host + ':' + port;
    added.connection = kx::tunnel_connection::accept(
        base_, tls_.get(), fd,
        {.on_up = [this, id] { came_up(id); },
         .on_message = [this, id](std::uint32_t destination,
                                  std::span<const std::uint8_t> message) { received(id, destination, message); },
         .on_down = [this, id](const std::string &reason) { went_down(id, reason); },
         .on_drained = nullptr,
         .on_handshake = [this, id] { handshake_done(id); }});
}

// The tunnel of an access point, or with `waits` the one that waits for the other's probe.
std::optional<tunnel_id> tunnels::find(const mac_address &ap, bool waits, tunnel_id except) const {
    const auto found = std::ranges::find_if(tunnels_, [&](const auto &each) {
        return each.second.other.mac == ap && (each.second.probe != nullptr) == waits && each.first != except;
    });
    return found == tunnels_.end() ? std::nullopt : std::optional(found->first);
}

void tunnels::handshake_done(tunnel_id which) {
    tunnel &with = tunnels_.at(which);
    with.other.name = with.connection->peer_name();
    with.other.certificate_end = with.connection->peer_certificate_end();
    with.other.ipv4 = with.connection->peer_ipv4();
    const auto mac = with.connection->peer_mac();
    if (!mac || *mac == mac_address{}) {
        close(which,
              "the certificate has no MAC address: expected one subjectAltName URI like urn:mac:02-00-00-00-10-00");
        return;
    }
    with.other.mac = *mac;
    with.other.fingerprint = with.connection->peer_fingerprint();
    if (const std::string reason = handlers_.refusal ? handlers_.refusal(with.other) : ""; !reason.empty()) {
        close(which, reason);
        return;
    }
    if (const auto former = find(*mac, true, which)) {
        close(*former, "the access point has opened another tunnel");
    }
    if (const auto holder = find(*mac, false, which)) {
        probe(*holder, which);
        return;
    }
    with.connection->admit();
}

void tunnels::probe(tunnel_id holder, tunnel_id candidate) {
    tunnel &waiting = tunnels_.at(candidate);
    tunnels_.at(holder).connection->probe();
    const auto over = [](evutil_socket_t, short, void *of) {
        const auto *const done = static_cast<const probing *>(of);
        done->self->probe_done(done->candidate);
    };
    waiting.probe = std::make_unique<probing>(probing{this, candidate, std::chrono::steady_clock::now(), nullptr});
    waiting.probe->timer.reset(event_new(base_, -1, 0, over, waiting.probe.get()));
    const timeval wait = {probe_.count() / 1000, probe_.count() % 1000 * 1000};
    event_add(waiting.probe->timer.get(), &wait);
}

void tunnels::probe_done(tunnel_id candidate) {
    tunnel &waiting = tunnels_.at(candidate);
    if (const auto holder = find(waiting.other.mac, false, candidate)) {
        if (tunnels_.at(*holder).connection->last_heard() > waiting.probe->since) {
            close(candidate, "the access point has another tunnel, which is alive");
            return;
        }
        close(*holder, "the access point has opened another tunnel, and this one was silent");
    }
    if (const auto still = tunnels_.find(candidate); still != tunnels_.end()) {
        still->second.probe.reset();
        still->second.connection->admit();
    }
}

// Certificates may have been revoked or renewed while it shook hands, or waited for another tunnel's probe.
std::string tunnels::find_late_refusal(const tunnel &of) const {
    const std::string reason = handlers_.refusal ? handlers_.refusal(of.other) : "";
    return reason.empty() && of.tls != tls_ ? of.connection->recheck(tls_.get()) : reason;
}

void tunnels::came_up(tunnel_id which) {
    tunnel &now_up = tunnels_.at(which);
    if (const std::string reason = find_late_refusal(now_up); !reason.empty()) {
        close(which, reason);
        return;
    }
    now_up.up = true;
    handshake_ended(which);
    handlers_.on_up(which, now_up.other);
}

void tunnels::received(tunnel_id from, std::uint32_t destination, std::span<const std::uint8_t> message) {
    if (destination != client_manager_destination && destination != kx::tunnel_destination_own) {
        count(tunnels_.at(from).other.mac, {.frames_ignored = 1});
        return;
    }
    if (handlers_.on_passage) {
        handlers_.on_passage(
            {.other = tunnels_.at(from).other, .to_controller = true, .destination = destination, .message = message});
    }
    if (destination == client_manager_destination) {
        handlers_.on_message(from, message);
    } else {
        handlers_.on_roaming_frame(from, message);
    }
}

void tunnels::count(const mac_address &ap, const losses &more) {
    lost_.messages_unsent += more.messages_unsent;
    lost_.frames_ignored += more.frames_ignored;
    if (handlers_.on_lost && more.messages_unsent + more.frames_ignored > 0) {
        handlers_.on_lost(ap, more);
    }
}

void tunnels::went_down(tunnel_id which, const std::string &reason) {
    if (const auto found = tunnels_.find(which); found == tunnels_.end()) {
        if (const auto closed = closing_.extract(which)) {
            const auto &connection = *closed.mapped();
            count(connection.peer_mac().value_or(mac_address{}), {.messages_unsent = connection.unsent()});
        }
        return;
    }
    const tunnel gone = std::move(tunnels_.extract(which).mapped());
    handshake_ended(which);
    if (gone.connection != nullptr) {
        count(gone.other.mac, {.messages_unsent = gone.connection->unsent()});
    }
    if (const auto next = find(gone.other.mac, true, which); next && gone.probe == nullptr) {
        tunnels_.at(*next).probe.reset();
        tunnels_.at(*next).connection->admit();
    }
    if (gone.up) {
        handlers_.on_down(which, reason);
    } else {
        handlers_.on_refused(gone.other, reason);
    }
}

}  // namespace controller
