#include <climits>
#include <cstring>
#include <string>
#include <vector>

#include "arrange.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "tables.h"

namespace sim {
namespace {

// As the program's loader left them.
const int32_t LAST_USED_AT_LOAD = client_mgr_acl_last_used;
const int32_t LAST_DELETED_AT_LOAD = client_mgr_acl_last_deleted;

constexpr const char *A = "02:11:22:33:44:55";
constexpr const char *B = "02:a1:a2:a3:a4:a5";
constexpr int32_t NOW = 1700000000;  // where the simulated clock starts

const steps REARMED = did("kx_eloop_register_timeout(60, 0, client_mgr_acl_cache_expire, null, null)");

acl_cache_entry verdict(const bytes &mac, int32_t timestamp = NOW, int32_t state = ACL_STATE_PENDING) {
    acl_cache_entry e = {};
    set_bytes(e.acl_mac, mac);
    e.timestamp = timestamp;
    e.state = state;
    return e;
}

acl_cache_entry verdict(const char *mac, int32_t timestamp = NOW, int32_t state = ACL_STATE_PENDING) {
    return verdict(mac_bytes(mac), timestamp, state);
}

int32_t add(const acl_cache_entry &e) { return client_mgr_acl_mac_add(&e); }

bytes entry_data(const acl_cache_entry &e) {
    const auto *start = reinterpret_cast<const uint8_t *>(&e);
    return {start, start + offsetof(acl_cache_entry, hash_index)};
}

// The slot that a lookup finds, -1 when it finds nothing.
int32_t looked_up(const bytes &mac) {
    int32_t idx = -1;
    const acl_cache_entry *found = client_mgr_acl_get_fast(mac.data(), &idx);
    EXPECT_EQ(found, idx == -1 ? nullptr : &client_acl_cache[idx]);
    return idx;
}

int32_t looked_up(const char *mac) { return looked_up(mac_bytes(mac)); }

steps expired(int32_t idx) { return log(4, "Entry expired " + std::to_string(idx) + " "); }

steps sweep(const steps &removals) {
    return trace_enter("client_mgr_acl_cache_expire") + removals + REARMED + trace_leave("client_mgr_acl_cache_expire");
}

void run_sweep() { client_mgr_acl_cache_expire(nullptr, nullptr); }

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

TEST(acl_cache, hashes_and_prints_addresses_as_the_client_table_does) {
    for (const char *mac : {"00:00:00:00:00:00", "01:02:03:04:05:06", "80:81:82:83:84:85", "0f:00:ff:00:00:00"}) {
        EXPECT_EQ(static_cast<uint32_t>(bucket_of(mac_bytes(mac).data())),
                  client_mgr_acl_hash_func(mac_bytes(mac).data()));
        char text[18];
        EXPECT_EQ(17, client_mgr_acl_bin_to_str(mac_bytes(mac).data(), text));
        EXPECT_STREQ(mac, text);
    }
    EXPECT_EQ(281U, client_mgr_acl_hash_func(hex("01 02 03 04 05 06").data()));
}

TEST(acl_cache, the_lists_are_empty_before_the_first_initialisation) {
    EXPECT_EQ(-1, LAST_USED_AT_LOAD);
    EXPECT_EQ(-1, LAST_DELETED_AT_LOAD);
}

SIM_TEST(acl_cache, a_fresh_cache_is_one_ascending_free_list) {
    memset(client_acl_cache, 0xa5, sizeof(client_acl_cache));
    memset(client_acl_hash, 0xa5, sizeof(client_acl_hash));
    client_mgr_acl_free_index = client_mgr_acl_last_used = client_mgr_acl_last_deleted = 7;
    client_mgr_acl_cache_init();
    sim.expect({trace_enter("client_mgr_acl_cache_init"), trace_leave("client_mgr_acl_cache_init")});
    EXPECT_EQ(0, client_mgr_acl_free_index);
    EXPECT_EQ(-1, client_mgr_acl_last_used);
    EXPECT_EQ(-1, client_mgr_acl_last_deleted);
    for (int32_t i = 0; i < 2048; i++) {
        acl_cache_entry expected = {};
        expected.hash_next = expected.hash_prev = expected.prev = -1;
        expected.next = i == 2047 ? -1 : i + 1;
        ASSERT_EQ(0, memcmp(&expected, &client_acl_cache[i], sizeof(expected))) << "slot " << i;
        ASSERT_EQ(-1, client_acl_hash[i]) << "bucket " << i;
    }
}

// --- add and update

SIM_TEST(acl_cache, adds_an_entry_to_the_next_free_slot) {
    acl_cache_entry e = verdict(A, 0x11121314, 0x21222324);
    set_text(e.acl_mac_str, sizeof(e.acl_mac_str), "the caller's text");
    e.hash_index = 9;
    e.hash_next = e.hash_prev = e.next = e.prev = 9;
    e.entry_flag = 9;
    EXPECT_EQ(0, client_mgr_acl_mac_add(&e));
    sim.expect({trace_enter("client_mgr_acl_mac_add"), log(4, ">>>>> Adding cl mac:02:11:22:33:44:55"),
                trace_enter("client_mgr_acl_lock_mac_add"), log(4, ">>>>> Adding client:02:11:22:33:44:55"),
                trace_enter("client_mgr_acl_lock_find_client_bin"),
                log(3, ">>> client_mgr_acl_lock_find_client_bin LINE:Client mac:02:11:22:33:44:55"),
                trace_leave("client_mgr_acl_lock_find_client_bin"), trace_enter("client_mgr_acl_lock_hash_tbl_add"),
                log(4, ">>>>> Client idx 0 mac:02:11:22:33:44:55"), log(4, "<<<<< Index 0"),
                trace_leave("client_mgr_acl_lock_hash_tbl_add"),
                log(3, "<<<<< client_mgr_acl_lock_mac_add: Added client:02:11:22:33:44:55, idx 0"),
                trace_leave("client_mgr_acl_lock_mac_add"), log(4, "Added client mac:02:11:22:33:44:55, cl idx 0"),
                trace_leave("client_mgr_acl_mac_add")});
    acl_cache_entry expected = verdict(A, 0x11121314, 0x21222324);
    set_text(expected.acl_mac_str, sizeof(expected.acl_mac_str), A);
    expected.hash_index = 1701;
    expected.hash_next = expected.hash_prev = expected.next = expected.prev = -1;
    expected.entry_flag = ACL_CACHE_ENTRY_USED;
    EXPECT_EQ(0, memcmp(&expected, &client_acl_cache[0], sizeof(expected)));
    EXPECT_EQ(0, client_acl_hash[1701]);
}

SIM_TEST(acl_cache, adding_a_known_address_overwrites_its_entry_in_place) {
    add(verdict(A));
    add(verdict(B));
    sim.forget();
    EXPECT_EQ(0, add(verdict(A, NOW + 1, ACL_STATE_ALLOWED)));
    sim.expect({trace_enter("client_mgr_acl_mac_add"), log(4, ">>>>> Adding cl mac:02:11:22:33:44:55"),
                trace_enter("client_mgr_acl_lock_mac_add"), log(4, ">>>>> Adding client:02:11:22:33:44:55"),
                trace_enter("client_mgr_acl_lock_find_client_bin"),
                log(3, ">>> client_mgr_acl_lock_find_client_bin LINE:Client mac:02:11:22:33:44:55"),
                log(3, "<<< client_mgr_acl_lock_find_client_bin LINE: client indx 0"),
                trace_leave("client_mgr_acl_lock_find_client_bin"),
                log(3, "<<<<< client_mgr_acl_lock_mac_add: Overwrite existing client:02:11:22:33:44:55, idx 0"),
                trace_leave("client_mgr_acl_lock_mac_add"), log(4, "Added client mac:02:11:22:33:44:55, cl idx 0"),
                trace_leave("client_mgr_acl_mac_add")});
    EXPECT_STREQ(A, client_acl_cache[0].acl_mac_str);
    EXPECT_EQ(NOW + 1, client_acl_cache[0].timestamp);
    EXPECT_EQ(ACL_STATE_ALLOWED, client_acl_cache[0].state);
    EXPECT_EQ((std::vector<int>{1, 0}), used_acl_entries());
}

SIM_TEST(acl_cache, adding_an_expired_address_reuses_its_slot) {
    add(verdict(A, NOW - 1000));
    add(verdict(B));
    EXPECT_EQ(-1, looked_up(A));
    EXPECT_EQ(0, add(verdict(A, NOW)));
    EXPECT_EQ(0, looked_up(A));
    EXPECT_EQ((std::vector<int>{1, 0}), used_acl_entries());
    sim.forget();
}

SIM_TEST(acl_cache, an_overwritten_entry_stays_deleted_if_it_was) {
    // Nothing takes an entry back from the deleted list here.
    add(verdict(A));
    client_acl_cache[0].entry_flag = ACL_CACHE_ENTRY_USED | ACL_CACHE_ENTRY_DELETED;
    sim.forget();
    EXPECT_EQ(0, add(verdict(A)));
    sim.expect({acl_overwritten(A, 0)});
    const acl_cache_entry e = verdict(A);
    client_mgr_acl_mac_update(&e, 0);
    sim.expect({acl_update_at(A, 0)});
    EXPECT_EQ(ACL_CACHE_ENTRY_USED | ACL_CACHE_ENTRY_DELETED, client_acl_cache[0].entry_flag);
    client_acl_cache[0].entry_flag = ACL_CACHE_ENTRY_USED;
}

SIM_TEST(acl_cache, adding_keeps_other_bits_of_the_slots_state) {
    client_acl_cache[0].entry_flag = 0x80;
    add(verdict(A));
    EXPECT_EQ(0x81U, client_acl_cache[0].entry_flag);
    client_acl_cache[0].entry_flag = ACL_CACHE_ENTRY_USED;
    sim.forget();
}

TEST(acl_cache, the_2049th_entry_is_refused_and_all_others_stay) {
    site sim(4);
    for (unsigned i = 0; i < 2048; i++) {
        ASSERT_EQ(static_cast<int32_t>(i), add(verdict(mac_number(i))));
    }
    sim.forget();
    EXPECT_EQ(-1, add(verdict("06:00:00:00:00:01")));
    sim.expect({acl_refused("06:00:00:00:00:01")});
    const acl_cache_entry refused = verdict("06:00:00:00:00:01");
    client_mgr_acl_mac_update(&refused, -1);
    sim.expect({acl_update("06:00:00:00:00:01", acl_refused("06:00:00:00:00:01"))});
    for (unsigned i = 0; i < 2048; i++) {
        ASSERT_EQ(static_cast<int32_t>(i), looked_up(mac_number(i)));
    }
    sim.forget();
    sim.check_end();
}

SIM_TEST(acl_cache, an_update_without_slot_is_an_add) {
    const acl_cache_entry e = verdict(A);
    client_mgr_acl_mac_update(&e, -1);
    sim.expect({trace_enter("client_mgr_acl_mac_update"), log(4, ">>>>> Updating client:02:11:22:33:44:55 idx: -1"),
                acl_added(A, 0), trace_leave("client_mgr_acl_mac_update")});
    client_mgr_acl_mac_update(&e, -1);
    sim.expect({acl_update(A, acl_overwritten(A, 0))});
    EXPECT_STREQ(A, client_acl_cache[0].acl_mac_str);
}

SIM_TEST(acl_cache, an_update_in_place_takes_the_data_as_they_stand) {
    add(verdict(A));
    add(verdict(B));
    const acl_cache_entry before = client_acl_cache[0];
    sim.forget();
    acl_cache_entry e = verdict(A, 0x11121314, 0x21222324);
    set_text(e.acl_mac_str, sizeof(e.acl_mac_str), "the caller's text");
    e.hash_next = e.prev = 9;
    client_mgr_acl_mac_update(&e, 0);
    sim.expect({trace_enter("client_mgr_acl_mac_update"), log(4, ">>>>> Updating client:02:11:22:33:44:55 idx: 0"),
                log(3, "<<<<< client_mgr_acl_mac_update: Overwrite existing client:02:11:22:33:44:55, idx 0"),
                trace_leave("client_mgr_acl_mac_update")});
    EXPECT_EQ(entry_data(e), entry_data(client_acl_cache[0]));
    EXPECT_EQ(0, memcmp(&before.hash_index, &client_acl_cache[0].hash_index, 24)) << "the links";
}

// --- lookup and validity

SIM_TEST(acl_cache, a_lookup_gives_the_caches_own_entry_and_its_slot) {
    add(verdict(A));
    add(verdict(B));
    sim.forget();
    EXPECT_EQ(1, looked_up(B));
    sim.expect({trace_enter("client_mgr_acl_get_fast"), log(4, ">>>>> Client MAC:02:a1:a2:a3:a4:a5 idx: -1"),
                trace_leave("client_mgr_acl_get_fast")});
}

SIM_TEST(acl_cache, a_lookup_of_an_unknown_address_leaves_the_slot_alone) {
    int32_t idx = 4711;
    EXPECT_EQ(nullptr, client_mgr_acl_get_fast(mac_bytes(A).data(), &idx));
    EXPECT_EQ(4711, idx);
    sim.expect({trace_enter("client_mgr_acl_get_fast"), log(4, ">>>>> Client MAC:02:11:22:33:44:55 idx: 4711"),
                log(4, "<<<<< Invalid client MAC, returning NULL"), trace_leave("client_mgr_acl_get_fast")});
}

SIM_TEST(acl_cache, an_entry_is_found_for_30_seconds) {
    add(verdict(A, NOW));
    sim.advance(29);
    EXPECT_EQ(0, looked_up(A));
    sim.advance(1);
    sim.forget();
    EXPECT_EQ(-1, looked_up(A));
    sim.expect({acl_lookup(A, false)});
    EXPECT_EQ(std::vector<int>{0}, used_acl_entries()) << "stored until the next sweep";
}

SIM_TEST(acl_cache, a_clock_set_back_keeps_an_entry_valid) {
    add(verdict(A, NOW));
    sim.set_clock(NOW - 100000);
    EXPECT_EQ(0, looked_up(A));
    run_sweep();
    EXPECT_EQ(0, looked_up(A));
    sim.set_clock(NOW + 29);
    EXPECT_EQ(0, looked_up(A));
    sim.set_clock(NOW + 30);
    EXPECT_EQ(-1, looked_up(A));
    sim.forget();
}

// In the year 2038: the age is a signed difference of 32 bits. A time_t of 32 bits wraps itself.
TEST(acl_cache, an_age_across_the_wrap_of_32_bits_is_right) {
    site sim(0);
    add(verdict(A, INT32_MAX - 9));
    sim.set_clock(int64_t{INT32_MAX} + 20);
    EXPECT_EQ(0, looked_up(A)) << "29 seconds old";
    run_sweep();
    EXPECT_EQ(0, looked_up(A));
    sim.set_clock(int64_t{INT32_MAX} + 21);
    EXPECT_EQ(-1, looked_up(A)) << "30 seconds old";
    run_sweep();
    EXPECT_EQ(std::vector<int>{}, used_acl_entries());
    sim.forget();
    sim.check_end();
}

SIM_TEST(acl_cache, a_lookup_passes_over_an_old_entry_of_the_same_address) {
    // Two entries of one address, which only a caller that updates by index can make: the walk goes on to the second.
    add(verdict(mac_of_bucket_0(1)));
    add(verdict(mac_of_bucket_0(2), NOW - 30));
    const acl_cache_entry twin = verdict(mac_of_bucket_0(1), NOW - 30);
    client_mgr_acl_mac_update(&twin, 1);
    EXPECT_EQ(0, looked_up(mac_of_bucket_0(1)));
    client_mgr_acl_drv_mac_delete(1);
    sim.forget();
}

SIM_TEST(acl_cache, a_lookup_looks_neither_at_the_verdict_nor_at_the_slots_state) {
    for (int32_t state : {0, 1, 2, 3, -1}) {
        add(verdict(A, NOW, state));
        EXPECT_EQ(0, looked_up(A)) << "state " << state;
    }
    client_acl_cache[0].entry_flag = 0;
    EXPECT_EQ(0, looked_up(A));
    client_acl_cache[0].entry_flag = ACL_CACHE_ENTRY_USED;
    sim.forget();
}

// --- chains

SIM_TEST(acl_cache, the_newer_of_two_entries_in_a_bucket_comes_first) {
    add(verdict(mac_of_bucket_0(1)));
    add(verdict(mac_of_bucket_0(2)));
    EXPECT_EQ(1, client_acl_hash[0]);
    client_mgr_acl_drv_mac_delete(1);
    EXPECT_EQ(0, client_acl_hash[0]);
    EXPECT_EQ(0, looked_up(mac_of_bucket_0(1)));
    EXPECT_EQ(-1, looked_up(mac_of_bucket_0(2)));
    sim.forget();
}

SIM_TEST(acl_cache, lookups_follow_the_chain_in_the_entries) {
    for (unsigned i = 0; i < 3; i++) {
        add(verdict(mac_of_bucket_0(i)));
    }
    find_acl_entry(mac_at(mac_of_bucket_0(2).data())).record->hash_next = 0;
    EXPECT_EQ(-1, looked_up(mac_of_bucket_0(1)));
    EXPECT_EQ(0, looked_up(mac_of_bucket_0(0)));
    client_acl_cache[2].hash_next = 1;
    EXPECT_EQ(1, looked_up(mac_of_bucket_0(1)));
    find_acl_entry(mac_at(mac_of_bucket_0(1).data())).record->acl_mac = mac_at(mac_of_bucket_0(3).data());
    EXPECT_EQ(-1, looked_up(mac_of_bucket_0(1)));
    EXPECT_EQ(1, looked_up(mac_of_bucket_0(3)));
    sim.forget();
}

SIM_TEST(acl_cache, a_corrupted_chain_cannot_hang_an_add) {
    add(verdict(mac_of_bucket_0(1)));
    add(verdict(mac_of_bucket_0(2)));
    client_acl_cache[0].hash_next = 1;
    sim.forget();
    EXPECT_EQ(2, add(verdict(mac_of_bucket_0(3))));
    // A blank in front and no name, on standard output whatever the log level.
    EXPECT_EQ((std::vector<std::string>{"console:  detected likely loop. hash_index=0, client_acl_hash[0]=1",
                                        "console:  client_acl_cache[1].hash_next=0"}),
              console_lines(sim));
    client_mgr_acl_cache_init();
    sim.forget();
}

TEST(acl_cache, a_chain_of_all_slots_reports_a_stranger) {
    site sim(0);
    for (unsigned i = 0; i < 2048; i++) {
        ASSERT_EQ(static_cast<int32_t>(i), add(verdict(mac_of_bucket_0(i))));
    }
    EXPECT_EQ(0, add(verdict(mac_of_bucket_0(0)))) << "the oldest, in step 2048";
    EXPECT_EQ(std::vector<std::string>{}, console_lines(sim));
    EXPECT_EQ(-1, add(verdict(hex("01 00 01 11 00 00"))));
    EXPECT_EQ((std::vector<std::string>{"console:  detected likely loop. hash_index=0, client_acl_hash[0]=2047",
                                        "console:  client_acl_cache[2047].hash_next=2046"}),
              console_lines(sim));
    sim.check_end();
}

// --- delete

SIM_TEST(acl_cache, a_delete_frees_the_slot_in_one_call) {
    add(verdict(A, 0x11121314, 1));
    sim.forget();
    EXPECT_EQ(0, client_mgr_acl_drv_mac_delete(0));
    sim.expect({trace_enter("client_mgr_acl_drv_mac_delete"), log(3, ">>>>> Client Index 0"),
                trace_enter("client_mgr_acl_lock_mac_delete"), log(3, ">>>>> Index 0"),
                trace_leave("client_mgr_acl_lock_mac_delete"), trace_enter("client_mgr_acl_lock_mac_clear"),
                log(3, ">>>>> Client index 0"), trace_enter("client_mgr_acl_lock_hash_tbl_delete"),
                log(4, ">>>>> Client idx 0 mac:02:11:22:33:44:55"), trace_leave("client_mgr_acl_lock_hash_tbl_delete"),
                trace_leave("client_mgr_acl_lock_mac_clear"), trace_leave("client_mgr_acl_drv_mac_delete")});
    EXPECT_EQ(zeros(32), entry_data(client_acl_cache[0]));
    EXPECT_EQ(0U, client_acl_cache[0].hash_index);
    EXPECT_EQ(-1, client_acl_hash[1701]);
    EXPECT_EQ(-1, client_mgr_acl_drv_mac_delete(0));
    sim.expect({acl_not_deleted(0)});
}

SIM_TEST(acl_cache, a_delete_out_of_range_changes_nothing) {
    add(verdict(A));
    sim.forget();
    for (int32_t idx : {-1, 2048, INT_MIN, INT_MAX}) {
        EXPECT_EQ(-1, client_mgr_acl_drv_mac_delete(idx));
        sim.expect({acl_not_deleted(idx)});
    }
    EXPECT_EQ(std::vector<int>{0}, used_acl_entries());
}

SIM_TEST(acl_cache, a_slot_already_marked_is_not_deleted_again) {
    add(verdict(A));
    client_acl_cache[0].entry_flag = ACL_CACHE_ENTRY_USED | ACL_CACHE_ENTRY_DELETED;
    sim.forget();
    EXPECT_EQ(-1, client_mgr_acl_drv_mac_delete(0));
    sim.expect({trace_enter("client_mgr_acl_drv_mac_delete"), log(3, ">>>>> Client Index 0"),
                trace_enter("client_mgr_acl_lock_mac_delete"), log(3, ">>>>> Index 0"),
                log(3, "<<<<< client_mgr_acl_lock_mac_delete: Already deleted mac 02:11:22:33:44:55"),
                trace_leave("client_mgr_acl_lock_mac_delete"), trace_leave("client_mgr_acl_drv_mac_delete")});
    client_acl_cache[0].entry_flag = ACL_CACHE_ENTRY_USED;
}

SIM_TEST(acl_cache, the_last_slot_freed_is_the_first_one_reused) {
    for (unsigned i = 0; i < 4; i++) {
        add(verdict(mac_number(i)));
    }
    client_mgr_acl_drv_mac_delete(2);
    client_mgr_acl_drv_mac_delete(1);
    EXPECT_EQ(1, add(verdict(mac_number(10))));
    EXPECT_EQ(2, add(verdict(mac_number(11))));
    EXPECT_EQ((std::vector<int>{2, 1, 3, 0}), used_acl_entries());
    sim.forget();
}

// --- expiry

SIM_TEST(acl_cache, the_sweep_of_an_empty_cache_only_arms_the_next) {
    run_sweep();
    sim.expect({sweep({})});
}

SIM_TEST(acl_cache, the_sweep_frees_every_entry_of_30_seconds_and_more_in_slot_order) {
    add(verdict(mac_number(0), NOW - 30));
    add(verdict(mac_number(1), NOW - 29));
    add(verdict(mac_number(2), NOW - 100000));
    add(verdict(mac_number(3), NOW + 5));
    sim.forget();
    run_sweep();
    sim.expect(
        {sweep(expired(0) + acl_deleted("02:5a:00:00:00:00", 0) + expired(2) + acl_deleted("02:5a:00:00:00:02", 2))});
    EXPECT_EQ((std::vector<int>{3, 1}), used_acl_entries());
}

SIM_TEST(acl_cache, the_sweep_is_armed_again_even_when_that_fails_once) {
    sim.fail_nth("kx_eloop_register_timeout", 1);
    run_sweep();
    sim.expect(
        {trace_enter("client_mgr_acl_cache_expire"), failed(REARMED), trace_leave("client_mgr_acl_cache_expire")});
}

SIM_TEST(acl_cache, entries_in_one_bucket_expire_each_for_itself) {
    add(verdict(mac_of_bucket_0(1), NOW));
    add(verdict(mac_of_bucket_0(2), NOW + 10));
    sim.set_clock(NOW + 30);
    EXPECT_EQ(-1, looked_up(mac_of_bucket_0(1)));
    EXPECT_EQ(1, looked_up(mac_of_bucket_0(2)));
    run_sweep();
    EXPECT_EQ(std::vector<int>{1}, used_acl_entries());
    EXPECT_EQ(1, looked_up(mac_of_bucket_0(2)));
    sim.forget();
}

SIM_TEST(acl_cache, a_full_cache_of_old_entries_is_emptied_by_one_sweep) {
    if (sim.log_level == 4) {
        return;
    }
    for (unsigned i = 0; i < 2048; i++) {
        add(verdict(mac_number(i), NOW - 30));
    }
    run_sweep();
    EXPECT_EQ(std::vector<int>{}, used_acl_entries());
    sim.forget();
}

SIM_TEST(acl_cache, the_sweep_runs_every_60_seconds_for_ever) {
    run_sweep();
    sim.forget();
    add(verdict(A, NOW + 30));
    sim.forget();
    for (int minute = 1; minute <= 3; minute++) {
        sim.advance(59);
        sim.expect_nothing();
        sim.advance(1);
        // The entry is 30 seconds old at the first of these runs.
        sim.expect({sweep(minute == 1 ? expired(0) + acl_deleted(A, 0) : steps{})});
    }
}

}  // namespace sim
