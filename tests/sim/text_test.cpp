#include "client_mgr/base/text.h"

#include <string>

#include "sim_test.h"

namespace sim {
namespace {

bytes converted(const char *text) {
    bytes mac(7, 0xee);
    client_mgr_mac_str_to_bin(text, mac.data());
    EXPECT_EQ(0xee, mac.back()) << "behind the six bytes";
    mac.pop_back();
    return mac;
}

}  // namespace

TEST(text, has_a_value_for_each_digit_and_0_for_anything_else) {
    const std::string digits = "0123456789abcdefABCDEF";
    for (int c = -128; c < 256; c++) {
        const size_t at = c == 0 ? std::string::npos : digits.find(static_cast<char>(c));
        const int value = at == std::string::npos ? 0 : static_cast<int>(at < 16 ? at : at - 6);
        EXPECT_EQ(value, client_mgr_char_to_ascii(static_cast<char>(c))) << "character " << c;
    }
}

TEST(text, is_read_as_a_mac_address_with_and_without_separators) {
    const bytes mac = hex("01 23 45 67 89 ab");
    EXPECT_EQ(mac, converted("01:23:45:67:89:ab"));
    EXPECT_EQ(mac, converted("0123456789ab"));
    EXPECT_EQ(mac, converted("0123:4567:89ab"));
    EXPECT_EQ(hex("cd ef ab fe dc ba"), converted("CD:EF:AB:fe:dc:ba"));
}

TEST(text, is_not_validated_as_a_mac_address) {
    EXPECT_EQ(hex("00 10 0f 00 00 a0"), converted("zz:1g:-f:  :::a%"));
    EXPECT_EQ(hex("01 23 45 67 89 ab"), converted("01:23:45:67:89:abcdef"));
}

TEST(text, of_a_mac_address_ends_before_the_next_byte) {
    // The array holds six pairs and nothing else, so that a sanitizer sees a read past the end.
    const std::string exact("0123456789ab");
    EXPECT_EQ(hex("01 23 45 67 89 ab"), converted(exact.c_str()));
}

TEST(text, of_a_short_mac_address_ends_at_its_terminator) {
    EXPECT_EQ(hex("01 20 00 00 00 00"), converted("01:2\0f:ff:ff:ff:ff"));
    EXPECT_EQ(zeros(6), converted(""));
}

SIM_TEST(hex_dump, has_an_offset_and_16_bytes_on_each_line) {
    bytes data;
    for (uint8_t i = 0; i < 18; i++) {
        data.push_back(static_cast<uint8_t>(0xf0 + i));
    }
    dump_buf(data.data(), 18);
    fflush(stdout);
    sim.expect({console(0, ""), console(0, "0x0000: f0 f1 f2 f3 f4 f5 f6 f7 f8 f9 fa fb fc fd fe ff "),
                did("console without newline: 0x0010: 00 01 ")});
}

SIM_TEST(hex_dump, of_16_bytes_has_no_second_line) {
    dump_buf(zeros(16).data(), 16);
    fflush(stdout);
    sim.expect(
        {console(0, ""), did("console without newline: 0x0000: 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 ")});
}

SIM_TEST(hex_dump, writes_an_offset_above_four_digits_in_full) {
    dump_buf(zeros(0x10001).data(), 0x10001);
    fflush(stdout);
    EXPECT_EQ("console without newline: 0x10000: 00 ", sim.take_effects().back());
}

SIM_TEST(hex_dump, of_nothing_prints_nothing) {
    const uint8_t byte = 1;
    dump_buf(nullptr, 5);
    dump_buf(&byte, 0);
    fflush(stdout);
    sim.expect_nothing();
}

}  // namespace sim
