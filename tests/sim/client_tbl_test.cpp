#include "client_mgr/tables/client_tbl.h"

#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "arrange.h"
#include "client_mgr/tables/client_tbl_lookup.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "client_tbl_clients.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "tables.h"

namespace sim {
namespace {

// As the program's loader left them.
const int32_t LAST_USED_AT_LOAD = client_tbl_last_used;
const int32_t LAST_DELETED_AT_LOAD = client_tbl_last_deleted;

void fill_links(client_info &c, int32_t value) {
    c.hash_index = static_cast<uint32_t>(value);
    c.hash_next = c.hash_prev = c.next = c.prev = value;
    c.entry_flag = static_cast<uint32_t>(value);
}

std::vector<std::string> console_lines(site &sim) {
    std::vector<std::string> out;
    for (const std::string &line : sim.take_effects()) {
        if (line.rfind("console", 0) == 0) {
            out.push_back(line);
        }
    }
    return out;
}

}  // namespace

// --- hash and text

TEST(client_tbl, hashes_the_six_bytes_as_unsigned_values) {
    const auto bucket = [](const char *mac) { return client_tbl_hash_func(mac_bytes(mac).data()); };
    EXPECT_EQ(0U, bucket("00:00:00:00:00:00"));
    EXPECT_EQ(0U, bucket("ff:ff:ff:ff:ff:ff"));
    // 01 ^ 08 ^ 30 ^ 04 ^ 14 ^ 60 = 49; 73 * 593 = 43289 = 21 * 2048 + 281
    EXPECT_EQ(281U, bucket("01:02:03:04:05:06"));
    // 02 ^ 44 ^ 220 ^ 33 ^ 110 ^ 550 = 615; 1557 * 593 = 923301 = 450 * 2048 + 1701
    EXPECT_EQ(1701U, bucket("02:11:22:33:44:55"));
    // The largest sum: 0f ^ ff0 = fff; 4095 * 593 = 2428335 = 1185 * 2048 + 1455
    EXPECT_EQ(1455U, bucket("0f:00:ff:00:00:00"));
    // 80 ^ 204 ^ 820 ^ 83 ^ 210 ^ 850 = 67; 103 * 593 = 61079 = 29 * 2048 + 1687
    EXPECT_EQ(1687U, bucket("80:81:82:83:84:85"));
    // Each byte alone, with its own shift: 16 * 593 = 9488 = 4 * 2048 + 1296
    EXPECT_EQ(593U, bucket("01:00:00:00:00:00"));
    EXPECT_EQ(4U * 593 % 2048, bucket("00:01:00:00:00:00"));
    EXPECT_EQ(1296U, bucket("00:00:01:00:00:00"));
    EXPECT_EQ(593U, bucket("00:00:00:01:00:00"));
    EXPECT_EQ(4U * 593 % 2048, bucket("00:00:00:00:01:00"));
    EXPECT_EQ(1296U, bucket("00:00:00:00:00:01"));
}

TEST(client_tbl, writes_an_address_as_lower_case_text) {
    char text[20];
    memset(text, 'x', sizeof(text));
    EXPECT_EQ(17, client_tbl_bin_to_str(hex("0a b0 c1 2d 0e ff").data(), text));
    EXPECT_STREQ("0a:b0:c1:2d:0e:ff", text);
    EXPECT_EQ('x', text[18]);
}

// --- initialisation

TEST(client_tbl, the_lists_are_empty_before_the_first_initialisation) {
    EXPECT_EQ(-1, LAST_USED_AT_LOAD);
    EXPECT_EQ(-1, LAST_DELETED_AT_LOAD);
}

SIM_TEST(client_tbl, a_fresh_table_is_one_ascending_free_list) {
    memset(client_info_tbl, 0xa5, sizeof(client_info_tbl));
    memset(client_hash_tbl, 0xa5, sizeof(client_hash_tbl));
    client_tbl_free_index = client_tbl_last_used = client_tbl_last_deleted = 7;
    EXPECT_EQ(0, client_tbl_init());
    sim.expect({trace_enter("client_tbl_init"), trace_leave("client_tbl_init")});
    EXPECT_EQ(0, client_tbl_free_index);
    EXPECT_EQ(-1, client_tbl_last_used);
    EXPECT_EQ(-1, client_tbl_last_deleted);
    for (int32_t i = 0; i < 2048; i++) {
        client_info expected = {};
        expected.bssid_idx = expected.hash_next = expected.hash_prev = expected.prev = -1;
        expected.next = i == 2047 ? -1 : i + 1;
        ASSERT_EQ(0, memcmp(&expected, &client_info_tbl[i], sizeof(expected))) << "slot " << i;
        ASSERT_EQ(-1, client_hash_tbl[i]) << "bucket " << i;
    }
}

SIM_TEST(client_tbl, initialising_again_empties_the_table) {
    add(A);
    add(B);
    client_tbl_init();
    EXPECT_EQ(std::vector<int>{}, used_clients());
    EXPECT_EQ(0, add(B));
    sim.forget();
}

// --- add

SIM_TEST(client_tbl, adds_a_client_to_the_next_free_slot) {
    client_info c = full_record(A);
    fill_links(c, 99);
    EXPECT_EQ(0, client_tbl_mac_add(&c));
    sim.expect({trace_enter("client_tbl_mac_add"), log(4, ">>>>> Adding cl mac:02:11:22:33:44:55"),
                trace_enter("client_tbl_lock_mac_add"), log(4, ">>>>> Adding client:02:11:22:33:44:55"),
                trace_enter("client_tbl_lock_find_client_bin"),
                log(3, ">>> client_tbl_lock_find_client_bin LINE:Client mac:02:11:22:33:44:55"),
                trace_leave("client_tbl_lock_find_client_bin"), trace_enter("client_tbl_lock_hash_tbl_add"),
                log(4, ">>>>> Client idx 0 mac:02:11:22:33:44:55"), log(4, "<<<<< Index 0"),
                trace_leave("client_tbl_lock_hash_tbl_add"), trace_enter("client_tbl_lock_used_list_add"),
                trace_leave("client_tbl_lock_used_list_add"),
                log(3, "<<<<< client_tbl_lock_mac_add: Added client:02:11:22:33:44:55, idx 0"),
                trace_leave("client_tbl_lock_mac_add"), log(4, "Added client mac:02:11:22:33:44:55, cl idx 0"),
                trace_leave("client_tbl_mac_add")});
    EXPECT_EQ(1, add(B));
    sim.expect({client_added(B, 1)});
    EXPECT_EQ(2, add(C));
    sim.expect({client_added(C, 2)});
    EXPECT_EQ((std::vector<int>{2, 1, 0}), used_clients());
}

SIM_TEST(client_tbl, an_added_record_has_the_callers_data_and_the_tables_links) {
    client_info c = full_record(A);
    fill_links(c, 99);
    client_tbl_mac_add(&c);
    client_info expected = full_record(A);
    set_text(expected.cl_mac_str, sizeof(expected.cl_mac_str), A);
    fill_links(expected, -1);
    expected.hash_index = 1701;
    expected.entry_flag = CLIENT_TBL_ENTRY_USED;
    EXPECT_EQ(0, memcmp(&expected, &client_info_tbl[0], sizeof(expected)));
    EXPECT_EQ(0, client_hash_tbl[1701]);
    sim.forget();
}

SIM_TEST(client_tbl, the_last_slot_freed_is_the_first_one_reused) {
    for (unsigned i = 0; i < 5; i++) {
        EXPECT_EQ(static_cast<int32_t>(i), add(mac_number(i)));
    }
    client_tbl_drv_mac_delete(3);
    client_tbl_drv_mac_delete(0);
    EXPECT_EQ(0, add(mac_number(10)));
    EXPECT_EQ(3, add(mac_number(11)));
    EXPECT_EQ(5, add(mac_number(12)));
    EXPECT_EQ((std::vector<int>{5, 3, 0, 4, 2, 1}), used_clients());
    sim.forget();
}

SIM_TEST(client_tbl, adding_keeps_other_bits_of_the_slots_state) {
    client_info_tbl[0].entry_flag = 0x80;
    add(A);
    EXPECT_EQ(0x81U, client_info_tbl[0].entry_flag);
    client_info_tbl[0].entry_flag = CLIENT_TBL_ENTRY_USED;
    sim.forget();
}

SIM_TEST(client_tbl, adding_a_known_client_overwrites_its_data_in_place) {
    add(A);
    add(B);
    const client_info before = client_info_tbl[0];
    sim.forget();
    client_info c = full_record(A);
    fill_links(c, 99);
    EXPECT_EQ(0, client_tbl_mac_add(&c));
    sim.expect({trace_enter("client_tbl_mac_add"), log(4, ">>>>> Adding cl mac:02:11:22:33:44:55"),
                trace_enter("client_tbl_lock_mac_add"), log(4, ">>>>> Adding client:02:11:22:33:44:55"),
                trace_enter("client_tbl_lock_find_client_bin"),
                log(3, ">>> client_tbl_lock_find_client_bin LINE:Client mac:02:11:22:33:44:55"),
                log(3, "<<< client_tbl_lock_find_client_bin LINE: client indx 0"),
                trace_leave("client_tbl_lock_find_client_bin"),
                log(3, "<<<<< client_tbl_lock_mac_add: Overwrite existing client:02:11:22:33:44:55, idx 0"),
                trace_leave("client_tbl_lock_mac_add"), log(4, "Added client mac:02:11:22:33:44:55, cl idx 0"),
                trace_leave("client_tbl_mac_add")});
    client_info expected = full_record(A);
    set_text(expected.cl_mac_str, sizeof(expected.cl_mac_str), A);
    EXPECT_EQ(client_data(expected), client_data(client_info_tbl[0]));
    EXPECT_EQ(before.hash_index, client_info_tbl[0].hash_index);
    EXPECT_EQ((std::vector<int>{1, 0}), used_clients());
}

TEST(client_tbl, the_2049th_client_is_refused_and_all_others_stay) {
    site sim(4);
    for (unsigned i = 0; i < 2048; i++) {
        ASSERT_EQ(static_cast<int32_t>(i), add(mac_number(i)));
    }
    sim.forget();
    const bytes before(reinterpret_cast<uint8_t *>(client_info_tbl),
                       reinterpret_cast<uint8_t *>(client_info_tbl) + sizeof(client_info_tbl));
    EXPECT_EQ(-1, add("06:00:00:00:00:01"));
    sim.expect({trace_enter("client_tbl_mac_add"), log(4, ">>>>> Adding cl mac:06:00:00:00:00:01"),
                trace_enter("client_tbl_lock_mac_add"), log(4, ">>>>> Adding client:06:00:00:00:00:01"),
                client_find("06:00:00:00:00:01", -1), log(3, "<<<<< client_tbl_lock_mac_add No Free entry in list "),
                trace_leave("client_tbl_lock_mac_add"), log(4, "Added client mac:06:00:00:00:00:01, cl idx -1"),
                trace_leave("client_tbl_mac_add")});
    EXPECT_EQ(0, memcmp(before.data(), client_info_tbl, sizeof(client_info_tbl)));
    for (unsigned i = 0; i < 2048; i++) {
        int32_t idx = -1;
        ASSERT_EQ(&client_info_tbl[i], client_tbl_client_get_fast(mac_number(i).data(), &idx));
        ASSERT_EQ(static_cast<int32_t>(i), idx);
    }
    EXPECT_EQ(7, add(mac_number(7))) << "a known client still finds its slot";
    const client_info refused = client_of("06:00:00:00:00:02");
    client_tbl_mac_update(&refused, -1);
    EXPECT_EQ(nullptr, stored_client("06:00:00:00:00:02"));
    sim.forget();
    sim.check_end();
}

// --- chains

SIM_TEST(client_tbl, the_newer_of_two_clients_in_a_bucket_comes_first) {
    add(mac_of_bucket_0(1));
    add(mac_of_bucket_0(2));
    EXPECT_EQ(1, client_hash_tbl[0]);
    EXPECT_EQ(0, client_info_tbl[1].hash_next);
    EXPECT_EQ(-1, client_info_tbl[1].hash_prev);
    EXPECT_EQ(-1, client_info_tbl[0].hash_next);
    EXPECT_EQ(1, client_info_tbl[0].hash_prev);
    EXPECT_EQ(1, client_tbl_drv_mac_delete(1));
    EXPECT_EQ(0, client_hash_tbl[0]);
    EXPECT_EQ(-1, client_info_tbl[0].hash_prev);
    int32_t idx = -1;
    EXPECT_EQ(&client_info_tbl[0], client_tbl_client_get_fast(mac_of_bucket_0(1).data(), &idx));
    EXPECT_EQ(nullptr, client_tbl_client_get_fast(mac_of_bucket_0(2).data(), &idx));
    sim.forget();
}

SIM_TEST(client_tbl, a_client_in_the_middle_of_a_chain_can_leave) {
    for (unsigned i = 0; i < 3; i++) {
        add(mac_of_bucket_0(i));
    }
    client_tbl_drv_mac_delete(1);
    EXPECT_EQ(0, client_info_tbl[2].hash_next);
    EXPECT_EQ(2, client_info_tbl[0].hash_prev);
    sim.forget();
}

TEST(client_tbl, a_chain_of_all_slots_finds_its_last_and_reports_a_stranger) {
    site sim(0);
    for (unsigned i = 0; i < 2048; i++) {
        ASSERT_EQ(static_cast<int32_t>(i), add(mac_of_bucket_0(i)));
    }
    EXPECT_EQ(0, add(mac_of_bucket_0(0))) << "the oldest, in step 2048";
    EXPECT_EQ(std::vector<std::string>{}, console_lines(sim));
    // In bucket 0 like all the others, and not among them: 01 ^ 10 ^ 11 = 0.
    EXPECT_EQ(-1, add(hex("01 00 01 11 00 00")));
    EXPECT_EQ((std::vector<std::string>{
                  "console: ap_mgr_lock_find_client_bin: detected likely loop. hash_index=0, client_hash_tbl[0]=2047",
                  "console: ap_mgr_lock_find_client_bin: client_info_tbl[2047].hash_next=2046"}),
              console_lines(sim));
    sim.check_end();
}

SIM_TEST(client_tbl, lookups_follow_the_chain_in_the_records) {
    for (unsigned i = 0; i < 3; i++) {
        add(mac_of_bucket_0(i));
    }
    find_client(mac_at(mac_of_bucket_0(2).data())).record->hash_next = 0;
    EXPECT_FALSE(find_client(mac_at(mac_of_bucket_0(1).data())));
    EXPECT_EQ(-1, client_tbl_find_client(mac_of_bucket_0(1).data()));
    EXPECT_EQ(0, find_client(mac_at(mac_of_bucket_0(0).data())).slot);
    EXPECT_EQ(0, client_tbl_find_client(mac_of_bucket_0(0).data()));
    client_info_tbl[2].hash_next = 1;
    EXPECT_EQ(1, find_client(mac_at(mac_of_bucket_0(1).data())).slot);
    sim.forget();
}

SIM_TEST(client_tbl, a_record_whose_address_was_changed_in_place_is_found_by_the_new_one) {
    add(mac_of_bucket_0(1));
    find_client(mac_at(mac_of_bucket_0(1).data())).record->cl_mac = mac_at(mac_of_bucket_0(2).data());
    EXPECT_FALSE(find_client(mac_at(mac_of_bucket_0(1).data())));
    EXPECT_EQ(-1, client_tbl_find_client(mac_of_bucket_0(1).data()));
    EXPECT_EQ(0, find_client(mac_at(mac_of_bucket_0(2).data())).slot);
    EXPECT_EQ(0, client_tbl_find_client(mac_of_bucket_0(2).data()));
    sim.forget();
}

SIM_TEST(client_tbl, a_corrupted_chain_cannot_hang_an_add) {
    add(mac_of_bucket_0(1));
    add(mac_of_bucket_0(2));
    client_info_tbl[0].hash_next = 1;
    sim.forget();
    EXPECT_EQ(2, add(mac_of_bucket_0(3)));
    // On standard output, whatever the log level.
    EXPECT_EQ((std::vector<std::string>{
                  "console: ap_mgr_lock_find_client_bin: detected likely loop. hash_index=0, client_hash_tbl[0]=1",
                  "console: ap_mgr_lock_find_client_bin: client_info_tbl[1].hash_next=0"}),
              console_lines(sim));
    client_tbl_init();
    sim.forget();
}

// --- update

SIM_TEST(client_tbl, an_update_without_slot_is_an_add) {
    const client_info c = client_of(A);
    client_tbl_mac_update(&c, -1);
    sim.expect({trace_enter("client_tbl_mac_update"), log(4, ">>>>> Updating client:02:11:22:33:44:55 idx: -1"),
                client_added(A, 0), trace_leave("client_tbl_mac_update")});
    client_tbl_mac_update(&c, -1);
    sim.expect({trace_enter("client_tbl_mac_update"), log(4, ">>>>> Updating client:02:11:22:33:44:55 idx: -1"),
                client_overwritten(A, 0), trace_leave("client_tbl_mac_update")});
    EXPECT_EQ(std::vector<int>{0}, used_clients());
    EXPECT_STREQ(A, client_info_tbl[0].cl_mac_str);
}

SIM_TEST(client_tbl, an_update_in_place_takes_the_data_as_they_stand) {
    add(A);
    add(B);
    const client_info before = client_info_tbl[0];
    sim.forget();
    client_info c = full_record(A);
    fill_links(c, 99);
    client_tbl_mac_update(&c, 0);
    sim.expect({trace_enter("client_tbl_mac_update"), log(4, ">>>>> Updating client:02:11:22:33:44:55 idx: 0"),
                log(3, "<<<<< client_tbl_mac_update: Overwrite existing client:02:11:22:33:44:55, idx 0"),
                trace_leave("client_tbl_mac_update")});
    EXPECT_EQ(client_data(full_record(A)), client_data(client_info_tbl[0]));
    EXPECT_STREQ("the caller's text", client_info_tbl[0].cl_mac_str);
    EXPECT_EQ(0, memcmp(&before.hash_index, &client_info_tbl[0].hash_index, 24)) << "the links";
}

SIM_TEST(client_tbl, a_client_updated_to_another_address_is_found_by_that_one) {
    add(mac_of_bucket_0(1));
    const client_info other = with_mac(mac_of_bucket_0(2));
    client_tbl_mac_update(&other, 0);
    int32_t idx = -1;
    EXPECT_EQ(nullptr, client_tbl_client_get_fast(mac_of_bucket_0(1).data(), &idx));
    EXPECT_EQ(-1, client_tbl_find_client(mac_of_bucket_0(1).data()));
    EXPECT_EQ(&client_info_tbl[0], client_tbl_client_get_fast(mac_of_bucket_0(2).data(), &idx));
    EXPECT_EQ(0, client_tbl_find_client(mac_of_bucket_0(2).data()));
    sim.forget();
}

SIM_TEST(client_tbl, a_record_can_be_updated_from_itself) {
    const client_info c = full_record(A);
    client_tbl_mac_add(&c);
    const client_info before = client_info_tbl[0];
    sim.forget();
    client_tbl_mac_update(&client_info_tbl[0], 0);
    sim.expect({client_update_at(A, 0)});
    EXPECT_EQ(0, memcmp(&before, &client_info_tbl[0], sizeof(before)));
    client_tbl_mac_update(&client_info_tbl[0], -1);
    sim.expect({client_update(A, client_overwritten(A, 0))});
    EXPECT_EQ(0, memcmp(&before, &client_info_tbl[0], sizeof(before)));
}

// --- lookup

SIM_TEST(client_tbl, a_lookup_gives_the_tables_own_record_and_its_slot) {
    add(A);
    add(B);
    sim.forget();
    int32_t idx = -1;
    EXPECT_EQ(&client_info_tbl[1], client_tbl_client_get_fast(mac_bytes(B).data(), &idx));
    EXPECT_EQ(1, idx);
    sim.expect({trace_enter("client_tbl_client_get_fast"), log(4, ">>>>> Client MAC:02:a1:a2:a3:a4:a5 idx: -1"),
                trace_leave("client_tbl_client_get_fast")});
}

SIM_TEST(client_tbl, a_lookup_of_an_unknown_client_leaves_the_slot_alone) {
    add(A);
    sim.forget();
    int32_t idx = 4711;
    EXPECT_EQ(nullptr, client_tbl_client_get_fast(mac_bytes(B).data(), &idx));
    EXPECT_EQ(4711, idx);
    sim.expect({trace_enter("client_tbl_client_get_fast"), log(4, ">>>>> Client MAC:02:a1:a2:a3:a4:a5 idx: 4711"),
                log(4, "<<<<< Invalid client MAC, returning NULL"), trace_leave("client_tbl_client_get_fast")});
}

SIM_TEST(client_tbl, addresses_are_compared_over_all_six_bytes) {
    add("02:11:22:33:44:55");
    for (size_t i = 0; i < 6; i++) {
        bytes other = mac_bytes("02:11:22:33:44:55");
        other[i] ^= 0x80;
        int32_t idx = -1;
        EXPECT_EQ(nullptr, client_tbl_client_get_fast(other.data(), &idx)) << "byte " << i;
        // Also when both are in one chain.
        EXPECT_NE(0, add(other));
        client_tbl_drv_mac_delete(1);
    }
    sim.forget();
}

SIM_TEST(client_tbl, neither_lookup_nor_find_looks_at_the_slots_state) {
    add(A);
    client_info_tbl[0].entry_flag = 0;
    int32_t idx = -1;
    EXPECT_EQ(&client_info_tbl[0], client_tbl_client_get_fast(mac_bytes(A).data(), &idx));
    EXPECT_EQ(0, client_tbl_find_client(mac_bytes(A).data()));
    client_info_tbl[0].entry_flag = CLIENT_TBL_ENTRY_USED;
    sim.forget();
}

}  // namespace sim
