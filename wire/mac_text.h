// MAC addresses as text.
#ifndef WIRE_MAC_TEXT_H
#define WIRE_MAC_TEXT_H

#include <cstdint>

inline constexpr int MAC_TEXT_LEN = 17;

// "02:00:00:00:10:00" and a NUL. Returns MAC_TEXT_LEN.
inline int mac_to_text(const uint8_t *mac, char *dst) {
    static constexpr char digits[] = "0123456789abcdef";
    for (int i = 0; i < 6; i++) {
        *dst++ = digits[mac[i] >> 4];
        *dst++ = digits[mac[i] & 0xf];
        *dst++ = i < 5 ? ':' : '\0';
    }
    return MAC_TEXT_LEN;
}

struct mac_text {
    explicit mac_text(const uint8_t *mac) { mac_to_text(mac, text); }

    char text[MAC_TEXT_LEN + 1];
};

#endif
