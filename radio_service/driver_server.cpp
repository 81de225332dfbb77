#include "radio_service/driver_server.h"

#include <event2/event.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

#include "common/paths.h"
#include "common/trusted_users.h"

namespace kx {
namespace {

constexpr std::size_t connections_max = 64;
// A longer packet is cut, and its length is then wrong.
constexpr std::size_t request_room = 512;
static_assert(request_room > sizeof(driver_request) + sizeof(driver_acl_verdict));

sockaddr_un address_of(const std::string &path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.size() >= sizeof address.sun_path) {
        throw std::runtime_error(path + ": longer than a socket's name can be; choose a shorter KX_ROOT");
    }
    path.copy(address.sun_path, path.size());
    return address;
}

int make_socket() { return socket(AF_UNIX, SOCK_SEQPACKET | SOCK_NONBLOCK | SOCK_CLOEXEC, 0); }

bool is_served(const sockaddr_un &address) {
    const int fd = make_socket();
    const bool served = connect(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) == 0;
    close(fd);
    return served;
}

int listen_on(const std::string &path) {
    if (is_served(address_of(path))) {
        throw std::runtime_error(path + ": another radio owns this interface");
    }
    const std::string aside = path + '~';
    const sockaddr_un address = address_of(aside);
    unlink(aside.c_str());
    const int fd = make_socket();
    if (fd < 0 || bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address) != 0 ||
        listen(fd, SOMAXCONN) != 0 || !open_to_group(aside) || rename(aside.c_str(), path.c_str()) != 0) {
        const int error = errno;
        close(fd);
        throw std::runtime_error(path + ": " + std::strerror(error));
    }
    return fd;
}

bool is_trusted(int fd) {
    ucred peer{};
    socklen_t size = sizeof peer;
    return getsockopt(fd, SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 && is_trusted_user(peer.uid);
}

struct parsed_request {
    std::uint32_t number = 0;
    std::span<const std::uint8_t> data;
};

std::optional<parsed_request> parse_request(std::span<const std::uint8_t> packet, std::string_view ifname) {
    driver_request head{};
    if (packet.size() < sizeof head) {
        return std::nullopt;
    }
    std::memcpy(&head, packet.data(), sizeof head);
    const std::span<const std::uint8_t> data = packet.subspan(sizeof head);
    const std::string_view name(head.ifname, strnlen(head.ifname, sizeof head.ifname));
    if (head.length != data.size() || name != ifname) {
        return std::nullopt;
    }
    return parsed_request{.number = head.request, .data = data};
}

void send_answer(int fd, const driver_answer &answer) {
    const driver_reply head{.error = answer.error, .length = static_cast<std::uint32_t>(answer.data.size())};
    std::vector<std::uint8_t> packet(sizeof head);
    std::memcpy(packet.data(), &head, sizeof head);
    packet.insert(packet.end(), answer.data.begin(), answer.data.end());
    send(fd, packet.data(), packet.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
}

}  // namespace

driver_server::driver_server(event_base *base, const std::vector<std::string> &ifnames, handler serve,
                             std::chrono::milliseconds idle_max)
    : base_(base), serve_(std::move(serve)), idle_max_(idle_max) {
    const std::string directory = place(driver_directory);
    make_private_directories(directory);
    try {
        for (const std::string &ifname : ifnames) {
            const std::string path = std::string(directory).append("/").append(ifname);
            const std::size_t index = listeners_.size();
            listeners_.push_back({.fd = listen_on(path), .path = path, .ifname = ifname, .readable = nullptr});
            listeners_[index].readable = std::make_unique<watch>(base_, listeners_[index].fd, EV_READ | EV_PERSIST,
                                                                 [this, index] { accept_one(index); });
            listeners_[index].readable->start();
        }
    } catch (...) {
        close_all();
        throw;
    }
}

driver_server::~driver_server() { close_all(); }

void driver_server::close_all() {
    for (connection &each : connections_) {
        each.readable.reset();
        close(each.fd);
    }
    for (listener &each : listeners_) {
        each.readable.reset();
        unlink(each.path.c_str());
        close(each.fd);
    }
}

void driver_server::accept_one(std::size_t vap) {
    const int fd = accept4(listeners_[vap].fd, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
        return;
    }
    if (!is_trusted(fd)) {
        close(fd);
        return;
    }
    if (connections_.size() == connections_max) {
        hang_up(connections_.begin());
    }
    const auto client = connections_.insert(connections_.end(), {.fd = fd, .vap = vap, .readable = nullptr});
    client->readable = std::make_unique<watch>(base_, fd, EV_READ, [this, client] { serve_request(client); });
    client->readable->start(idle_max_);
}

void driver_server::serve_request(std::list<connection>::iterator client) {
    if (!answer(*client)) {
        return hang_up(client);
    }
    client->readable->start(idle_max_);
    connections_.splice(connections_.end(), connections_, client);
}

void driver_server::hang_up(std::list<connection>::iterator client) {
    const int fd = client->fd;
    connections_.erase(client);
    close(fd);
}

// False when the client has closed the connection, or sent nothing for too long.
bool driver_server::answer(const connection &client) {
    std::array<std::uint8_t, request_room> packet;
    const ssize_t size = recv(client.fd, packet.data(), packet.size(), 0);
    if (size <= 0) {
        return false;
    }
    const auto request = parse_request({packet.data(), static_cast<std::size_t>(size)}, listeners_[client.vap].ifname);
    send_answer(client.fd,
                request ? serve_(client.vap, request->number, request->data) : driver_answer{.error = EINVAL});
    return true;
}

}  // namespace kx
