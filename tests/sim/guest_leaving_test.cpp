// A guest leaves before it is authorised. Its ARP entry and host route are removed.
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

const bytes NOTICE = zeros(16) + mac_bytes(CLIENT) + mac_bytes(BSSID) + hex("f0f1f2f3");

client_info guest() {
    client_info client = client_of(CLIENT);
    set_bytes(client.cl_ip.bytes, hex("0a5b5c5d"));
    client.flag = CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST;
    return client;
}

steps reported() {
    return notified(KX_MSG_ID_CLIENT_DISASSOCIATION, "KX_MSG_ID_CLIENT_DISASSOCIATION rcvd") +
           log(3, "Received dis-association msg") +
           syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Disassociation b0:b1:b2:b3:b4:b5 -- 02:13:24:35:46:57") +
           client_lookup(CLIENT, true) + client_update(CLIENT_MGR_CLIENT_DISASSOC, CLIENT, BSSID, hex("f0f1f2f3"));
}

steps removed() {
    return client_deleted(CLIENT, 0) + deleting_from_bridge("client_mgr_send_disassoc_msg", CLIENT) +
           captive_msg_of_stranger(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION) + bridge_del(CLIENT) +
           acl_lookup(CLIENT, false);
}

steps entries_removed(const std::string &ip) {
    return log(1, "Client disassociated, removing arp and route") + log(1, "Executing command (arp -d " + ip + ")") +
           ran("arp -d " + ip) + log(1, "Executing command (route del " + ip + ")") + ran("route del " + ip);
}

steps address_cleared() { return log(1, "removing ip from intf") + ran("ifconfig ath0 0.0.0.0"); }

}  // namespace

SIM_TEST(guest_leaving, as_the_last_one_clears_the_address_of_the_interface) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    g_cfg.vaps[1].guest_count = 1;
    have_client(sim, guest());
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({reported(), entries_removed("10.91.92.93"), address_cleared(), removed()});
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
    EXPECT_EQ(1u, g_cfg.vaps[1].guest_count);
}

SIM_TEST(guest_leaving, leaves_the_address_to_the_guests_that_stay) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 2;
    have_client(sim, guest());
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({reported(), entries_removed("10.91.92.93"), removed()});
    EXPECT_EQ(1u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_leaving, runs_nothing_when_no_guest_is_counted) {
    have_two_vaps();
    have_client(sim, guest());
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({reported(), removed()});
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_leaving, after_its_authorisation_runs_nothing) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    client_info client = guest();
    client.flag = CLIENT_FLAG_LOCAL;
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({reported(), removed()});
    EXPECT_EQ(1u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_leaving, without_an_address_removes_entries_of_0_0_0_0) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 2;
    client_info client = guest();
    set_bytes(client.cl_ip.bytes, zeros(4));
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({reported(), entries_removed("0.0.0.0"), removed()});
}

// The VAP comes from the notification, not from the client's record.
SIM_TEST(guest_leaving, counts_on_the_vap_of_the_notification) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 5;
    g_cfg.vaps[1].guest_count = 5;
    client_info client = guest();
    set_mac(client.assoc_bssid, BSSID_2);
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({reported(), entries_removed("10.91.92.93"), removed()});
    EXPECT_EQ(4u, g_cfg.vaps[0].guest_count);
    EXPECT_EQ(5u, g_cfg.vaps[1].guest_count);
}

SIM_TEST(guest_leaving, does_not_look_at_the_results_of_the_commands) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 1;
    have_client(sim, guest());
    sim.fail_from("system", 1, 256);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({reported(), log(1, "Client disassociated, removing arp and route"),
                log(1, "Executing command (arp -d 10.91.92.93)"), failed(ran("arp -d 10.91.92.93"), 256),
                log(1, "Executing command (route del 10.91.92.93)"), failed(ran("route del 10.91.92.93"), 256),
                log(1, "removing ip from intf"), failed(ran("ifconfig ath0 0.0.0.0"), 256), removed()});
    EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
}

SIM_TEST(guest_leaving, is_cleaned_up_after_though_it_cannot_be_reported) {
    have_two_vaps();
    g_cfg.vaps[0].guest_count = 2;
    have_client(sim, guest());
    sim.fail_nth("apcomm_send_msg", 1);
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({failed(reported()), NOT_SENT, log(1, "Error sending Client Update"), entries_removed("10.91.92.93"),
                removed()});
}

// A name of 12 characters fills its field. The bytes after the field are not part of the name.
SIM_TEST(guest_leaving, clears_an_interface_whose_name_has_no_terminator) {
    have_two_vaps();
    set_full_ifname(g_cfg.vaps[0]);
    g_cfg.vaps[0].guest_count = 1;
    have_client(sim, guest());
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
    sim.expect({reported(), entries_removed("10.91.92.93"), log(1, "removing ip from intf"),
                ran("ifconfig abcdefghijkl 0.0.0.0"), removed()});
}

SIM_TEST(guest_leaving, never_hands_the_shell_a_name_that_is_none) {
    for (const char *name : {"", "-a", "a b", "x;reboot", "$(reboot)", "a/b"}) {
        SCOPED_TRACE(name);
        have_two_vaps();
        set_text(g_cfg.vaps[0].ifname, 12, name);
        g_cfg.vaps[0].guest_count = 1;
        have_client(sim, guest());
        sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, NOTICE);
        sim.expect({reported(), entries_removed("10.91.92.93"), log(1, "removing ip from intf"),
                    log(1, "Invalid interface name, command not run"), removed()});
        EXPECT_EQ(0u, g_cfg.vaps[0].guest_count);
    }
}

}  // namespace sim
