#include "common/ipv4.h"

#include <arpa/inet.h>

namespace kx {

std::string format_ipv4(std::uint32_t ip) {
    const in_addr address{htonl(ip)};
    char text[INET_ADDRSTRLEN];
    inet_ntop(AF_INET, &address, text, sizeof(text));
    return text;
}

}  // namespace kx
