#include <cstdio>
#include <cstdlib>
#include <string>

#include "arrange.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_dump.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "daemon_steps.h"
#include "sim_test.h"

namespace sim {
namespace {

// What `write` puts on a stream.
template <class Write>
std::string written(Write write) {
    char *text = nullptr;
    size_t len = 0;
    FILE *f = open_memstream(&text, &len);
    write(f);
    fclose(f);
    std::string out(text, len);
    free(text);
    return out;
}

std::string printed(const client_info &c) {
    return written([&](FILE *f) { client_tbl_print(f, &c); });
}

client_info sample() {
    client_info c = client_of("02:0a:b0:c1:d2:ff");
    set_text(c.cl_mac_str, sizeof(c.cl_mac_str), "02:0a:b0:c1:d2:ff");
    set_bytes(c.home_bssid, hex("0e 1a 2b 3c 4d 5f"));
    set_bytes(c.assoc_bssid, hex("0e 6a 7b 8c 9d af"));
    c.home_vlan = 17;
    c.assoc_vlan = 4094;
    set_bytes(c.cl_ip.bytes, hex("c0 a8 05 17"));
    c.bssid_idx = 3;
    for (uint8_t i = 0; i < 32; i++) {
        c.pmk[i] = static_cast<uint8_t>(0x9a + 3 * i);
    }
    c.flag = 0x31;
    return c;
}

const std::string SAMPLE_TEXT =
    "Client MAC   : 02:0a:b0:c1:d2:ff (02:0a:b0:c1:d2:ff)\n"
    "Home Bssid   : 0e:1a:2b:3c:4d:5f\n"
    "Assoc Bssid  : 0e:6a:7b:8c:9d:af\n"
    "Home VLAN    : 17\n"
    "Assoc VLAN   : 4094\n"
    "Client IP    : 192.168.5.23\n"
    "Bssid Idx    : 3\n"
    "Flag         : 0x00000031\n"
    "PMK          : 9A 9D A0 A3 A6 A9 AC AF B2 B5 B8 BB BE C1 C4 C7 \n"
    "               CA CD D0 D3 D6 D9 DC DF E2 E5 E8 EB EE F1 F4 F7 \n"
    "               \n";

std::string entry_line(int idx) {
    char line[64];
    snprintf(line, sizeof(line), "Entry %d @ %p\n", idx, static_cast<const void *>(&client_info_tbl[idx]));
    return line;
}

}  // namespace

TEST(client_tbl_print, a_record_is_eleven_lines) { EXPECT_EQ(SAMPLE_TEXT, printed(sample())); }

TEST(client_tbl_print, text_and_address_are_printed_each_for_itself) {
    client_info c = sample();
    set_text(c.cl_mac_str, sizeof(c.cl_mac_str), "another");
    EXPECT_EQ(0U, printed(c).find("Client MAC   : another (02:0a:b0:c1:d2:ff)\n"));
}

TEST(client_tbl_print, an_empty_text_prints_as_nothing) {
    EXPECT_EQ(0U, printed(client_of("02:0a:b0:c1:d2:ff")).find("Client MAC   :  (02:0a:b0:c1:d2:ff)\n"));
}

TEST(client_tbl_print, a_text_without_terminator_is_read_within_its_field) {
    client_info c = sample();
    memset(c.cl_mac_str, 'x', sizeof(c.cl_mac_str));
    EXPECT_EQ(0U, printed(c).find("Client MAC   : xxxxxxxxxxxxxxxxxx (02:0a:b0:c1:d2:ff)\n"));
}

TEST(client_tbl_print, numbers_are_signed_octets_are_not_and_flags_have_eight_digits) {
    client_info c = sample();
    c.home_vlan = -1;
    c.assoc_vlan = INT32_MIN;
    c.bssid_idx = -1;
    set_bytes(c.cl_ip.bytes, hex("ff 00 80 01"));
    c.flag = 0xfedcba98;
    const std::string text = printed(c);
    EXPECT_NE(std::string::npos, text.find("Home VLAN    : -1\nAssoc VLAN   : -2147483648\n"));
    EXPECT_NE(std::string::npos,
              text.find("Client IP    : 255.0.128.1\nBssid Idx    : -1\nFlag         : 0xfedcba98\n"));
}

TEST(client_tbl_print, a_zero_key_is_two_lines_of_sixteen) {
    client_info c = sample();
    memset(c.pmk, 0, sizeof(c.pmk));
    const std::string sixteen = "00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 00 \n";
    EXPECT_NE(std::string::npos,
              printed(c).find("PMK          : " + sixteen + "               " + sixteen + "               \n"));
}

TEST(client_tbl_print, returns_the_length_of_the_last_line) {
    const client_info c = sample();
    // The label, 32 bytes of three characters, twice a newline and 15 blanks, the newline.
    written([&](FILE *f) { EXPECT_EQ(15 + 32 * 3 + 2 * 16 + 1, client_tbl_print(f, &c)); });
}

TEST(client_tbl_print, returns_a_negative_value_when_the_last_line_cannot_be_written) {
    const client_info c = sample();
    FILE *f = fopen("/dev/full", "w");
    ASSERT_NE(nullptr, f);
    setvbuf(f, nullptr, _IONBF, 0);
    EXPECT_LT(client_tbl_print(f, &c), 0);
    fclose(f);
}

SIM_TEST(client_tbl_print, an_empty_table_dumps_as_nothing) {
    EXPECT_EQ("", written(client_tbl_dump));
    sim.expect({trace_enter("client_tbl_dump"), trace_leave("client_tbl_dump")});
}

SIM_TEST(client_tbl_print, a_dump_has_every_client_in_slot_order_and_nothing_else) {
    const client_info first = sample();
    client_info second = sample();
    set_mac(second.cl_mac, "02:00:00:00:00:01");
    have_client(sim, client_of("02:00:00:00:00:02"));
    have_client(sim, second);
    have_client(sim, client_of("02:00:00:00:00:03"));
    have_client(sim, first);
    client_tbl_drv_mac_delete(0);
    client_tbl_drv_mac_delete(2);
    sim.forget();
    std::string second_text = SAMPLE_TEXT;
    second_text.replace(0, second_text.find('\n'), "Client MAC   : 02:00:00:00:00:01 (02:00:00:00:00:01)");
    const std::string all = entry_line(1) + second_text + entry_line(3) + SAMPLE_TEXT;
    EXPECT_EQ(all, written(client_tbl_dump));
    sim.expect({trace_enter("client_tbl_dump"), trace_leave("client_tbl_dump")});
    client_info_tbl[3].entry_flag |= CLIENT_TBL_ENTRY_DELETED;  // as while it is deleted
    EXPECT_EQ(all, written(client_tbl_dump));
    client_info_tbl[3].entry_flag = CLIENT_TBL_ENTRY_USED;
    sim.forget();
}

}  // namespace sim
