// The controller authorises a guest.
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

client_info guest(uint32_t flag = CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, ELSEWHERE);
    set_mac(client.assoc_bssid, BSSID);
    client.home_vlan = 300;
    client.assoc_vlan = 100;
    set_bytes(client.cl_ip.bytes, hex("0a5b5c5d"));
    client.bssid_idx = 1;
    set_bytes(client.pmk, pmk_bytes());
    client.flag = flag;
    return client;
}

steps receipt() { return received(CLIENT_MGR_CLIENT_GUEST_AUTH, 6) + log(3, "Received CLIENT_MGR_CLIENT_GUEST_AUTH"); }

steps entries_removed(const std::string &ip) {
    return log(1, "Client authenticated, removing arp and route") + log(1, "Executing command (arp -d " + ip + ")") +
           ran("arp -d " + ip) + log(1, "Executing command (route del " + ip + ")") + ran("route del " + ip);
}

steps address_cleared() { return log(1, "removing ip from intf") + ran("ifconfig ath0 0.0.0.0"); }

steps portal_told() {
    return log(3, "Notifying client 02:13:24:35:46:57 authenticated in vap portal zero") +
           captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_GUEST_AUTHENTICATED, 1);
}

const bytes AUTH = one_record(CLIENT_MGR_CLIENT_GUEST_AUTH, mac_bytes(CLIENT));

}  // namespace

SIM_TEST(guest_auth, of_the_last_guest_clears_the_interface) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    g_cfg.vaps[1].guest_count = 1;
    have_client(sim, guest());
    sim.controller(AUTH);
    sim.expect({
        receipt(),
        client_lookup(CLIENT, true),
        client_update_at(CLIENT, 0),
        log(1, "Client authenticated, removing arp and route"),
        log(1, "Executing command (arp -d 10.91.92.93)"),
        ran("arp -d 10.91.92.93"),
        log(1, "Executing command (route del 10.91.92.93)"),
        ran("route del 10.91.92.93"),
        log(1, "removing ip from intf"),
        ran("ifconfig ath0 0.0.0.0"),
        log(3, "Notifying client 02:13:24:35:46:57 authenticated in vap portal zero"),
        client_lookup(CLIENT, true),
        log(3, "Sending Assoc IPC to /kx/ipc/captive_app"),
        to_captive_portal(hex("00000043 0000002c 00000001 021324354657") + padded("portal zero", 34) + hex("00000001")),
    });
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
    EXPECT_EQ(1u, g_cfg.vaps[1].guest_count);
    expect_stored(guest(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK));
}

SIM_TEST(guest_auth, of_one_of_several_removes_its_entries_alone) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 2;
    have_client(sim, guest());
    sim.controller(AUTH);
    sim.expect({receipt(), client_lookup(CLIENT, true), client_update_at(CLIENT, 0), entries_removed("10.91.92.93"),
                portal_told()});
    EXPECT_EQ(1u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_auth, with_no_guest_counted_clears_the_flag_alone) {
    have_two_vaps();
    have_client(sim, guest());
    sim.controller(AUTH);
    sim.expect({receipt(), client_lookup(CLIENT, true), client_update_at(CLIENT, 0), portal_told()});
    expect_stored(guest(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK));
}

// The guest has no entries, but the count is still lowered.
SIM_TEST(guest_auth, of_a_guest_without_an_address_lowers_the_count) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    client_info client = guest();
    set_bytes(client.cl_ip.bytes, zeros(4));
    have_client(sim, client);
    sim.controller(AUTH);
    sim.expect({receipt(), client_lookup(CLIENT, true), client_update_at(CLIENT, 0), entries_removed("0.0.0.0"),
                address_cleared(), portal_told()});
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_auth, of_a_client_that_is_no_guest_lowers_the_count) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 3;
    have_client(sim, guest(0x1f));
    sim.controller(AUTH);
    sim.expect({receipt(), client_lookup(CLIENT, true), client_update_at(CLIENT, 0), entries_removed("10.91.92.93"),
                portal_told()});
    EXPECT_EQ(2u, g_cfg.vaps[0].guest_count);
    expect_stored(guest(0x1f));
}

