// IPv4 addresses as they are stored: four bytes in network order.
#ifndef CLIENT_MGR_BASE_IPV4_H
#define CLIENT_MGR_BASE_IPV4_H

#include <cstdint>
#include <cstdio>
#include <cstring>

#include "wire/big_endian.h"

// As the bridge takes it: the four bytes in memory order.
inline uint32_t ipv4_network_order(const uint8_t ip[4]) {
    uint32_t result;
    memcpy(&result, ip, sizeof result);
    return result;
}

// As a number: 192.168.5.23 is 0xc0a80517 on every host.
inline uint32_t ipv4_number(const uint8_t ip[4]) { return *reinterpret_cast<const be32 *>(ip); }

struct ipv4_text {
    char text[16];
};

// "192.168.5.23"
inline ipv4_text ipv4_to_text(const uint8_t ip[4]) {
    ipv4_text result;
    snprintf(result.text, sizeof result.text, "%d.%d.%d.%d", ip[0], ip[1], ip[2], ip[3]);
    return result;
}

#endif
