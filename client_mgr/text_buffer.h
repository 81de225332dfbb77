// Text that is put together in a buffer of fixed size. It does what snprintf does, for the few conversions that the
// daemon's texts use: the formatting, not the writing, is what a log line can be spared.
#ifndef CLIENT_MGR_TEXT_BUFFER_H
#define CLIENT_MGR_TEXT_BUFFER_H

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

    // As vsnprintf, for %d without width, %x with a width after 0, %s with a precision, and %%; and %pM for the six
    // bytes of a MAC address, which to the compiler's check of `fmt` is a pointer and a letter.
    void put_format(const char *fmt, va_list args);

private:
    void put_unsigned(unsigned long value);

    char *begin_;
    char *end_;
    char *limit_;
};

#endif
