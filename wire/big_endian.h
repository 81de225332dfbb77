// Integers as they lie in messages: big-endian, at any address.
#ifndef WIRE_BIG_ENDIAN_H
#define WIRE_BIG_ENDIAN_H

#include <cstdint>

struct be16 {
    uint8_t bytes[2];

    constexpr operator uint16_t() const { return static_cast<uint16_t>(bytes[0] << 8 | bytes[1]); }
    constexpr be16 &operator=(uint16_t value) {
        bytes[0] = static_cast<uint8_t>(value >> 8);
        bytes[1] = static_cast<uint8_t>(value);
        return *this;
    }
};

struct be32 {
    uint8_t bytes[4];

    constexpr operator uint32_t() const {
        return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
    }
    constexpr be32 &operator=(uint32_t value) {
        bytes[0] = static_cast<uint8_t>(value >> 24);
        bytes[1] = static_cast<uint8_t>(value >> 16);
        bytes[2] = static_cast<uint8_t>(value >> 8);
        bytes[3] = static_cast<uint8_t>(value);
        return *this;
    }
};

static_assert(sizeof(be16) == 2 && alignof(be16) == 1);
static_assert(sizeof(be32) == 4 && alignof(be32) == 1);

#endif
