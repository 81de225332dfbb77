#include "client_mgr/tables/client_tbl_lookup.h"

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "arrange.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "tables.h"
#include "wire/mac_address.h"

namespace sim {
namespace {

constexpr uint32_t RECORD = 88;

int32_t add(const bytes &mac) {
    client_info c = {};
    set_bytes(c.cl_mac, mac);
    return client_tbl_mac_add(&c);
}

std::string mac_string(const client_info *c) { return c == nullptr ? "none" : mac_text(c->cl_mac.bytes); }

steps find_by_text(std::string_view mac, int idx) {
    return trace_enter("client_tbl_find_client_str") + trace_enter("client_tbl_lock_find_client_str") +
           client_find(mac, idx) + trace_leave("client_tbl_lock_find_client_str") +
           trace_leave("client_tbl_find_client_str");
}

steps got(int idx, std::string_view mac) {
    return log(4, ">>>>> Client index " + std::to_string(idx)) + log(4, "<<<<< cl mac:" + std::string(mac));
}

steps copied() { return trace_enter("client_tbl_get_all") + trace_leave("client_tbl_get_all"); }

steps no_space() {
    return trace_enter("client_tbl_get_all") + log(3, "<<<<< No space left in the buffer") +
           trace_leave("client_tbl_get_all");
}

// Fills every slot; the client of slot i has mac_number(i).
void fill_table(site &sim) {
    for (unsigned i = 0; i < 2048; i++) {
        add(mac_number(i));
    }
    sim.forget();
}

}  // namespace

TEST(client_tbl_lookup, a_digit_has_its_value_and_anything_else_is_0) {
    const std::string digits = "0123456789abcdefABCDEF";
    for (int c = -128; c < 128; c++) {
        const size_t at = c == 0 ? std::string::npos : digits.find(static_cast<char>(c));
        const int value = at == std::string::npos ? 0 : static_cast<int>(at < 16 ? at : at - 6);
        EXPECT_EQ(value, client_tbl_char_to_ascii(static_cast<char>(c))) << "character " << c;
    }
}

// --- by text

SIM_TEST(client_tbl_lookup, finds_a_client_by_text_with_and_without_separators) {
    add(hex("00 01 02 03 04 05"));
    add(hex("aa bb cc dd ee ff"));
    sim.forget();
    for (const char *text : {"AA:BB:CC:DD:EE:FF", "aabbccddeeff", "aa:bbCC:ddee:FF", "aabbccddeeff:00"}) {
        EXPECT_EQ(1, client_tbl_find_client_str(text)) << text;
        sim.expect({find_by_text("aa:bb:cc:dd:ee:ff", 1)});
    }
}

SIM_TEST(client_tbl_lookup, a_character_that_is_no_digit_counts_as_0) {
    add(hex("00 bb c0 0d ee ff"));
    sim.forget();
    EXPECT_EQ(0, client_tbl_find_client_str("zz:bb:cx:xd:ee:ff"));
    sim.expect({find_by_text("00:bb:c0:0d:ee:ff", 0)});
    EXPECT_EQ(-1, client_tbl_find_client_str("zz:bb:cc:dd:ee:ff"));
    sim.expect({find_by_text("00:bb:cc:dd:ee:ff", -1)});
}

SIM_TEST(client_tbl_lookup, a_short_text_ends_at_its_terminator) {
    add(hex("aa b0 00 00 00 00"));
    sim.forget();
    EXPECT_EQ(0, client_tbl_find_client_str("aa:b\0:cc:dd:ee:ff"));
    sim.expect({find_by_text("aa:b0:00:00:00:00", 0)});
    EXPECT_EQ(-1, client_tbl_find_client_str(""));
    sim.expect({find_by_text("00:00:00:00:00:00", -1)});
}

SIM_TEST(client_tbl_lookup, a_corrupted_chain_cannot_hang_a_lookup_by_text) {
    add(mac_of_bucket_0(1));
    client_info_tbl[0].hash_next = 0;
    EXPECT_EQ(-1, client_tbl_find_client_str("00:00:00:00:00:00"));
    client_tbl_init();
    const std::vector<std::string> effects = sim.take_effects();
    EXPECT_EQ(2, std::count_if(effects.begin(), effects.end(), [](const std::string &line) {
                  return line.rfind("console: ap_mgr_lock_find_client_bin: ", 0) == 0;
              }));
}

// --- by address

SIM_TEST(client_tbl_lookup, finds_the_slot_of_an_address) {
    add(hex("02 11 22 33 44 55"));
    add(hex("02 a1 a2 a3 a4 a5"));
    sim.forget();
    EXPECT_EQ(1, client_tbl_find_client(hex("02 a1 a2 a3 a4 a5").data()));
    sim.expect({log(3, ">>>>> cl_mac:02:a1:a2:a3:a4:a5"), client_find("02:a1:a2:a3:a4:a5", 1),
                log(3, "<<<<< Client Index 1")});
    EXPECT_EQ(-1, client_tbl_find_client(hex("02 a1 a2 a3 a4 a6").data()));
    sim.expect({log(3, ">>>>> cl_mac:02:a1:a2:a3:a4:a6"), client_find("02:a1:a2:a3:a4:a6", -1),
                log(3, "<<<<< Client Index -1")});
}

// --- by slot

SIM_TEST(client_tbl_lookup, gives_a_slot_and_its_older_neighbour) {
    add(hex("02 11 22 33 44 55"));
    add(hex("02 a1 a2 a3 a4 a5"));
    sim.forget();
    int32_t prev = 99;
    EXPECT_EQ(&client_info_tbl[1], client_tbl_client_get(1, &prev));
    EXPECT_EQ(0, prev);
    EXPECT_EQ(&client_info_tbl[0], client_tbl_client_get(0, &prev));
    EXPECT_EQ(-1, prev);
    EXPECT_EQ(&client_info_tbl[0], client_tbl_client_get(0, nullptr));
    sim.expect({got(1, "02:a1:a2:a3:a4:a5"), got(0, "02:11:22:33:44:55"), got(0, "02:11:22:33:44:55")});
}

SIM_TEST(client_tbl_lookup, gives_a_free_slot_as_well) {
    int32_t prev = 99;
    EXPECT_EQ(&client_info_tbl[2047], client_tbl_client_get(2047, &prev));
    EXPECT_EQ(-1, prev);
    sim.expect({got(2047, "00:00:00:00:00:00")});
}

SIM_TEST(client_tbl_lookup, gives_nothing_out_of_range) {
    for (int32_t idx : {-1, 2048, INT_MIN, INT_MAX}) {
        int32_t prev = 99;
        EXPECT_EQ(nullptr, client_tbl_client_get(idx, &prev));
        EXPECT_EQ(99, prev);
        EXPECT_EQ(nullptr, client_tbl_client_get(idx, nullptr));
        const std::string line = ">>>>> Client index " + std::to_string(idx);
        sim.expect({log(4, line), log(4, line)});
    }
}

SIM_TEST(client_tbl_lookup, walks_from_the_newest_client_to_the_oldest) {
    add(hex("0a 00 00 00 00 00"));
    add(hex("0b 00 00 00 00 00"));
    add(hex("0c 00 00 00 00 00"));
    sim.forget();
    std::vector<std::string> seen;
    int32_t i = 99;
    for (const client_info *p = client_tbl_get_first(&i); p != nullptr; p = client_tbl_client_get(i, &i)) {
        seen.push_back(mac_string(p));
    }
    EXPECT_EQ((std::vector<std::string>{"0c:00:00:00:00:00", "0b:00:00:00:00:00", "0a:00:00:00:00:00"}), seen);
    sim.expect({got(2, "0c:00:00:00:00:00"), got(1, "0b:00:00:00:00:00"), got(0, "0a:00:00:00:00:00"),
                log(4, ">>>>> Client index -1")});
}

SIM_TEST(client_tbl_lookup, an_empty_table_has_no_first_client) {
    int32_t prev = 99;
    EXPECT_EQ(nullptr, client_tbl_get_first(&prev));
    EXPECT_EQ(99, prev);
    sim.expect({log(4, ">>>>> Client index -1")});
}

// --- counting

SIM_TEST(client_tbl_lookup, counts_the_clients) {
    const steps traces =
        trace_enter("client_tbl_lock_client_get_num_entries") + trace_leave("client_tbl_lock_client_get_num_entries");
    EXPECT_EQ(0, client_tbl_lock_client_get_num_entries());
    sim.expect({traces});
    for (unsigned i = 0; i < 5; i++) {
        add(mac_number(i));
    }
    client_tbl_drv_mac_delete(2);
    sim.forget();
    EXPECT_EQ(4, client_tbl_lock_client_get_num_entries());
    sim.expect({traces});
}

TEST(client_tbl_lookup, counts_a_full_table) {
    site sim(0);
    fill_table(sim);
    EXPECT_EQ(2048, client_tbl_lock_client_get_num_entries());
    sim.check_end();
}

// --- copying all

SIM_TEST(client_tbl_lookup, copies_every_clients_data_in_slot_order) {
    client_info c = client_of("02:11:22:33:44:55");
    set_bytes(c.home_bssid, hex("31 32 33 34 35 36"));
    c.home_vlan = 0x51525354;
    c.flag = 0xf1f2f3f4;
    have_client(sim, client_of("06:00:00:00:00:01"));
    have_client(sim, c);
    have_client(sim, client_of("06:00:00:00:00:02"));
    client_tbl_drv_mac_delete(0);
    sim.forget();
    bytes buffer(2048 * RECORD + 1, 0xee);
    uint32_t len = 2048 * RECORD;
    client_tbl_get_all(buffer.data() + 1, &len);  // at an odd address
    sim.expect({copied()});
    EXPECT_EQ(2 * RECORD, len);
    EXPECT_EQ(bytes{0xee} + client_data(client_info_tbl[1]) + client_data(client_info_tbl[2]),
              first(buffer, 1 + 2 * RECORD));
    EXPECT_EQ(bytes(2046 * RECORD, 0xee), bytes(buffer.begin() + 1 + 2 * RECORD, buffer.end()));
    EXPECT_EQ(hex("02 11 22 33 44 55") + padded("02:11:22:33:44:55", 18) + hex("31 32 33 34 35 36"),
              bytes(buffer.begin() + 1, buffer.begin() + 31));
}

SIM_TEST(client_tbl_lookup, an_empty_table_copies_nothing) {
    uint8_t untouched[RECORD];
    memset(untouched, 0xee, sizeof(untouched));
    uint32_t len = RECORD;
    client_tbl_get_all(untouched, &len);
    sim.expect({copied()});
    EXPECT_EQ(0U, len);
    EXPECT_EQ(bytes(RECORD, 0xee), bytes(untouched, untouched + RECORD));
}

SIM_TEST(client_tbl_lookup, a_buffer_without_room_for_one_record_stays_as_it_is) {
    add(mac_number(1));
    sim.forget();
    for (uint32_t size : {0U, 1U, 87U}) {
        bytes buffer(size, 0xee);
        uint32_t len = size;
        client_tbl_get_all(buffer.data(), &len);
        sim.expect({no_space()});
        EXPECT_EQ(size, len);
        EXPECT_EQ(bytes(size, 0xee), buffer);
    }
}

SIM_TEST(client_tbl_lookup, a_buffer_that_the_records_fill_gets_no_count) {
    add(mac_number(0));
    add(mac_number(1));
    sim.forget();
    bytes buffer(2 * RECORD);
    uint32_t len = 2 * RECORD;
    client_tbl_get_all(buffer.data(), &len);
    // All is copied, and there is no room for a third, used or not.
    sim.expect({no_space()});
    EXPECT_EQ(2 * RECORD, len);
    EXPECT_EQ(client_data(client_info_tbl[0]) + client_data(client_info_tbl[1]), buffer);
    buffer.resize(3 * RECORD);
    len = 3 * RECORD;
    client_tbl_get_all(buffer.data(), &len);
    sim.expect({copied()});
    EXPECT_EQ(2 * RECORD, len);
}

TEST(client_tbl_lookup, a_record_in_the_last_slot_may_fill_the_buffer) {
    site sim(4);
    fill_table(sim);
    bytes buffer(2048 * RECORD);
    auto len = static_cast<uint32_t>(buffer.size());
    client_tbl_get_all(buffer.data(), &len);
    sim.expect({copied()});
    EXPECT_EQ(2048 * RECORD, len);
    EXPECT_EQ(client_data(client_info_tbl[2047]), bytes(buffer.end() - RECORD, buffer.end()));

    for (int32_t i = 0; i < 2047; i++) {
        client_tbl_drv_mac_delete(i);
    }
    sim.forget();
    len = RECORD;
    client_tbl_get_all(buffer.data(), &len);
    sim.expect({copied()});
    EXPECT_EQ(RECORD, len);
    sim.check_end();
}

TEST(client_tbl_lookup, stops_where_the_next_record_does_not_fit) {
    site sim(4);
    fill_table(sim);
    bytes buffer(2048 * RECORD, 0xee);
    uint32_t len = 3 * RECORD - 1;
    client_tbl_get_all(buffer.data(), &len);
    sim.expect({no_space()});
    EXPECT_EQ(3 * RECORD - 1, len);
    EXPECT_EQ(client_data(client_info_tbl[0]) + client_data(client_info_tbl[1]) + bytes(2046 * RECORD, 0xee), buffer);
    sim.check_end();
}

}  // namespace sim
