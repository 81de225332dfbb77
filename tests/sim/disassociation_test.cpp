#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

const bytes IP = hex("0a5b5c5d");
const bytes UNREAD = hex("e0e1e2e3e4e5e6e7e8e9eaebecedeeef");

bytes notice(std::string_view bssid = BSSID) {
    return UNREAD + mac_bytes(CLIENT) + mac_bytes(bssid) + hex("f0f1f2f3 f4f5 f6f7f8f9");
}

// The update message reads the bytes after the BSSID as an address.
const bytes IP_FIELD = hex("f0f1f2f3");

steps local_receipt(std::string_view bssid = BSSID) {
    return notified(KX_MSG_ID_CLIENT_DISASSOCIATION, "KX_MSG_ID_CLIENT_DISASSOCIATION rcvd") +
           log(3, "Received dis-association msg") +
           syslog(LOG_USER | LOG_INFO,
                  "<clmgr> Proc Disassociation " + std::string(bssid) + " -- " + std::string(CLIENT));
}

steps foreign_receipt() {
    return notified(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, "KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION rcvd");
}

steps removal(int slot) {
    return client_deleted(CLIENT, slot) + deleting_from_bridge("client_mgr_send_disassoc_msg", CLIENT) +
           captive_msg_of_stranger(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION) + bridge_del(CLIENT) +
           acl_lookup(CLIENT, false);
}

steps foreign_removal(int slot) {
    return client_deleted(CLIENT, slot) + deleting_from_bridge("client_mgr_send_disassoc_foreign_msg", CLIENT) +
           captive_msg_of_stranger(CLIENT, "portal zero", CAPTIVE_MSG_FOREIGN_DISASSOCIATION) + bridge_del(CLIENT);
}

steps local_update() { return client_update(CLIENT_MGR_CLIENT_DISASSOC, CLIENT, BSSID, IP_FIELD); }

steps foreign_leave_update() {
    return foreign_update(CLIENT_MGR_FOREIGN_CLIENT_DISASSOC, CLIENT, BSSID, "f0:f1:f2:f3:f4:f5", hex("f6f7f8f9"));
}

// On VAP 0, with every field set.
client_info associated(uint32_t flag) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, BSSID);
    set_mac(client.assoc_bssid, BSSID);
    client.home_vlan = 100;
    client.assoc_vlan = 100;
    set_bytes(client.cl_ip.bytes, IP);
    set_bytes(client.pmk, pmk_bytes());
    client.flag = flag;
    return client;
}

struct combination {
    uint32_t flag;
    bool leaves;          // by a local disassociation
    bool leaves_foreign;  // by a foreign one
};

constexpr combination COMBINATIONS[] = {
    {0x00, true, true},   {0x01, true, true},   {0x02, false, false}, {0x03, false, false}, {0x08, false, true},
    {0x09, false, false}, {0x0a, false, true},  {0x0b, false, false}, {0x10, true, true},   {0x11, true, true},
    {0x12, false, false}, {0x13, false, false}, {0x18, false, true},  {0x19, false, false}, {0x1a, false, true},
    {0x1b, false, false}, {0x20, true, true},   {0x21, true, true},   {0x22, false, false}, {0x23, false, false},
    {0x28, false, true},  {0x29, false, false}, {0x2a, false, true},  {0x2b, false, false}, {0x30, true, true},
    {0x31, true, true},   {0x32, false, false}, {0x33, false, false}, {0x38, false, true},  {0x39, false, false},
    {0x3a, false, true},  {0x3b, false, false},
};
static_assert(std::size(COMBINATIONS) == 32);

}  // namespace

// --- a client that associated here

