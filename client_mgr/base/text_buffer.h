// A formatter that writes to a buffer of fixed size. It supports only the conversions that the daemon's texts use and
// is faster than snprintf: formatting is the larger part of a log line's cost.
#ifndef CLIENT_MGR_BASE_TEXT_BUFFER_H
#define CLIENT_MGR_BASE_TEXT_BUFFER_H

#include <cstdarg>
#include <cstddef>
#include <cstdint>

class text_buffer {
public:
    // Nothing is written past `size` bytes at `buf`; what does not fit is cut. No terminator is written.
    text_buffer(char *buf, size_t size) : begin_(buf), end_(buf), limit_(buf + size) {}

    const char *data() const { return begin_; }
    size_t size() const { return static_cast<size_t>(end_ - begin_); }

    void put(char c) {
        if (end_ != limit_) {
            *end_++ = c;
        }
    }
    void put(const char *text, size_t len);
    void put_decimal(long value);
    void put_hex(uint32_t value, int min_digits);

    // As vsnprintf, for the conversions that supports() lists. %pM writes the six bytes of a MAC address; the
    // compiler's check of `fmt` reads it as a pointer followed by a letter.
    void put_format(const char *fmt, va_list args);

    // Whether the conversions of `fmt` are all among %d, %s, %.4s, %08x (with a width of 1 to 8), %pM and %%.
    static constexpr bool supports(const char *fmt) {
        while (*fmt != '\0') {
            if (*fmt++ == '%' && !skip_conversion(fmt)) {
                return false;
            }
        }
        return true;
    }

private:
    static constexpr bool skip_conversion(const char *&fmt) {
        switch (*fmt++) {
            case 'd':
            case 's':
            case '%':
                return true;
            case 'p':
                return *fmt++ == 'M';
            case '0':
                return *fmt >= '1' && *fmt <= '8' && *++fmt == 'x';
            case '.':
                while (*fmt >= '0' && *fmt <= '9') {
                    fmt++;
                }
                return *fmt == 's';
            default:
                return false;
        }
    }
    void put_unsigned(unsigned long value);

    char *begin_;
    char *end_;
    char *limit_;
};

#endif
