#include "tests/unit/tunnel_rig.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <system_error>

loopback_listener::loopback_listener() : fd_(socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof(address);
    auto *name = reinterpret_cast<sockaddr *>(&address);
    if (bind(fd_, name, size) != 0 || listen(fd_, 8) != 0 || getsockname(fd_, name, &size) != 0) {
        throw std::system_error(errno, std::generic_category(), "listener");
    }
    port_ = ntohs(address.sin_port);
}

loopback_listener::~loopback_listener() { close(fd_); }

int loopback_listener::accept() const { return accept4(fd_, nullptr, nullptr, SOCK_NONBLOCK | SOCK_CLOEXEC); }

kx::tunnel_connection::callbacks tunnel_end::callbacks() {
    return {[this] { ups++; },
            [this](std::uint32_t destination, std::span<const std::uint8_t> message) {
                messages.push_back({destination, {message.begin(), message.end()}});
                if (also_on_message) {
                    also_on_message();
                }
            },
            [this](const std::string &why) {
                downs++;
                reason = why;
            },
            [this] { drains++; }};
}

void tunnel_rig::start_connecting(const std::string &host) {
    connected.tunnel = kx::tunnel_connection::connect(base.get(), client_tls.get(), host, listener.port(),
                                                      connected.callbacks(), options);
}

bool tunnel_rig::start_accepting() {
    int fd = -1;
    if (!run_until([&] { return (fd = listener.accept()) >= 0; })) {
        return false;
    }
    accepted.tunnel = kx::tunnel_connection::accept(base.get(), server_tls.get(), fd, accepted.callbacks(), options);
    return true;
}

bool tunnel_rig::both_up() {
    start_connecting();
    return start_accepting() && run_until([&] { return accepted.up() && connected.up(); });
}
