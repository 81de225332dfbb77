// Lists of clients that the controller hands over or has removed.

#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

constexpr std::string_view HOME = "e0:e1:e2:e3:e4:e5";

bytes handed_over(const bytes &list) { return one_record(ROAMING_MGR_CLIENT_BULK_INFO, list); }
bytes forgotten(const bytes &list) { return one_record(CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, list); }

steps handing_over(const bytes &list, int count) {
    return received(ROAMING_MGR_CLIENT_BULK_INFO, list.size()) + log(3, "Received ROAMING_MGR_CLIENT_BULK_INFO") +
           log(3, "NUM OF CLIENT INFO: " + std::to_string(count));
}

steps forgetting(const bytes &list, int count) {
    return received(CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, list.size()) +
           log(3, "Received CLIENT_MGR_REMOVE_CLIENT_BULK_INFO") +
           log(3, "NUM OF DEL CLIENT INFO: " + std::to_string(count));
}

steps added(std::string_view mac, std::string_view home_bssid, int home_vlan) {
    return log(3, "Added cl:" + std::string(mac) + " Home bssid:" + std::string(home_bssid) + " home_vlan " +
                      std::to_string(home_vlan));
}

steps removed(std::string_view mac, int slot) {
    return client_deleted(mac, slot) + deleting_from_bridge("client_mgr_proc_remove_cl_bulk_info", mac) +
           bridge_del(mac);
}

// A client with this current BSSID.
client_info on(std::string_view bssid, uint32_t flag = CLIENT_FLAG_LOCAL) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, BSSID);
    set_mac(client.assoc_bssid, bssid);
    client.home_vlan = 100;
    client.assoc_vlan = 100;
    set_bytes(client.cl_ip.bytes, hex("08090a0b"));
    client.bssid_idx = 3;
    set_bytes(client.pmk, other_pmk_bytes());
    client.flag = flag;
    return client;
}

listed_client moved(uint32_t flags = 0) {
    return {CLIENT, HOME, "f0:f1:f2:f3:f4:f5", 300, hex("0a5b5c5d"), pmk_bytes(), flags};
}

client_info known_elsewhere(uint32_t flag) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, HOME);
    client.home_vlan = 300;
    set_bytes(client.cl_ip.bytes, hex("0a5b5c5d"));
    set_bytes(client.pmk, pmk_bytes());
    client.flag = flag;
    return client;
}

}  // namespace

// --- handed over

SIM_TEST(bulk_client_info, of_a_client_that_is_here_sends_it_away) {
    have_two_vaps();
    set_text(have_vap(3, "ath3", ELSEWHERE, 400).captive_cfg, 32, "portal three");
    have_client(sim, client_of(CLIENT_2));
    EXPECT_EQ(1, have_client(sim, on(ELSEWHERE, CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST)));
    const bytes list =
        hex("00000001 021324354657 e0e1e2e3e4e5 f0f1f2f3f4f5 01020304 0a5b5c5d"
            "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f 00000003");
    sim.controller(handed_over(list));
    sim.expect({
        received(ROAMING_MGR_CLIENT_BULK_INFO, 66),
        log(3, "Received ROAMING_MGR_CLIENT_BULK_INFO"),
        log(3, "NUM OF CLIENT INFO: 1"),
        client_lookup(CLIENT, true),
        sta_disassoc("ath3", ELSEWHERE, CLIENT, 0),
        captive_msg(CLIENT, "portal three", CAPTIVE_MSG_DISASSOCIATION, 0),
        client_deleted(CLIENT, 1),
        bridge_del(CLIENT),
        client_update(CLIENT, client_added(CLIENT, 1)),
        log(3, "Added cl:02:13:24:35:46:57 Home bssid:e0:e1:e2:e3:e4:e5 home_vlan 16909060"),
    });
    client_info expected = known_elsewhere(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST);
    expected.home_vlan = 0x01020304;
    expect_stored(expected);
}

