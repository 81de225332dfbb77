#include "radiod/radius/udp_socket.h"

#include <arpa/inet.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <stdexcept>
#include <system_error>
#include <utility>

namespace radiod::radius {
namespace {

[[noreturn]] void fail(const char *what) { throw std::system_error(errno, std::generic_category(), what); }

const sockaddr_in &ipv4(const sockaddr_storage &address) { return reinterpret_cast<const sockaddr_in &>(address); }
const sockaddr_in6 &ipv6(const sockaddr_storage &address) { return reinterpret_cast<const sockaddr_in6 &>(address); }

}  // namespace

udp_address::udp_address(const std::string &address, std::uint16_t port) {
    auto &as_ipv4 = reinterpret_cast<sockaddr_in &>(storage_);
    auto &as_ipv6 = reinterpret_cast<sockaddr_in6 &>(storage_);
    if (inet_pton(AF_INET, address.c_str(), &as_ipv4.sin_addr) == 1) {
        storage_.ss_family = AF_INET;
        as_ipv4.sin_port = htons(port);
        length_ = sizeof(sockaddr_in);
    } else if (inet_pton(AF_INET6, address.c_str(), &as_ipv6.sin6_addr) == 1) {
        storage_.ss_family = AF_INET6;
        as_ipv6.sin6_port = htons(port);
        length_ = sizeof(sockaddr_in6);
    } else {
        throw std::invalid_argument("not an IPv4 or IPv6 address: \"" + address + "\"");
    }
}

bool udp_address::same_host(const udp_address &other) const {
    if (family() != other.family()) {
        return false;
    }
    if (family() == AF_INET) {
        return ipv4(storage_).sin_addr.s_addr == ipv4(other.storage_).sin_addr.s_addr;
    }
    return IN6_ARE_ADDR_EQUAL(&ipv6(storage_).sin6_addr, &ipv6(other.storage_).sin6_addr) != 0;
}

bool udp_address::operator==(const udp_address &other) const { return same_host(other) && port() == other.port(); }

std::uint16_t udp_address::port() const {
    return ntohs(family() == AF_INET ? ipv4(storage_).sin_port : ipv6(storage_).sin6_port);
}

std::string udp_address::text() const {
    std::array<char, INET6_ADDRSTRLEN> host{};
    if (family() == AF_INET6) {
        inet_ntop(AF_INET6, &ipv6(storage_).sin6_addr, host.data(), host.size());
        return "[" + std::string(host.data()) + "]:" + std::to_string(port());
    }
    inet_ntop(AF_INET, &ipv4(storage_).sin_addr, host.data(), host.size());
    return std::string(host.data()) + ":" + std::to_string(port());
}

udp_socket::udp_socket(int family) : fd_(socket(family, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
    if (fd_ < 0) {
        fail("socket");
    }
}

udp_socket::~udp_socket() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

udp_socket::udp_socket(udp_socket &&other) noexcept : fd_(std::exchange(other.fd_, -1)) {}

void udp_socket::bind(const udp_address &own) {
    if (::bind(fd_, reinterpret_cast<const sockaddr *>(&own.storage_), own.length_) != 0) {
        fail(("bind " + own.text()).c_str());
    }
}

udp_address udp_socket::own_address() const {
    udp_address own;
    if (getsockname(fd_, reinterpret_cast<sockaddr *>(&own.storage_), &own.length_) != 0) {
        fail("getsockname");
    }
    return own;
}

bool udp_socket::send(const udp_address &to, std::span<const std::uint8_t> text) const {
    const ssize_t sent =
        sendto(fd_, text.data(), text.size(), 0, reinterpret_cast<const sockaddr *>(&to.storage_), to.length_);
    return sent == static_cast<ssize_t>(text.size());
}

std::optional<std::span<const std::uint8_t>> udp_socket::receive(std::span<std::uint8_t> room,
                                                                 udp_address &from) const {
    from = udp_address();
    const ssize_t size =
        recvfrom(fd_, room.data(), room.size(), 0, reinterpret_cast<sockaddr *>(&from.storage_), &from.length_);
    if (size < 0) {
        return std::nullopt;
    }
    return room.first(static_cast<std::size_t>(size));
}

}  // namespace radiod::radius
