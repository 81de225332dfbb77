#include <gtest/gtest.h>

#include "common/hex.h"
#include "common/ipv4.h"
#include "common/mac_address.h"
#include "wire/hex.h"

using bytes = std::vector<std::uint8_t>;

TEST(text_forms, include_hexadecimal_digits_of_either_case_and_nothing_else) {
    const std::string_view lower = "0123456789abcdef", upper = "0123456789ABCDEF";
    for (int c = 0; c < 256; c++) {
        const char each = static_cast<char>(c);
        const std::size_t at = std::min(lower.find(each), upper.find(each));
        EXPECT_EQ(hex_value(each), at == std::string_view::npos ? -1 : static_cast<int>(at)) << c;
    }
    for (unsigned value = 0; value < 64; value++) {
        EXPECT_EQ(hex_digit(value), lower[value % 16]);
    }
}

TEST(text_forms, convert_bytes_from_and_to_hexadecimal) {
    EXPECT_EQ(kx::format_hex(bytes{0x00, 0x9a, 0xff, 0x10}), "009aff10");
    EXPECT_EQ(kx::parse_hex("009afF10"), (bytes{0x00, 0x9a, 0xff, 0x10}));
    EXPECT_EQ(kx::format_hex({}), "");
    EXPECT_EQ(kx::parse_hex(""), bytes{});
    for (const char *text : {"0", "001", "0g", "g0", "00 01", "0x"}) {
        EXPECT_EQ(kx::parse_hex(text), std::nullopt) << text;
    }
}

TEST(text_forms, begin_an_ipv4_address_with_its_highest_byte) {
    EXPECT_EQ(kx::format_ipv4(0xc0a80517), "192.168.5.23");
    EXPECT_EQ(kx::format_ipv4(0), "0.0.0.0");
    EXPECT_EQ(kx::format_ipv4(0xffffffff), "255.255.255.255");
}