SIM_TEST(bulk_client_info, turns_entry_flags_into_client_flags) {
    struct {
        uint32_t entry;
        uint32_t client;
    } const cases[] = {{0, 0x02}, {1, 0x12}, {2, 0x22}, {3, 0x32}, {0xfffffffc, 0x02}, {0xffffffff, 0x32}};
    for (const auto &c : cases) {
        SCOPED_TRACE(c.entry);
        const bytes list = client_list({moved(c.entry)});
        sim.controller(handed_over(list));
        sim.forget();
        // The key is copied whether or not it is marked valid.
        expect_stored(known_elsewhere(c.client));
    }
}

SIM_TEST(bulk_client_info, is_taken_whatever_the_state_of_the_link) {
    have_two_vaps();
    whenever_not_ready([&] {
        have_client(sim, on(ELSEWHERE));
        const bytes list = client_list({moved(1)});
        sim.controller(handed_over(list));
        sim.expect({handing_over(list, 1), client_lookup(CLIENT, true),
                    client_update(CLIENT, client_overwritten(CLIENT, 0)), added(CLIENT, HOME, 300)});
        expect_stored(known_elsewhere(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK));
    });
}

SIM_TEST(bulk_client_info, adds_clients_in_the_order_of_the_list) {
    const bytes list = client_list({{CLIENT_2, HOME, NOWHERE, 7}, moved()});
    sim.controller(handed_over(list));
    sim.expect({handing_over(list, 2), client_lookup(CLIENT_2, false),
                client_update(CLIENT_2, client_added(CLIENT_2, 0)), added(CLIENT_2, HOME, 7),
                client_lookup(CLIENT, false), client_update(CLIENT, client_added(CLIENT, 1)),
                added(CLIENT, HOME, 300)});
}

SIM_TEST(bulk_client_info, of_count_0_does_nothing) {
    const bytes list = hex("00000000") + client_list({moved()});
    sim.controller(handed_over(list));
    sim.expect({handing_over(list, 0)});
}

SIM_TEST(bulk_client_info, stops_at_the_first_vap_with_the_bssid) {
    have_two_vaps();
    set_mac(g_cfg.vaps[1].bssid, BSSID);
    have_client(sim, on(BSSID));
    const bytes list = client_list({moved()});
    sim.controller(handed_over(list));
    sim.expect({handing_over(list, 1), client_lookup(CLIENT, true), sta_disassoc("ath0", BSSID, CLIENT, 0),
                captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION, 1), client_deleted(CLIENT, 0),
                bridge_del(CLIENT), client_update(CLIENT, client_added(CLIENT, 0)), added(CLIENT, HOME, 300)});
}

SIM_TEST(bulk_client_info, searches_all_16_vaps) {
    set_text(have_vap(15, "ath15", BSSID, 100).captive_cfg, 32, "portal fifteen");
    g_cfg.num_vaps = 0;
    have_client(sim, on(BSSID));
    const bytes list = client_list({moved()});
    sim.controller(handed_over(list));
    sim.expect({handing_over(list, 1), client_lookup(CLIENT, true), sta_disassoc("ath15", BSSID, CLIENT, 0),
                captive_msg(CLIENT, "portal fifteen", CAPTIVE_MSG_DISASSOCIATION, 1), client_deleted(CLIENT, 0),
                bridge_del(CLIENT), client_update(CLIENT, client_added(CLIENT, 0)), added(CLIENT, HOME, 300)});
}

// An all-zero current BSSID matches no VAP, although unused entries of the VAP table hold it as well.
SIM_TEST(bulk_client_info, of_a_client_without_bssid_disassociates_nobody) {
    have_client(sim, on(NOWHERE));
    const bytes list = client_list({moved()});
    sim.controller(handed_over(list));
    sim.expect({handing_over(list, 1), client_lookup(CLIENT, true),
                client_update(CLIENT, client_overwritten(CLIENT, 0)), added(CLIENT, HOME, 300)});
    expect_stored(known_elsewhere(CLIENT_FLAG_FOREIGN));
}

SIM_TEST(bulk_client_info, goes_on_when_driver_portal_and_bridge_fail) {
    have_two_vaps();
    have_client(sim, on(BSSID));
    sim.fail_nth("ioctl", 1);
    sim.fail_nth("kx_ipc_send", 1);
    sim.fail_nth("kxbr_api_del_client", 1);
    const bytes list = client_list({moved()});
    sim.controller(handed_over(list));
    sim.expect({handing_over(list, 1), client_lookup(CLIENT, true), sta_disassoc_refused("ath0", BSSID, CLIENT, 0),
                failed(captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION, 1)),
                log(1, " Send Assoc to Captive application failed!"), client_deleted(CLIENT, 0),
                failed(bridge_del(CLIENT)), client_update(CLIENT, client_added(CLIENT, 0)), added(CLIENT, HOME, 300)});
}