SIM_TEST(guest_auth, is_taken_whatever_the_state_of_the_link) {
    have_two_vaps();
    whenever_not_ready([&] {
        have_client(sim, guest());
        sim.controller(AUTH);
        sim.expect({receipt(), client_lookup(CLIENT, true), client_update_at(CLIENT, 0), portal_told()});
        expect_stored(guest(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK));
    });
}

SIM_TEST(guest_auth, of_an_unknown_client_does_nothing) {
    have_two_vaps();
    sim.controller(AUTH);
    sim.expect({receipt(), client_lookup(CLIENT, false), log(1, "Invalid client 02:13:24:35:46:57")});
}

SIM_TEST(guest_auth, on_a_vap_that_is_not_ours_does_nothing) {
    have_two_vaps();
    client_info client = guest();
    set_mac(client.assoc_bssid, ELSEWHERE);
    have_client(sim, client);
    sim.controller(AUTH);
    sim.expect({receipt(), client_lookup(CLIENT, true), log(1, "Invalid ap bssid in assoc msg")});
    expect_stored(client);
}

SIM_TEST(guest_auth, goes_on_when_commands_and_portal_fail) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    have_client(sim, guest());
    sim.fail_from("system", 1);
    sim.fail_nth("kx_ipc_send", 1);
    sim.controller(AUTH);
    sim.expect({receipt(), client_lookup(CLIENT, true), client_update_at(CLIENT, 0),
                log(1, "Client authenticated, removing arp and route"),
                log(1, "Executing command (arp -d 10.91.92.93)"), failed(ran("arp -d 10.91.92.93")),
                log(1, "Executing command (route del 10.91.92.93)"), failed(ran("route del 10.91.92.93")),
                failed(address_cleared()), failed(portal_told()),
                log(1, " Send Assoc to Captive application failed!")});
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_auth, shows_a_portal_text_of_32_bytes_and_nothing_behind_it) {
    have_two_vaps();
    const std::string text = "0123456789abcdef0123456789ABCDEF";
    set_text(g_cfg.vaps[0].captive_cfg, 32, text);
    have_client(sim, guest());
    sim.controller(AUTH);
    sim.expect({receipt(), client_lookup(CLIENT, true), client_update_at(CLIENT, 0),
                log(3, "Notifying client 02:13:24:35:46:57 authenticated in vap " + text),
                captive_msg(CLIENT, text, CAPTIVE_MSG_GUEST_AUTHENTICATED, 1)});
}

SIM_TEST(guest_auth, finds_its_body_behind_a_longer_record_header) {
    have_two_vaps();
    have_client(sim, guest());
    sim.controller(ctrlr_message({hex("18 07 000d eeefed") + mac_bytes(CLIENT)}));
    sim.expect({log(3, "Received apcomm msg"), log(3, "Received recs 1 hdr_len 14 tot_len 27"),
                log(3, "Received rec_type 24 rec_hdr_len 7 rec_len 13"),
                log(3, "Received CLIENT_MGR_CLIENT_GUEST_AUTH"), client_lookup(CLIENT, true),
                client_update_at(CLIENT, 0), portal_told()});
}

SIM_TEST(guest_auth, reads_nothing_past_the_buffer) {
    have_two_vaps();
    have_client(sim, guest());
    for (size_t size = 0; size < 6; size++) {
        at_buffer_end(first(mac_bytes(CLIENT), size), client_mgr_proc_client_guest_auth);
        sim.expect({LEAVES_BUFFER});
    }
    at_buffer_end(mac_bytes(CLIENT), client_mgr_proc_client_guest_auth);
    sim.expect({client_lookup(CLIENT, true), client_update_at(CLIENT, 0), portal_told()});
}

}  // namespace sim
