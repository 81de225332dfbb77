// IPv4 addresses as they are stored: four bytes in network order.
#ifndef CLIENT_MGR_BASE_IPV4_H
#define CLIENT_MGR_BASE_IPV4_H

#include <cstdint>
#include <cstdio>
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
    snprintf(result.text, sizeof result.text, "%d.%d.%d.%d", ip.bytes[0], ip.bytes[1], ip.bytes[2], ip.bytes[3]);
    return result;
}

#endif
