// The controller's lists of clients to be treated as associated.
#include <algorithm>

#include "association_steps.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/tables/client_tbl.h"
#include "tables.h"

namespace sim {

using namespace associating;

namespace {

bytes entry(const char *mac, const char *bssid) {
    // MAC address, home BSSID and BSSID. VLAN, address, key and flags have no effect.
    return hex(mac) + hex("d0d1d2d3d4d5") + hex(bssid) + hex("e0e1e2e3 f0f1f2f3") + bytes(32, 0xaa) + hex("ffffffff");
}

// A controller message of one record of type 26.
bytes treat_as_assoc(const bytes &count, const bytes &entries) {
    const auto rec_len = static_cast<uint16_t>(4 + count.size() + entries.size());
    return hex("01 0e 00 0001 00") + big16(static_cast<uint16_t>(14 + rec_len)) + zeros(6) + hex("1a 04") +
           big16(rec_len) + count + entries;
}

steps walked(int rec_len, int tot_len) {
    return log(3, "Received apcomm msg") + log(3, "Received recs 1 hdr_len 14 tot_len " + std::to_string(tot_len)) +
           log(3, "Received rec_type 26 rec_hdr_len 4 rec_len " + std::to_string(rec_len)) +
           log(3, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC");
}

// A message that fills the buffer. Its second record, of type 26, starts `room` bytes before the buffer's end.
bytes with_record_at_the_end(size_t room, const bytes &record) {
    const auto skipped = static_cast<uint16_t>(CLIENT_MGR_BUF_SIZE - 14 - room);
    return hex("01 0e 00 0002 00 4000") + zeros(6) + hex("63 04") + big16(skipped) + zeros(skipped - 4U) +
           first(record, room);
}

// The memory after the buffer continues the record.
void continue_behind_the_buffer(const bytes &record, size_t room) {
    std::copy(record.begin() + static_cast<std::ptrdiff_t>(room), record.end(), g_cfg.ipc_rx_buf);
}

steps walked_to_the_end(size_t room) {
    return log(3, "Received apcomm msg") + log(3, "Received recs 2 hdr_len 14 tot_len 16384") +
           log(3, "Received rec_type 99 rec_hdr_len 4 rec_len " + std::to_string(CLIENT_MGR_BUF_SIZE - 14 - room)) +
           log(3, "Received rec_type 26 rec_hdr_len 4 rec_len 132") +
           log(3, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC");
}

}  // namespace

SIM_TEST(treat_as_association, of_no_clients_does_nothing) {
    have_vaps();
    sim.controller(treat_as_assoc(hex("00000000"), entry("021122334455", "0a1b2c3d4e50")));
    sim.expect({walked(70, 84), log(3, "NUM OF CLIENT INFO: 0")});
}

SIM_TEST(treat_as_association, associates_every_client_of_a_list) {
    have_vaps();
    sim.controller(treat_as_assoc(hex("00000003"), entry("021122334455", "0a1b2c3d4e50") +
                                                       entry("060708090a0b", "0a1b2c3d4eff") +
                                                       entry("021122334455", "0a1b2c3d4e61")));
    sim.expect({walked(194, 208), log(3, "NUM OF CLIENT INFO: 3"), first_association(client_added(STA, 0)), ACCEPTED,
                invalid("0a:1b:2c:3d:4e:ff", "06:07:08:09:0a:0b"),
                // A client that is already present, on another VAP.
                ACCEPTED, heard(GUEST_BSSID, STA), client_lookup(STA, true), update_lines(GUEST_BSSID, "0x00000000"),
                to_controller(update_msg("02", "61", "00000000")), update_lines(GUEST_BSSID, "0x00000000"),
                to_controller(update_msg("19", "61", "00000000")), client_update(STA, client_overwritten(STA, 0)),
                bridged(GUEST_BSSID, 20, "0x00000000"), bridge_add(STA, "ath1", "eth0", 20, "0.0.0.0", 0),
                captive_msg(STA, "guests only", CAPTIVE_MSG_ASSOCIATION, 0)});
}

SIM_TEST(treat_as_association, is_logged_and_dropped_until_the_controller_can_be_reached) {
    have_vaps();
    g_cfg.ctrlr_ip = 0;
    sim.controller(treat_as_assoc(hex("00000001"), entry("021122334455", "0a1b2c3d4e50")));
    sim.expect({walked(70, 84), log(3, "NUM OF CLIENT INFO: 1")});
}

SIM_TEST(treat_as_association, finds_the_list_where_the_records_header_ends) {
    have_vaps();
    // With a record header of 7 bytes nothing after it is aligned.
    bytes record = hex("1a 07 0049 eeeeee 00000001") + entry("021122334455", "0a1b2c3d4e50");
    EXPECT_EQ(0, client_mgr_treat_unkn_as_assoc(record.data()));
    sim.expect({log(3, "NUM OF CLIENT INFO: 1"), first_association(client_added(STA, 0))});
}

SIM_TEST(treat_as_association, trusts_the_count_of_a_list_over_the_records_length) {
    have_vaps();
    bytes msg = treat_as_assoc(hex("00000001"), entry("021122334455", "0a1b2c3d4e50"));
    msg[17] = 8;  // the record ends behind the count
    sim.controller(msg);
    sim.expect({walked(8, 84), log(3, "NUM OF CLIENT INFO: 1"), first_association(client_added(STA, 0))});
}

SIM_TEST(treat_as_association, prints_the_count_of_a_list_as_a_signed_number) {
    // All entries after the message are zero. No VAP has that BSSID, and the last entry ends the list.
    ready_to_talk();
    g_cfg.ctrlr_ip = 0;
    sim.controller(treat_as_assoc(hex("fffffffe"), {}));
    sim.expect(
        {walked(8, 22), log(3, "NUM OF CLIENT INFO: -2"), log(1, "Record leaves the controller message buffer")});
}

SIM_TEST(treat_as_association, follows_a_list_to_the_end_of_the_buffer_and_not_beyond) {
    have_vaps();
    const bytes record =
        hex("1a 04 0084 00000002") + entry("021122334455", "0a1b2c3d4e50") + entry("060708090a0b", "0a1b2c3d4e50");
    const steps left = log(1, "Record leaves the controller message buffer");
    for (size_t room = 4; room <= record.size(); room++) {
        client_tbl_init();
        continue_behind_the_buffer(record, room);
        sim.forget();
        sim.controller(with_record_at_the_end(room, record));
        if (room < 8) {
            sim.expect({walked_to_the_end(room), left});
        } else if (room < 8 + 62) {
            sim.expect({walked_to_the_end(room), log(3, "NUM OF CLIENT INFO: 2"), left});
        } else if (room < 8 + 2 * 62) {
            sim.expect({walked_to_the_end(room), log(3, "NUM OF CLIENT INFO: 2"),
                        first_association(client_added(STA, 0)), left});
        } else {
            sim.forget();
            EXPECT_EQ(2U, used_clients().size());
        }
    }
}

}  // namespace sim