SIM_TEST(disassociation, takes_the_client_off_everything_in_order) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT_2));
    EXPECT_EQ(1, have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK)));
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
    sim.expect({
        local_receipt(),
        client_lookup(CLIENT, true),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "To BSSID b0:b1:b2:b3:b4:b5"),
        log(3, "Client IP 0xf0f1f2f3"),
        to_controller(hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5  03 04 001a  021324354657 b0b1b2b3b4b5"
                          "000000000000 f0f1f2f3")),
        client_deleted(CLIENT, 1),
        log(3, "[client_mgr_send_disassoc_msg] Deleting client to kxbr_api_del_client"),
        log(3, "Client 02:13:24:35:46:57"),
        client_lookup(CLIENT, false),
        log(1, "Captive cl failed 02:13:24:35:46:57"),
        log(3, "Sending Assoc IPC to /kx/ipc/captive_app"),
        to_captive_portal(hex("000000a8 0000002c 00000001 021324354657") + padded("portal zero", 34) + hex("00000001")),
        bridge_del(CLIENT),
        acl_lookup(CLIENT, false),
    });
    EXPECT_EQ(nullptr, stored_client(CLIENT));
    EXPECT_NE(nullptr, stored_client(CLIENT_2));
}

SIM_TEST(disassociation, is_dropped_silently_until_the_controller_can_be_reached) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL));
    whenever_not_ready([&] {
        sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
        sim.expect({notified(KX_MSG_ID_CLIENT_DISASSOCIATION, "KX_MSG_ID_CLIENT_DISASSOCIATION rcvd")});
    });
    expect_stored(associated(CLIENT_FLAG_LOCAL));
}

SIM_TEST(disassociation, of_an_unknown_client_does_nothing) {
    have_two_vaps();
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
    sim.expect({local_receipt(), client_lookup(CLIENT, false), log(3, "Unable to find client")});
}

SIM_TEST(disassociation, spares_clients_that_roamed) {
    have_two_vaps();
    for (const combination &c : COMBINATIONS) {
        SCOPED_TRACE(c.flag);
        const int slot = have_client(sim, associated(c.flag));
        sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
        if (c.leaves) {
            sim.expect({local_receipt(), client_lookup(CLIENT, true), local_update(), removal(slot)});
            EXPECT_EQ(nullptr, stored_client(CLIENT));
        } else {
            sim.expect({local_receipt(), client_lookup(CLIENT, true), log(3, "Frn/Local L3 Roam client Don't remove")});
            expect_stored(associated(c.flag));
        }
    }
}

// The daemon checks flags, BSSID and VAP in this order.
SIM_TEST(disassociation, looks_at_the_flags_before_the_bssid) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_FOREIGN));
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice(ELSEWHERE));
    sim.expect(
        {local_receipt(ELSEWHERE), client_lookup(CLIENT, true), log(3, "Frn/Local L3 Roam client Don't remove")});
}

SIM_TEST(disassociation, from_a_bssid_that_is_not_ours_keeps_the_client) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL));
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice(ELSEWHERE));
    sim.expect({local_receipt(ELSEWHERE), client_lookup(CLIENT, true), log(1, "Invalid ap bssid in disassoc msg")});
    expect_stored(associated(CLIENT_FLAG_LOCAL));
}

SIM_TEST(disassociation, from_another_vap_keeps_the_client) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL));
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice(BSSID_2));
    sim.expect({local_receipt(BSSID_2), client_lookup(CLIENT, true), log(1, "Disassoc from wrong vap, Don't remove")});
    expect_stored(associated(CLIENT_FLAG_LOCAL));
}

SIM_TEST(disassociation, compares_vap_indexes_not_bssids) {
    have_two_vaps();
    client_info client = associated(CLIENT_FLAG_LOCAL);
    client.bssid_idx = 1;
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
    sim.expect({local_receipt(), client_lookup(CLIENT, true), log(1, "Disassoc from wrong vap, Don't remove")});
    expect_stored(client);
}

SIM_TEST(disassociation, goes_on_when_it_cannot_be_reported) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL));
    sim.fail_nth("apcomm_send_msg", 1);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
    sim.expect({local_receipt(), client_lookup(CLIENT, true), failed(local_update()), NOT_SENT,
                log(1, "Error sending Client Update"), removal(0)});
}

