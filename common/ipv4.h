// IPv4 addresses as text.
#ifndef COMMON_IPV4_H
#define COMMON_IPV4_H

#include <cstdint>
#include <string>

namespace kx {

// "192.168.5.23" of 0xc0a80517, the address as a number in the host's order.
std::string format_ipv4(std::uint32_t ip);

}  // namespace kx

#endif
