// IPv4 addresses as they are stored: four bytes in network order.
#ifndef CLIENT_MGR_BASE_IPV4_H
#define CLIENT_MGR_BASE_IPV4_H

#include <arpa/inet.h>

#include <cstdint>
#include <cstring>

#include "wire/big_endian.h"

// As the bridge has it: the four bytes in memory order.
inline uint32_t ipv4_network_order(be32 ip) {
    uint32_t result;
    memcpy(&result, ip.bytes, sizeof result);
    return result;
}

struct ipv4_text {
    char text[16];
};

// "192.168.5.23"
inline ipv4_text ipv4_to_text(be32 ip) {
    ipv4_text result;
    inet_ntop(AF_INET, ip.bytes, result.text, sizeof result.text);
    return result;
}

#endif