SIM_TEST(disassociation, goes_on_when_portal_and_bridge_fail) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL));
    sim.fail_nth("kx_ipc_send", 1);
    sim.fail_nth("kxbr_api_del_client", 1);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
    sim.expect({local_receipt(), client_lookup(CLIENT, true), local_update(), client_deleted(CLIENT, 0),
                deleting_from_bridge("client_mgr_send_disassoc_msg", CLIENT),
                failed(captive_msg_of_stranger(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION)),
                log(1, " Send Assoc to Captive application failed!"), failed(bridge_del(CLIENT)),
                acl_lookup(CLIENT, false)});
}

SIM_TEST(disassociation, drops_the_cached_verdict) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL));
    const auto now = static_cast<int32_t>(sim.wall_secs());
    have_verdict(sim, CLIENT_2, ACL_STATE_DENIED, now);
    EXPECT_EQ(1, have_verdict(sim, CLIENT, ACL_STATE_ALLOWED, now - 29));
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
    sim.expect({local_receipt(), client_lookup(CLIENT, true), local_update(), client_deleted(CLIENT, 0),
                deleting_from_bridge("client_mgr_send_disassoc_msg", CLIENT),
                captive_msg_of_stranger(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION), bridge_del(CLIENT),
                acl_lookup(CLIENT, true), log(4, "client found in client manager acl cache 02:13:24:35:46:57"),
                acl_deleted(CLIENT, 1)});
    EXPECT_EQ(nullptr, stored_verdict(CLIENT));
    EXPECT_NE(nullptr, stored_verdict(CLIENT_2));
}

SIM_TEST(disassociation, leaves_an_outdated_verdict_to_the_sweep) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL));
    have_verdict(sim, CLIENT, ACL_STATE_ALLOWED, static_cast<int32_t>(sim.wall_secs()) - 30);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
    sim.expect({local_receipt(), client_lookup(CLIENT, true), local_update(), removal(0)});
    EXPECT_NE(nullptr, stored_verdict(CLIENT));
}

SIM_TEST(disassociation, keeps_the_verdict_of_a_client_that_stays) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_FOREIGN));
    have_verdict(sim, CLIENT, ACL_STATE_ALLOWED, static_cast<int32_t>(sim.wall_secs()));
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, notice());
    sim.expect({local_receipt(), client_lookup(CLIENT, true), log(3, "Frn/Local L3 Roam client Don't remove")});
    EXPECT_NE(nullptr, stored_verdict(CLIENT));
}

// --- a client that roamed in

SIM_TEST(foreign_disassociation, takes_the_client_off_everything_in_order) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT_2));
    EXPECT_EQ(1, have_client(sim, associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK)));
    have_verdict(sim, CLIENT, ACL_STATE_ALLOWED, static_cast<int32_t>(sim.wall_secs()));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice());
    sim.expect({
        foreign_receipt(),
        client_lookup(CLIENT, true),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "To BSSID b0:b1:b2:b3:b4:b5"),
        log(3, "From BSSID f0:f1:f2:f3:f4:f5"),
        to_controller(hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5  06 04 001a  021324354657 b0b1b2b3b4b5"
                          "f0f1f2f3f4f5 f6f7f8f9")),
        client_deleted(CLIENT, 1),
        log(3, "[client_mgr_send_disassoc_foreign_msg] Deleting client to kxbr_api_del_client"),
        log(3, "Client 02:13:24:35:46:57"),
        client_lookup(CLIENT, false),
        log(1, "Captive cl failed 02:13:24:35:46:57"),
        log(3, "Sending Assoc IPC to /kx/ipc/captive_app"),
        to_captive_portal(hex("000000a9 0000002c 00000001 021324354657") + padded("portal zero", 34) + hex("00000001")),
        bridge_del(CLIENT),
    });
    EXPECT_EQ(nullptr, stored_client(CLIENT));
    EXPECT_NE(nullptr, stored_verdict(CLIENT));
}

SIM_TEST(foreign_disassociation, is_dropped_silently_until_the_controller_can_be_reached) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL));
    whenever_not_ready([&] {
        sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice());
        sim.expect({foreign_receipt()});
    });
    expect_stored(associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL));
}

