// Hexadecimal digits.
#ifndef WIRE_HEX_H
#define WIRE_HEX_H

// The lower-case digit of the low four bits of `value`.
constexpr char hex_digit(unsigned value) { return "0123456789abcdef"[value & 0xf]; }

// The value of a digit of either case, -1 for any other character.
constexpr int hex_value(char c) {
    if (c >= '0' && c <= '9') {
        return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
        return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
}

#endif
