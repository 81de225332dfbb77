// MAC addresses and their text.
#ifndef WIRE_MAC_ADDRESS_H
#define WIRE_MAC_ADDRESS_H

#include <compare>
#include <cstddef>
#include <cstdint>

#include "wire/hex.h"

// An EUI-48 (IEEE 802-2014, 8.2) in the order of transmission: of a station, an access point or, as a BSSID, of a VAP.
// Six bytes at any address, so a message's fields may be of this type. All zero means none where a field may be unset.
struct mac_address {
    uint8_t bytes[6];

    friend bool operator==(const mac_address &a, const mac_address &b) {
        return __builtin_memcmp(a.bytes, b.bytes, sizeof a.bytes) == 0;
    }
    friend std::strong_ordering operator<=>(const mac_address &a, const mac_address &b) {
        return __builtin_memcmp(a.bytes, b.bytes, sizeof a.bytes) <=> 0;
    }

    constexpr uint8_t &operator[](size_t i) { return bytes[i]; }
    constexpr uint8_t operator[](size_t i) const { return bytes[i]; }
    static constexpr size_t size() { return sizeof bytes; }
    constexpr uint8_t *data() { return bytes; }
    constexpr const uint8_t *data() const { return bytes; }
    constexpr uint8_t *begin() { return bytes; }
    constexpr uint8_t *end() { return bytes + sizeof bytes; }
    constexpr const uint8_t *begin() const { return bytes; }
    constexpr const uint8_t *end() const { return bytes + sizeof bytes; }
};
static_assert(sizeof(mac_address) == 6 && alignof(mac_address) == 1);

// The address whose six bytes are at `at`.
inline const mac_address &mac_at(const uint8_t *at) { return *reinterpret_cast<const mac_address *>(at); }

inline constexpr int MAC_TEXT_LEN = 17;

// Writes "02:00:00:00:10:00" and a NUL to `dst`, which has room for MAC_TEXT_LEN + 1. `mac` is six bytes. Returns
// MAC_TEXT_LEN.
inline int mac_to_text(const uint8_t *mac, char *dst) {
    for (int i = 0; i < 6; i++) {
        *dst++ = hex_digit(mac[i] >> 4u);
        *dst++ = hex_digit(mac[i]);
        *dst++ = i < 5 ? ':' : '\0';
    }
    return MAC_TEXT_LEN;
}

struct mac_text {
    explicit mac_text(const uint8_t *mac) { mac_to_text(mac, text); }
    explicit mac_text(const mac_address &mac) : mac_text(mac.bytes) {}

    char text[MAC_TEXT_LEN + 1];
};

#endif
