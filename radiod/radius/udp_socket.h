// UDP over IPv4 and IPv6.
#ifndef RADIOD_RADIUS_UDP_SOCKET_H
#define RADIOD_RADIUS_UDP_SOCKET_H

#include <netinet/in.h>
#include <sys/socket.h>

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace radiod::radius {

class udp_address {
public:
    // Throws std::invalid_argument when `address` is no IPv4 or IPv6 address.
    udp_address(const std::string &address, std::uint16_t port);
    udp_address() = default;

    bool operator==(const udp_address &other) const;
    std::uint16_t port() const;
    bool same_host(const udp_address &other) const;
    std::string text() const;  // "192.0.2.1:1812", "[2001:db8::1]:1812"
    int family() const { return storage_.ss_family; }

private:
    friend class udp_socket;

    sockaddr_storage storage_{};
    socklen_t length_ = sizeof(sockaddr_storage);
};

// Non-blocking.
class udp_socket {
public:
    // Unbound. The functions that open and bind throw std::system_error.
    explicit udp_socket(int family);
    ~udp_socket();
    udp_socket(udp_socket &&other) noexcept;
    udp_socket &operator=(udp_socket &&) = delete;

    void bind(const udp_address &own);
    udp_address own_address() const;
    int fd() const { return fd_; }

    bool send(const udp_address &to, std::span<const std::uint8_t> text) const;
    // One datagram; none when none waits. Of a longer one the part that `room` holds.
    std::optional<std::span<const std::uint8_t>> receive(std::span<std::uint8_t> room, udp_address &from) const;

private:
    int fd_;
};

}  // namespace radiod::radius

#endif
