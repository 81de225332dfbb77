#include "apd/daemon_channel.h"

#include <fcntl.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <system_error>

#include "common/paths.h"

namespace apd {

namespace {

int listen_at(const std::string &path) {
    kx::ipc_address address = kx::make_ipc_address(path);
    int fd = socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    unlink(path.c_str());
    // bind gives its file the mode of the unbound socket.
    if (fd < 0 || fchmod(fd, S_IRUSR | S_IWUSR) != 0 || bind(fd, address.get(), address.length) != 0 ||
        listen(fd, 8) != 0) {
        int error = errno;
        if (fd >= 0) {
            close(fd);
        }
        throw std::system_error(error, std::generic_category(), path);
    }
    return fd;
}

}  // namespace

daemon_channel::daemon_channel(event_base *base, losses &lost, detail_log details, callbacks handlers)
    : base_(base),
      losses_(lost),
      details_(details),
      handlers_(std::move(handlers)),
      path_(kx::place(kx::endpoint_apcomm)),
      listener_(listen_at(path_)),
      acceptable_(base, listener_, EV_READ | EV_PERSIST, [this] { accept_connection(); }),
      accept_again_(base, -1, 0, [this] { acceptable_.start(); }) {
    file_.remember(path_);
    acceptable_.start();
}

void daemon_channel::restore_listener() {
    if (!file_.is_gone()) {
        return;
    }
    int fd = listen_at(path_);
    file_.remember(path_);
    acceptable_.stop();
    dup3(fd, listener_, O_CLOEXEC);
    close(fd);
    acceptable_.start();
    report("the socket for client_mgr was removed, and is made again");
}

daemon_channel::~daemon_channel() {
    handlers_.on_lost = [] {};
    disconnect();
    acceptable_.stop();
    unlink(path_.c_str());
    close(listener_);
}

void daemon_channel::accept_connection() {
    int fd = accept4(listener_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        pause_accepting(errno);
        return;
    }
    if (accepts_failed_ > 0) {
        report("accepts local connections again, after " + std::to_string(accepts_failed_) + " failures");
        accepts_failed_ = 0;
    }
    if (!is_trusted(fd) || !make_room()) {
        close(fd);
        return;
    }
    auto [added, is_new] = connections_.try_emplace(
        fd, base_, fd, [this, fd] { read_packets(fd); },
        [this, fd] {
            log_line("ended a local connection that did not register");
            drop(fd);
        },
        ++accepted_);
    added->second.unregistered.start(register_within);
    if (!refused_) {
        added->second.readable.start();
    }
}

bool daemon_channel::is_trusted(int fd) {
    ucred peer{};
    socklen_t size = sizeof(peer);
    if (getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && (peer.uid == 0 || peer.uid == geteuid())) {
        return true;
    }
    losses_.add_described(loss_stranger, [&peer] {
        return "refused a connection of process " + std::to_string(peer.pid) + ", uid " + std::to_string(peer.uid);
    });
    return false;
}

// Without descriptors the listener stays readable, and waiting for it would take the whole processor.
void daemon_channel::pause_accepting(int error) {
    if (error == EAGAIN || error == EINTR || error == ECONNABORTED) {
        return;
    }
    if (accepts_failed_++ == 0) {
        report(std::string("cannot accept a local connection: ") + std::strerror(error));
    }
    acceptable_.stop();
    accept_again_.start(accept_pause);
}

// Ends the oldest connection that has not registered, if there is no room. False when all have registered.
bool daemon_channel::make_room() {
    if (connections_.size() < connections_max) {
        return true;
    }
    int oldest = -1;
    for (const auto &[fd, each] : connections_) {
        if (!registered_.contains(fd) && (oldest < 0 || each.number < connections_.at(oldest).number)) {
            oldest = fd;
        }
    }
    drop(oldest);
    return oldest >= 0;
}

void daemon_channel::read_packets(int fd) {
    constexpr int packets_per_wakeup = 64;
    for (int i = 0; i < packets_per_wakeup && !refused_ && connections_.contains(fd); i++) {
        ssize_t size = recv(fd, buffer_.data(), buffer_.size(), 0);
        if (size < 0 && (errno == EAGAIN || errno == EINTR)) {
            return;
        }
        if (size <= 0) {
            details_.write("client_mgr's connection has ended");
            drop(fd);
            return;
        }
        auto length = static_cast<std::size_t>(size);
        if (length < sizeof(kx::apcomm_packet) || length == buffer_.size()) {
            losses_.add_described(loss_local_malformed,
                                  [] { return "ended a connection that sent a packet of the wrong size"; });
            drop(fd);
            return;
        }
        take_packet(fd, {buffer_.data(), length});
        explicit_bzero(buffer_.data(), length);  // it may hold keys
    }
}

void daemon_channel::take_packet(int fd, std::span<const std::uint8_t> packet) {
    kx::apcomm_packet head{};
    std::memcpy(&head, packet.data(), sizeof(head));
    auto message = packet.subspan(sizeof(head));
    if (head.destination == kx::apcomm_destination_apd) {
        registered_.insert(fd);
        connections_.at(fd).unregistered.stop();
        handlers_.on_register();
        return;
    }
    if (handlers_.on_message(head.destination, message)) {
        return;
    }
    refused_ = {head.destination, {message.begin(), message.end()}};
    for (auto &[other, each] : connections_) {
        each.readable.stop();
    }
}

void daemon_channel::resume() {
    if (!refused_ || !handlers_.on_message(refused_->destination, refused_->bytes)) {
        return;
    }
    refused_.reset();
    for (auto &[fd, each] : connections_) {
        each.readable.start();
    }
}

void daemon_channel::drop(int fd) {
    if (connections_.erase(fd) == 0) {
        return;
    }
    close(fd);
    if (registered_.erase(fd) > 0 && registered_.empty()) {
        handlers_.on_lost();
    }
}

void daemon_channel::disconnect() {
    while (!connections_.empty()) {
        drop(connections_.begin()->first);
    }
}

}  // namespace apd