SIM_TEST(bulk_client_info, logs_an_added_client_when_the_table_is_full) {
    have_full_table(sim);
    const bytes list = client_list({moved()});
    sim.controller(handed_over(list));
    sim.expect({handing_over(list, 1), client_lookup(CLIENT, false), client_update(CLIENT, client_refused(CLIENT)),
                added(CLIENT, HOME, 300)});
}

SIM_TEST(bulk_client_info, ends_at_the_end_of_the_buffer) {
    for (size_t size = 0; size < 4; size++) {
        at_buffer_end(first(big32(1), size), client_mgr_proc_bulk_info);
        sim.expect({LEAVES_BUFFER});
    }
    const bytes two = client_list({{CLIENT_2}, moved()});
    const bytes entries(two.begin() + 4, two.end());
    at_buffer_end(hex("ffffffff") + first(entries, 123), client_mgr_proc_bulk_info);
    sim.expect({log(3, "NUM OF CLIENT INFO: -1"), client_lookup(CLIENT_2, false),
                client_update(CLIENT_2, client_added(CLIENT_2, 0)), added(CLIENT_2, NOWHERE, 0), LEAVES_BUFFER});
    at_buffer_end(hex("00000002") + entries, client_mgr_proc_bulk_info);
    sim.expect({log(3, "NUM OF CLIENT INFO: 2"), client_lookup(CLIENT_2, true),
                client_update(CLIENT_2, client_overwritten(CLIENT_2, 0)), added(CLIENT_2, NOWHERE, 0),
                client_lookup(CLIENT, false), client_update(CLIENT, client_added(CLIENT, 1)),
                added(CLIENT, HOME, 300)});
}

// --- forgotten

SIM_TEST(client_removal, takes_the_client_off_everything_in_order) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT_2));
    EXPECT_EQ(1, have_client(sim, on(BSSID, CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST)));
    const bytes list = client_list({{CLIENT}});
    sim.controller(forgotten(list));
    sim.expect({
        received(CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, 66),
        log(3, "Received CLIENT_MGR_REMOVE_CLIENT_BULK_INFO"),
        log(3, "NUM OF DEL CLIENT INFO: 1"),
        client_lookup(CLIENT, true),
        sta_disassoc("ath0", BSSID, CLIENT, 2),
        captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION, 0),
        client_deleted(CLIENT, 1),
        log(3, "[client_mgr_proc_remove_cl_bulk_info] Deleting client to kxbr_api_del_client"),
        log(3, "Client 02:13:24:35:46:57"),
        bridge_del(CLIENT),
    });
    EXPECT_EQ(nullptr, stored_client(CLIENT));
}

SIM_TEST(client_removal, is_done_whatever_the_state_of_the_link) {
    have_two_vaps();
    whenever_not_ready([&] {
        have_client(sim, on(ELSEWHERE));
        const bytes list = client_list({moved(3)});
        sim.controller(forgotten(list));
        sim.expect({forgetting(list, 1), client_lookup(CLIENT, true), removed(CLIENT, 0)});
        EXPECT_EQ(nullptr, stored_client(CLIENT));
    });
}

SIM_TEST(client_removal, goes_on_behind_a_client_that_is_unknown) {
    have_client(sim, on(ELSEWHERE));
    const bytes list = client_list({{CLIENT_2}, {CLIENT}});
    sim.controller(forgotten(list));
    sim.expect({forgetting(list, 2), client_lookup(CLIENT_2, false), log(3, "Unable to find client 0e:1d:2c:3b:4a:59"),
                client_lookup(CLIENT, true), removed(CLIENT, 0)});
}

SIM_TEST(client_removal, of_count_0_does_nothing) {
    have_client(sim, on(ELSEWHERE));
    const bytes list = hex("00000000") + client_list({{CLIENT}});
    sim.controller(forgotten(list));
    sim.expect({forgetting(list, 0)});
}

