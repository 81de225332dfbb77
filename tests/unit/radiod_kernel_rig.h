// Netlink messages made by hand, and Ethernet frames.
#ifndef TESTS_UNIT_RADIOD_KERNEL_RIG_H
#define TESTS_UNIT_RADIOD_KERNEL_RIG_H

#include <linux/genetlink.h>
#include <linux/netlink.h>

#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "wire/mac_address.h"

using octets = std::vector<std::uint8_t>;

template <typename T>
octets raw(const T &value) {
    octets bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

inline octets operator+(octets first, const octets &second) {
    first.insert(first.end(), second.begin(), second.end());
    return first;
}

// Padded to a multiple of 4.
inline octets attribute(std::uint16_t type, const octets &value) {
    octets bytes = raw(nlattr{static_cast<std::uint16_t>(sizeof(nlattr) + value.size()), type}) + value;
    bytes.resize((bytes.size() + 3) & ~std::size_t{3});
    return bytes;
}
inline octets text(const std::string &value) { return octets(value.begin(), value.end()) + octets{0}; }

inline octets netlink_message(std::uint16_t type, std::uint16_t flags, std::uint32_t sequence, const octets &payload) {
    nlmsghdr head{};
    head.nlmsg_len = static_cast<std::uint32_t>(sizeof head + payload.size());
    head.nlmsg_type = type;
    head.nlmsg_flags = flags;
    head.nlmsg_seq = sequence;
    return raw(head) + payload;
}
inline octets generic_message(std::uint16_t family, std::uint8_t command, std::uint32_t sequence,
                              const octets &attributes, std::uint16_t flags = NLM_F_MULTI) {
    return netlink_message(family, flags, sequence,
                           raw(genlmsghdr{.cmd = command, .version = 1, .reserved = 0}) + attributes);
}
inline octets done(std::uint32_t sequence, std::int32_t error = 0) {
    return netlink_message(NLMSG_DONE, NLM_F_MULTI, sequence, raw(error));
}
inline octets failure(std::uint32_t sequence, std::int32_t error) {
    nlmsgerr body{};
    body.error = error;
    return netlink_message(NLMSG_ERROR, 0, sequence, raw(body));
}

#endif
