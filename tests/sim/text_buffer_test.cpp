// The log's own formatting gives the same text as libc's.

#include "client_mgr/base/text_buffer.h"

#include <gtest/gtest.h>

#include <climits>
#include <cstdarg>
#include <cstdio>
#include <string>

namespace sim {
namespace {

[[gnu::format(printf, 2, 3)]] std::string formatted(size_t room, const char *fmt, ...) {
    char buf[256];
    text_buffer text(buf, room);
    va_list args;
    va_start(args, fmt);
    text.put_format(fmt, args);
    va_end(args);
    return {text.data(), text.size()};
}

template <class... Args>
void expect_as_libc(const char *fmt, Args... args) {
    char expected[256];
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"
#pragma GCC diagnostic ignored "-Wformat-security"
    snprintf(expected, sizeof(expected), fmt, args...);
    EXPECT_EQ(expected, formatted(256, fmt, args...));
#pragma GCC diagnostic pop
}

}  // namespace

TEST(text_buffer, writes_numbers_as_libc_does) {
    for (int value : {0, 1, -1, 9, 10, -10, 12345, INT_MAX, INT_MIN}) {
        expect_as_libc("<%d>", value);
    }
    for (unsigned value : {0u, 1u, 0xfu, 0x10u, 0xabcu, 0x1000u, 0x12345678u, 0x80000000u, UINT_MAX}) {
        expect_as_libc("%02x:%08x", value, value);
    }
}

TEST(text_buffer, writes_texts_as_libc_does) {
    expect_as_libc("nothing to fill in");
    expect_as_libc("");
    expect_as_libc("100 %% of them%%");
    expect_as_libc("%s and %s", "one", "");
    for (const char *text : {"", "abc", "abcd", "abcde"}) {
        expect_as_libc("%.4s|%.0s|%.18s", text, text, text);
    }
    const char unterminated[4] = {'a', 'b', 'c', 'd'};
    EXPECT_EQ("abcd", formatted(256, "%.4s", unterminated));
}

TEST(text_buffer, writes_mac_addresses) {
    const uint8_t mac[6] = {0x00, 0x1a, 0xb0, 0x7f, 0x80, 0xff};
    EXPECT_EQ("<00:1a:b0:7f:80:ff>M 7", formatted(256, "<%pM>M %d", static_cast<const void *>(mac), 7));
}

TEST(text_buffer, distinguishes_its_conversions) {
    for (const char *fmt : {"", "text", "%d", "%s", "100%%", "%.4s", "%.90s|%d", "0x%08x%01x", "%pM%pM M"}) {
        EXPECT_TRUE(text_buffer::supports(fmt)) << fmt;
    }
    for (const char *fmt : {"%", "%u", "%ld", "%5d", "%c", "%x", "%0x", "%0 x", "%09x", "%08d", "%p", "%pm", "%.4d",
                            "%.*s", "%-4s", "%d %", "%d%i"}) {
        EXPECT_FALSE(text_buffer::supports(fmt)) << fmt;
    }
}

TEST(text_buffer, cuts_what_does_not_fit) {
    const uint8_t mac[6] = {0x02, 0, 0, 0, 0x10, 0xff};
    const std::string whole = "a 12 cdef 7f 02:00:00:00:10:ff end";
    for (size_t room = 0; room <= whole.size() + 1; room++) {
        EXPECT_EQ(whole.substr(0, room),
                  formatted(room, "a %d %s %02x %pM end", 12, "cdef", 0x7fu, static_cast<const void *>(mac)));
        EXPECT_EQ(std::string("-12").substr(0, room), formatted(room, "%d", -12));
    }
}

}  // namespace sim
