// Clients leave the client table, and come back while they are on the deleted list.
#include <cstring>
#include <string>
#include <vector>

#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "client_tbl_clients.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "tables.h"

namespace sim {
namespace {

// Puts a used slot on the deleted list, as half of a delete does.
void mark_deleted(int32_t idx) {
    client_info &s = client_info_tbl[idx];
    if (s.prev != -1) {
        client_info_tbl[s.prev].next = s.next;
    }
    if (s.next != -1) {
        client_info_tbl[s.next].prev = s.prev;
    }
    if (client_tbl_last_used == idx) {
        client_tbl_last_used = s.prev;
    }
    s.next = -1;
    s.prev = client_tbl_last_deleted;
    if (client_tbl_last_deleted != -1) {
        client_info_tbl[client_tbl_last_deleted].next = idx;
    }
    client_tbl_last_deleted = idx;
    s.entry_flag = CLIENT_TBL_ENTRY_USED | CLIENT_TBL_ENTRY_DELETED;
}

steps restored(int32_t idx) {
    const char *restore = "client_tbl_lock_mac_restore";
    const char *unlink = "client_tbl_lock_deleted_list_delete";
    const char *link = "client_tbl_lock_used_list_add";
    return trace_enter(restore) + log(4, ">>>>> Client index " + std::to_string(idx)) + trace_enter(unlink) +
           trace_leave(unlink) + trace_enter(link) + trace_leave(link) + trace_leave(restore);
}

}  // namespace

// --- restore

SIM_TEST(client_tbl, adding_a_deleted_client_takes_it_back) {
    add(A);
    add(B);
    mark_deleted(0);
    sim.forget();
    EXPECT_EQ(0, add(A));
    sim.expect({trace_enter("client_tbl_mac_add"), log(4, ">>>>> Adding cl mac:02:11:22:33:44:55"),
                trace_enter("client_tbl_lock_mac_add"), log(4, ">>>>> Adding client:02:11:22:33:44:55"),
                client_find(A, 0), restored(0),
                log(3, "<<<<< client_tbl_lock_mac_add: Overwrite existing client:02:11:22:33:44:55, idx 0"),
                trace_leave("client_tbl_lock_mac_add"), log(4, "Added client mac:02:11:22:33:44:55, cl idx 0"),
                trace_leave("client_tbl_mac_add")});
    EXPECT_EQ((std::vector<int>{0, 1}), used_clients()) << "as the newest";
}

SIM_TEST(client_tbl, updating_a_deleted_client_takes_it_back) {
    add(A);
    add(B);
    add(C);
    mark_deleted(0);
    mark_deleted(1);
    mark_deleted(2);
    sim.forget();
    const client_info c = client_of(B);
    client_tbl_mac_update(&c, 1);
    sim.expect({trace_enter("client_tbl_mac_update"), log(4, ">>>>> Updating client:02:a1:a2:a3:a4:a5 idx: 1"),
                restored(1), log(3, "<<<<< client_tbl_mac_update: Overwrite existing client:02:a1:a2:a3:a4:a5, idx 1"),
                trace_leave("client_tbl_mac_update")});
    EXPECT_EQ(CLIENT_TBL_ENTRY_USED, client_info_tbl[1].entry_flag);
    // From the middle of the deleted list.
    EXPECT_EQ(2, client_tbl_last_deleted);
    EXPECT_EQ(0, client_info_tbl[2].prev);
    EXPECT_EQ(2, client_info_tbl[0].next);
    const client_info newest = client_of(C);
    client_tbl_mac_update(&newest, 2);
    const client_info oldest = client_of(A);
    client_tbl_mac_update(&oldest, 0);
    EXPECT_EQ((std::vector<int>{0, 2, 1}), used_clients());
    sim.forget();
}

SIM_TEST(client_tbl, a_slot_is_taken_back_whatever_else_its_state_says) {
    add(A);
    mark_deleted(0);
    client_info_tbl[0].entry_flag = CLIENT_TBL_ENTRY_DELETED;
    const client_info c = client_of(A);
    client_tbl_mac_update(&c, 0);
    EXPECT_EQ(0U, client_info_tbl[0].entry_flag);
    EXPECT_EQ(-1, client_tbl_last_deleted);
    client_info_tbl[0].entry_flag = CLIENT_TBL_ENTRY_USED;
    sim.forget();
}

// --- delete

SIM_TEST(client_tbl, a_delete_frees_the_slot_in_one_call) {
    add(A);
    sim.forget();
    EXPECT_EQ(0, client_tbl_drv_mac_delete(0));
    sim.expect({trace_enter("client_tbl_drv_mac_delete"), log(3, ">>>>> Client Index 0"),
                trace_enter("client_tbl_lock_mac_delete"), log(3, ">>>>> Index 0"),
                trace_leave("client_tbl_lock_mac_delete"), trace_enter("client_tbl_lock_mac_clear"),
                log(3, ">>>>> Client index 0"), trace_enter("client_tbl_lock_hash_tbl_delete"),
                log(4, ">>>>> Client idx 0 mac:02:11:22:33:44:55"), trace_leave("client_tbl_lock_hash_tbl_delete"),
                trace_enter("client_tbl_lock_deleted_list_delete"), trace_leave("client_tbl_lock_deleted_list_delete"),
                trace_leave("client_tbl_lock_mac_clear"), trace_leave("client_tbl_drv_mac_delete")});
    EXPECT_EQ(-1, client_hash_tbl[1701]);
    EXPECT_EQ(-1, client_tbl_last_used);
    EXPECT_EQ(0, client_tbl_free_index);
}

// The lists and the slot's state at each line that a delete logs: the slot is on the deleted list from its mark until
// it has left its chain.
TEST(client_tbl, a_slot_is_on_the_deleted_list_while_a_delete_runs) {
    site sim(4);
    add(A);
    add(B);
    std::vector<std::string> seen;
    sim.on("log", [&seen] {
        seen.push_back(std::to_string(client_tbl_last_used) + " " + std::to_string(client_tbl_last_deleted) + " " +
                       std::to_string(client_info_tbl[1].entry_flag));
    });
    client_tbl_drv_mac_delete(1);
    const std::vector<std::string> lines(seen);
    EXPECT_EQ((std::vector<std::string>{"1 -1 1", "1 -1 1", "1 -1 1", "1 -1 1",  // up to the mark
                                        "0 1 3", "0 1 3", "0 1 3", "0 1 3", "0 1 3", "0 1 3", "0 1 3",
                                        "0 -1 3",  // off the list
                                        "0 -1 0", "0 -1 0"}),
              lines);
    sim.forget();
    sim.check_end();
}

// The bucket is that of the address which the slot holds now, not of the one it was added with.
SIM_TEST(client_tbl, a_slot_leaves_the_chain_of_its_present_address) {
    add(A);
    const client_info other = client_of(B);
    client_tbl_mac_update(&other, 0);
    client_tbl_drv_mac_delete(0);
    EXPECT_EQ(0, client_hash_tbl[bucket_of(mac_bytes(A).data())]);
    client_tbl_init();
    sim.forget();
}

SIM_TEST(client_tbl, an_old_pointer_shows_an_erased_record) {
    const client_info c = full_record(A);
    client_tbl_mac_add(&c);
    int32_t idx = -1;
    const client_info *record = client_tbl_client_get_fast(mac_bytes(A).data(), &idx);
    client_tbl_drv_mac_delete(idx);
    client_info expected = {};
    expected.bssid_idx = -1;
    EXPECT_EQ(client_data(expected), client_data(*record));
    EXPECT_EQ(0U, record->hash_index);
    EXPECT_EQ(0U, record->entry_flag);
    sim.forget();
}

SIM_TEST(client_tbl, a_second_delete_finds_a_free_slot) {
    add(A);
    EXPECT_EQ(0, client_tbl_drv_mac_delete(0));
    sim.forget();
    EXPECT_EQ(-1, client_tbl_drv_mac_delete(0));
    sim.expect({trace_enter("client_tbl_drv_mac_delete"), log(3, ">>>>> Client Index 0"),
                trace_enter("client_tbl_lock_mac_delete"), log(3, ">>>>> Index 0"),
                trace_leave("client_tbl_lock_mac_delete"), trace_leave("client_tbl_drv_mac_delete")});
}

SIM_TEST(client_tbl, a_delete_out_of_range_changes_nothing) {
    add(A);
    sim.forget();
    for (int32_t idx : {-1, 2048, 2049, INT_MIN, INT_MAX}) {
        EXPECT_EQ(-1, client_tbl_drv_mac_delete(idx));
        sim.expect({client_not_deleted(idx)});
    }
    EXPECT_EQ(std::vector<int>{0}, used_clients());
}

SIM_TEST(client_tbl, a_slot_already_marked_is_not_deleted_again) {
    add(A);
    mark_deleted(0);
    sim.forget();
    EXPECT_EQ(-1, client_tbl_drv_mac_delete(0));
    sim.expect({trace_enter("client_tbl_drv_mac_delete"), log(3, ">>>>> Client Index 0"),
                trace_enter("client_tbl_lock_mac_delete"), log(3, ">>>>> Index 0"),
                log(3, "<<<<< client_tbl_lock_mac_delete: Already deleted mac 02:11:22:33:44:55"),
                trace_leave("client_tbl_lock_mac_delete"), trace_leave("client_tbl_drv_mac_delete")});
    add(A);
    sim.forget();
}

SIM_TEST(client_tbl, clients_leave_the_used_list_from_everywhere) {
    for (unsigned i = 0; i < 5; i++) {
        add(mac_number(i));
    }
    client_tbl_drv_mac_delete(4);
    EXPECT_EQ((std::vector<int>{3, 2, 1, 0}), used_clients());
    client_tbl_drv_mac_delete(2);
    EXPECT_EQ((std::vector<int>{3, 1, 0}), used_clients());
    client_tbl_drv_mac_delete(0);
    EXPECT_EQ((std::vector<int>{3, 1}), used_clients());
    std::vector<int> next_free = free_clients();
    next_free.resize(4);
    EXPECT_EQ((std::vector<int>{0, 2, 4, 5}), next_free);
    sim.forget();
}

}  // namespace sim
