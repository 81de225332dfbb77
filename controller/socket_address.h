// A numeric address with a port, as options have it: "127.0.0.1:7443", "[::1]:7443".
#ifndef CONTROLLER_SOCKET_ADDRESS_H
#define CONTROLLER_SOCKET_ADDRESS_H

#include <cstdint>
#include <optional>
#include <string>

namespace controller {

struct socket_address {
    std::string host;  // without brackets
    std::uint16_t port = 0;
};

// None when `text` is not an address and a port. The host is not looked at.
std::optional<socket_address> parse_socket_address(const std::string &text);

}  // namespace controller

#endif
