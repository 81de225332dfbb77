#include "client_mgr/base/text_buffer.h"

#include <algorithm>
#include <cstring>

#include "wire/hex.h"
#include "wire/mac_address.h"

namespace {

// The width and precision of a conversion.
struct conversion {
    int width = 0;
    int precision = -1;
};

bool is_digit(char c) { return c >= '0' && c <= '9'; }

int read_number(const char *&fmt) {
    int value = 0;
    while (is_digit(*fmt)) {
        value = value * 10 + (*fmt++ - '0');
    }
    return value;
}

conversion read_conversion(const char *&fmt) {
    conversion c;
    c.width = read_number(fmt);
    if (*fmt == '.') {
        fmt++;
        c.precision = read_number(fmt);
    }
    return c;
}

}  // namespace

void text_buffer::put(const char *text, size_t len) {
    len = std::min(len, static_cast<size_t>(limit_ - end_));
    memcpy(end_, text, len);
    end_ += len;
}

void text_buffer::put_unsigned(unsigned long value) {
    char digits[24];
    char *p = digits + sizeof digits;
    do {
        *--p = static_cast<char>('0' + value % 10);
        value /= 10;
    } while (value != 0);
    put(p, static_cast<size_t>(digits + sizeof digits - p));
}

void text_buffer::put_decimal(long value) {
    if (value < 0) {
        put('-');
    }
    const auto magnitude = static_cast<unsigned long>(value);
    put_unsigned(value < 0 ? 0 - magnitude : magnitude);
}

void text_buffer::put_hex(uint32_t value, int min_digits) {
    int digits = std::max(min_digits, 1);
    while (digits < 8 && value >> digits * 4 != 0) {
        digits++;
    }
    do {
        digits--;
        put(hex_digit(value >> digits * 4));
    } while (digits > 0);
}

void text_buffer::put_format(const char *fmt, va_list args) {
    while (*fmt != '\0') {
        const char *literal = fmt;
        while (*fmt != '\0' && *fmt != '%') {
            fmt++;
        }
        put(literal, static_cast<size_t>(fmt - literal));
        if (*fmt == '\0') {
            return;
        }
        fmt++;
        const conversion c = read_conversion(fmt);
        switch (*fmt++) {
            case 'd':
                put_decimal(va_arg(args, int));
                break;
            case 'x':
                put_hex(va_arg(args, unsigned), c.width);
                break;
            case 's': {
                const char *text = va_arg(args, const char *);
                put(text, c.precision >= 0 ? strnlen(text, static_cast<size_t>(c.precision)) : strlen(text));
                break;
            }
            case 'p':
                fmt++;
                put(mac_text(static_cast<const uint8_t *>(va_arg(args, const void *))).text, MAC_TEXT_LEN);
                break;
            default:
                put('%');
                break;
        }
    }
}