SIM_TEST(foreign_disassociation, of_an_unknown_client_does_nothing) {
    have_two_vaps();
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice());
    sim.expect({foreign_receipt(), client_lookup(CLIENT, false), log(3, "Unable to find client")});
}

SIM_TEST(foreign_disassociation, spares_clients_that_roamed) {
    have_two_vaps();
    for (const combination &c : COMBINATIONS) {
        SCOPED_TRACE(c.flag);
        const int slot = have_client(sim, associated(c.flag));
        sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice());
        if (c.leaves_foreign) {
            sim.expect({foreign_receipt(), client_lookup(CLIENT, true), foreign_leave_update(), foreign_removal(slot)});
            EXPECT_EQ(nullptr, stored_client(CLIENT));
        } else {
            sim.expect(
                {foreign_receipt(), client_lookup(CLIENT, true), log(3, "Frn client which has roamed. Don't remove")});
            expect_stored(associated(c.flag));
        }
    }
}

SIM_TEST(foreign_disassociation, looks_at_the_flags_before_the_bssid) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice(ELSEWHERE));
    sim.expect({foreign_receipt(), client_lookup(CLIENT, true), log(3, "Frn client which has roamed. Don't remove")});
}

SIM_TEST(foreign_disassociation, from_a_bssid_that_is_not_ours_keeps_the_client) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice(ELSEWHERE));
    sim.expect({foreign_receipt(), client_lookup(CLIENT, true), log(1, "Invalid ap bssid in frn disassoc msg")});
    expect_stored(associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL));
}

SIM_TEST(foreign_disassociation, from_another_vap_keeps_the_client) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice(BSSID_2));
    sim.expect({foreign_receipt(), client_lookup(CLIENT, true), log(1, "Frn Disassoc from wrong vap, Don't remove")});
    expect_stored(associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL));
}

SIM_TEST(foreign_disassociation, compares_vap_indexes_not_bssids) {
    have_two_vaps();
    client_info client = associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL);
    client.bssid_idx = 1;
    have_client(sim, client);
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice());
    sim.expect({foreign_receipt(), client_lookup(CLIENT, true), log(1, "Frn Disassoc from wrong vap, Don't remove")});
    expect_stored(client);
}

SIM_TEST(foreign_disassociation, goes_on_when_everything_fails) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL));
    sim.fail_nth("apcomm_send_msg", 1);
    sim.fail_nth("kx_ipc_send", 1);
    sim.fail_nth("kxbr_api_del_client", 1);
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice());
    sim.expect({foreign_receipt(), client_lookup(CLIENT, true), failed(foreign_leave_update()), NOT_SENT,
                log(1, "Error sending Foreign Client Update"), client_deleted(CLIENT, 0),
                deleting_from_bridge("client_mgr_send_disassoc_foreign_msg", CLIENT),
                failed(captive_msg_of_stranger(CLIENT, "portal zero", CAPTIVE_MSG_FOREIGN_DISASSOCIATION)),
                log(1, " Send Assoc to Captive application failed!"), failed(bridge_del(CLIENT))});
}

SIM_TEST(foreign_disassociation, does_not_clean_up_after_a_guest) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    have_client(sim, associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_GUEST));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, notice());
    sim.expect({foreign_receipt(), client_lookup(CLIENT, true), foreign_leave_update(), foreign_removal(0)});
    EXPECT_EQ(1u, g_cfg.vaps[0].guest_count);
}

// The notification is shorter than the update message expects. The missing bytes read as zero.
SIM_TEST(foreign_disassociation, of_32_bytes_reports_the_rest_as_zero) {
    have_two_vaps();
    have_client(sim, associated(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL));
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, first(notice(), 32));
    sim.expect({foreign_receipt(), client_lookup(CLIENT, true),
                foreign_update(CLIENT_MGR_FOREIGN_CLIENT_DISASSOC, CLIENT, BSSID, "f0:f1:f2:f3:00:00", zeros(4)),
                foreign_removal(0)});
}

}  // namespace sim