SIM_TEST(client_removal, disassociates_on_every_vap_with_the_bssid) {
    have_two_vaps();
    set_mac(g_cfg.vaps[1].bssid, BSSID);
    vap_cfg &last = have_vap(15, "", BSSID, 0);
    set_text(last.captive_cfg, 32, "portal fifteen");
    set_full_ifname(last);
    g_cfg.num_vaps = 1;
    have_client(sim, on(BSSID));
    const bytes list = client_list({{CLIENT}});
    sim.controller(forgotten(list));
    sim.expect(
        {forgetting(list, 1), client_lookup(CLIENT, true), sta_disassoc("ath0", BSSID, CLIENT, 2),
         captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION, 1), sta_disassoc("ath1", BSSID, CLIENT, 2),
         captive_msg(CLIENT, "portal one", CAPTIVE_MSG_DISASSOCIATION, 1), sta_disassoc(FULL_IFNAME, BSSID, CLIENT, 2),
         captive_msg(CLIENT, "portal fifteen", CAPTIVE_MSG_DISASSOCIATION, 1), removed(CLIENT, 0)});
}

// Unlike in a hand-over, an all-zero BSSID is compared like any other, and unused entries hold it.
SIM_TEST(client_removal, of_a_client_without_bssid_disassociates_on_every_unused_vap) {
    have_two_vaps();
    have_client(sim, on(NOWHERE));
    const bytes list = client_list({{CLIENT}});
    sim.controller(forgotten(list));
    steps turned_away;
    for (int i = 2; i < 16; i++) {
        turned_away =
            turned_away + sta_disassoc("", NOWHERE, CLIENT, 2) + captive_msg(CLIENT, "", CAPTIVE_MSG_DISASSOCIATION, 1);
    }
    sim.expect({forgetting(list, 1), client_lookup(CLIENT, true), turned_away, removed(CLIENT, 0)});
}

SIM_TEST(client_removal, goes_on_when_driver_portal_and_bridge_fail) {
    have_two_vaps();
    have_client(sim, on(BSSID));
    sim.fail_nth("socket", 1);
    sim.fail_nth("kx_ipc_send", 1);
    sim.fail_nth("kxbr_api_del_client", 1);
    const bytes list = client_list({{CLIENT}});
    sim.controller(forgotten(list));
    sim.expect(
        {forgetting(list, 1), client_lookup(CLIENT, true), failed(did("socket")),
         log(3, "Sending disassoc to 02:13:24:35:46:57"), log(1, "client_mgr_sta_disassoc: Failed to disassoc STA"),
         syslog(LOG_USER | LOG_CRIT, "<clmgr> Send Disassociation b0:b1:b2:b3:b4:b5 -> 02:13:24:35:46:57 [reason 2]"),
         failed(captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_DISASSOCIATION, 1)),
         log(1, " Send Assoc to Captive application failed!"), failed(removed(CLIENT, 0))});
}

SIM_TEST(client_removal, ends_at_the_end_of_the_buffer) {
    have_client(sim, on(ELSEWHERE));
    for (size_t size = 0; size < 4; size++) {
        at_buffer_end(first(big32(1), size), client_mgr_proc_remove_cl_bulk_info);
        sim.expect({LEAVES_BUFFER});
    }
    const bytes two = client_list({{CLIENT_2}, {CLIENT}});
    const bytes entries(two.begin() + 4, two.end());
    at_buffer_end(hex("80000002") + first(entries, 123), client_mgr_proc_remove_cl_bulk_info);
    sim.expect({log(3, "NUM OF DEL CLIENT INFO: -2147483646"), client_lookup(CLIENT_2, false),
                log(3, "Unable to find client 0e:1d:2c:3b:4a:59"), LEAVES_BUFFER});
    at_buffer_end(hex("00000002") + entries, client_mgr_proc_remove_cl_bulk_info);
    sim.expect({log(3, "NUM OF DEL CLIENT INFO: 2"), client_lookup(CLIENT_2, false),
                log(3, "Unable to find client 0e:1d:2c:3b:4a:59"), client_lookup(CLIENT, true), removed(CLIENT, 0)});
}

}  // namespace sim
