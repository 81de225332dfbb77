// The controller's answers about clients that roamed in: their home data, or their keys alone.
#include <string>

#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

constexpr std::string_view HOME = "e0:e1:e2:e3:e4:e5";
const bytes IP = hex("0a5b5c5d");

// The placeholder that a re-association from ELSEWHERE to VAP 0 leaves.
client_info placeholder(std::string_view mac = CLIENT) {
    client_info client = client_of(mac);
    set_mac(client.home_bssid, ELSEWHERE);
    set_mac(client.assoc_bssid, BSSID);
    client.home_vlan = 100;
    client.assoc_vlan = 100;
    client.flag = CLIENT_FLAG_FOREIGN;
    return client;
}

listed_client answer(std::string_view mac = CLIENT, uint32_t home_vlan = 100, uint32_t flags = 1) {
    return {mac, HOME, BSSID, home_vlan, IP, pmk_bytes(), flags};
}

client_info at_home(uint32_t flag, const bytes &pmk) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, BSSID);
    set_mac(client.assoc_bssid, BSSID);
    client.home_vlan = 100;
    client.assoc_vlan = 100;
    set_bytes(client.cl_ip.bytes, IP);
    set_bytes(client.pmk, pmk);
    client.flag = flag;
    return client;
}

steps info_receipt(const bytes &list, int count) {
    return received(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, list.size()) +
           log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS") +
           log(3, "NUM OF CLIENT INFO: " + std::to_string(count));
}

steps pmk_receipt(const bytes &list, int count) {
    return received(CLIENT_MGR_PMK_FETCH_SUCCESS, list.size()) + log(3, "Received CLIENT_MGR_PMK_FETCH_SUCCESS") +
           log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS") +
           log(3, "NUM OF CLIENT INFO: " + std::to_string(count));
}

steps restored(std::string_view mac, int slot) {
    return client_lookup(mac, true) + client_update(mac, client_overwritten(mac, slot));
}

// The re-association, handled again.
steps replayed(std::string_view mac, int slot) {
    return client_lookup(mac, true) +
           syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Reassociation-Req b0:b1:b2:b3:b4:b5 -- " + std::string(mac) +
                                           " [Last BSS d0:d1:d2:d3:d4:d5]") +
           foreign_update(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, mac, BSSID, ELSEWHERE, IP) + client_update_at(mac, slot) +
           adding_to_bridge("client_mgr_send_assoc_foreign_msg", mac, BSSID, 100) + log(3, "Client IP 0x0a5b5c5d") +
           bridge_add(mac, "ath0", "eth0", 100, "10.91.92.93", 0) +
           captive_msg(mac, "portal zero", CAPTIVE_MSG_FOREIGN_ASSOCIATION, 1);
}

bytes key_command(std::string_view bssid, std::string_view mac) {
    return hex("00000009 00000081") + mac_bytes(bssid) + zeros(6) + mac_bytes(mac) + pmk_bytes() + zeros(1038);
}

steps key_installed(std::string_view mac, int slot) {
    return client_update_at(mac, slot) + log(3, "called client_mgr_notify_hostapd") +
           hostapd_command(key_command(BSSID, mac));
}

}  // namespace

// --- home data

SIM_TEST(client_info_answer, completes_the_roam) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT_2));
    EXPECT_EQ(1, have_client(sim, placeholder()));
    const bytes list =
        hex("00000001 021324354657 e0e1e2e3e4e5 b0b1b2b3b4b5 00000064 0a5b5c5d"
            "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f 00000001");
    sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, list));
    sim.expect({
        received(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, 66),
        log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"),
        log(3, "NUM OF CLIENT INFO: 1"),
        client_lookup(CLIENT, true),
        client_update(CLIENT, client_overwritten(CLIENT, 1)),
        client_lookup(CLIENT, true),
        syslog(LOG_USER | LOG_INFO,
               "<clmgr> Proc Reassociation-Req b0:b1:b2:b3:b4:b5 -- 02:13:24:35:46:57 [Last BSS d0:d1:d2:d3:d4:d5]"),
        foreign_update(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, CLIENT, BSSID, ELSEWHERE, IP),
        client_update_at(CLIENT, 1),
        adding_to_bridge("client_mgr_send_assoc_foreign_msg", CLIENT, BSSID, 100),
        log(3, "Client IP 0x0a5b5c5d"),
        bridge_add(CLIENT, "ath0", "eth0", 100, "10.91.92.93", 0),
        captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_FOREIGN_ASSOCIATION, 1),
    });
    expect_stored(at_home(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK, pmk_bytes()));
}

SIM_TEST(client_info_answer, without_a_key_marks_one_all_the_same) {
    have_two_vaps();
    client_info before = placeholder();
    set_bytes(before.pmk, other_pmk_bytes());
    have_client(sim, before);
    const bytes list = client_list({answer(CLIENT, 100, 0xfffffffe)});
    sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, list));
    sim.expect({info_receipt(list, 1), restored(CLIENT, 0), replayed(CLIENT, 0)});
    expect_stored(at_home(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK, zeros(32)));
}

SIM_TEST(client_info_answer, for_another_home_vlan_tunnels_the_client) {
    have_two_vaps();
    have_client(sim, placeholder());
    const bytes list = client_list({answer(CLIENT, 0x01020304)});
    sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, list));
    sim.expect({info_receipt(list, 1), restored(CLIENT, 0), client_lookup(CLIENT, true),
                syslog(LOG_USER | LOG_INFO,
                       "<clmgr> Proc Reassociation-Req b0:b1:b2:b3:b4:b5 -- 02:13:24:35:46:57 "
                       "[Last BSS d0:d1:d2:d3:d4:d5]"),
                foreign_update(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, CLIENT, BSSID, ELSEWHERE, IP),
                client_update_at(CLIENT, 0),
                adding_to_bridge("client_mgr_send_assoc_foreign_msg", CLIENT, BSSID, 0x01020304),
                log(3, "Client IP 0x00000000"), bridge_add(CLIENT, "ath0", "tun0", 0x01020304, "0.0.0.0", 1),
                captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_FOREIGN_ASSOCIATION, 1)});
    client_info expected = at_home(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK, pmk_bytes());
    set_mac(expected.home_bssid, HOME);
    expected.home_vlan = 0x01020304;
    expect_stored(expected);
}

// The link went down in the meantime. The home data are kept for the next re-association, which sets the VAP index.
// Until then the index is that of VAP 0, although this client is on VAP 1.
SIM_TEST(client_info_answer, is_kept_though_the_roam_cannot_be_completed) {
    have_two_vaps();
    whenever_not_ready([&] {
        client_info client = placeholder();
        // The answer replaces all of these.
        client.bssid_idx = 9;
        client.home_vlan = 10;
        client.assoc_vlan = 11;
        client.flag = CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_GUEST;
        set_bytes(client.cl_ip.bytes, hex("08090a0b"));
        set_bytes(client.pmk, other_pmk_bytes());
        have_client(sim, client);
        listed_client on_vap_1 = answer();
        on_vap_1.bssid = BSSID_2;
        const bytes list = client_list({on_vap_1});
        sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, list));
        sim.expect({info_receipt(list, 1), restored(CLIENT, 0)});
        client_info expected = at_home(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, pmk_bytes());
        set_mac(expected.home_bssid, HOME);
        set_mac(expected.assoc_bssid, BSSID_2);
        expected.assoc_vlan = 200;
        expect_stored(expected);
    });
}

SIM_TEST(client_info_answer, of_count_0_does_nothing) {
    have_two_vaps();
    have_client(sim, placeholder());
    const bytes list = hex("00000000") + client_list({answer()});
    sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, list));
    sim.expect({info_receipt(list, 0)});
    expect_stored(placeholder());
}

SIM_TEST(client_info_answer, passes_over_clients_that_are_gone) {
    have_two_vaps();
    have_client(sim, placeholder());
    const bytes list = client_list({answer(CLIENT_2), answer()});
    sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, list));
    sim.expect({info_receipt(list, 2), client_lookup(CLIENT_2, false), restored(CLIENT, 0), replayed(CLIENT, 0)});
    EXPECT_EQ(nullptr, stored_client(CLIENT_2));
}

SIM_TEST(client_info_answer, ends_at_an_entry_of_a_bssid_that_is_not_ours) {
    have_two_vaps();
    const std::string third = "33:33:33:33:33:33";
    const std::string fourth = "44:44:44:44:44:44";
    have_client(sim, placeholder());
    have_client(sim, placeholder(CLIENT_2));
    have_client(sim, placeholder(third));
    have_client(sim, placeholder(fourth));
    listed_client stray = answer(third);
    stray.bssid = ELSEWHERE;
    const bytes list = client_list({answer(), answer(CLIENT_2), stray, answer(fourth)});
    sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, list));
    sim.expect({info_receipt(list, 4), restored(CLIENT, 0), replayed(CLIENT, 0), restored(CLIENT_2, 1),
                replayed(CLIENT_2, 1), client_lookup(third, true),
                log(1, "Invalid ap bssid in fetch client info msg")});
    expect_stored(placeholder(third));
    expect_stored(placeholder(fourth));
}

SIM_TEST(client_info_answer, ends_at_the_end_of_the_buffer) {
    have_two_vaps();
    have_client(sim, placeholder());
    have_client(sim, placeholder(CLIENT_2));
    const auto handler = [](uint8_t *rec) { EXPECT_EQ(0, client_mgr_proc_fetch_cl_info(rec, 0)); };
    for (size_t size = 0; size < 4; size++) {
        at_buffer_end(first(big32(1), size), handler);
        sim.expect({LEAVES_BUFFER});
    }
    const bytes two = client_list({answer(), answer(CLIENT_2)});
    at_buffer_end(first(two, two.size() - 1), handler);
    sim.expect({log(3, "NUM OF CLIENT INFO: 2"), restored(CLIENT, 0), replayed(CLIENT, 0), LEAVES_BUFFER});
    expect_stored(placeholder(CLIENT_2));
    at_buffer_end(hex("ffffffff") + bytes(two.begin() + 4, two.end()), handler);
    sim.forget();
    EXPECT_EQ(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK, stored_client(CLIENT_2)->flag);
}

// --- keys alone

SIM_TEST(pmk_answer, installs_the_key_and_nothing_else) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT_2));
    client_info before = placeholder();
    before.bssid_idx = 7;
    before.flag = CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_GUEST;
    set_bytes(before.cl_ip.bytes, hex("08090a0b"));
    EXPECT_EQ(1, have_client(sim, before));
    // Neither the home data nor the BSSID need be known here.
    const bytes list =
        hex("00000001 021324354657 e0e1e2e3e4e5 f0f1f2f3f4f5 01020304 0a5b5c5d"
            "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f 00000001");
    sim.controller(one_record(CLIENT_MGR_PMK_FETCH_SUCCESS, list));
    sim.expect({
        pmk_receipt(list, 1),
        client_lookup(CLIENT, true),
        client_update_at(CLIENT, 1),
        log(3, "called client_mgr_notify_hostapd"),
        hostapd_command(hex("00000009 00000081 f0f1f2f3f4f5 000000000000 021324354657"
                            "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f") +
                        zeros(1038)),
    });
    client_info expected = before;
    set_bytes(expected.pmk, pmk_bytes());
    expected.flag = CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST;
    expect_stored(expected);
}

SIM_TEST(pmk_answer, without_a_key_changes_nothing) {
    have_client(sim, placeholder());
    for (uint32_t flags : {0u, 2u, 0xfffffffeu}) {
        const bytes list = client_list({answer(CLIENT, 100, flags)});
        sim.controller(one_record(CLIENT_MGR_PMK_FETCH_SUCCESS, list));
        sim.expect({pmk_receipt(list, 1), client_lookup(CLIENT, true)});
    }
    expect_stored(placeholder());
}

SIM_TEST(pmk_answer, goes_on_behind_entries_it_cannot_use) {
    const std::string third = "33:33:33:33:33:33";
    have_client(sim, placeholder());
    have_client(sim, placeholder(third));
    const bytes list = client_list({answer(CLIENT_2), answer(CLIENT, 100, 0), answer(third)});
    sim.controller(one_record(CLIENT_MGR_PMK_FETCH_SUCCESS, list));
    sim.expect({pmk_receipt(list, 3), client_lookup(CLIENT_2, false), client_lookup(CLIENT, true),
                client_lookup(third, true), key_installed(third, 1)});
}

SIM_TEST(pmk_answer, is_taken_whatever_the_state_of_the_link) {
    whenever_not_ready([&] {
        have_client(sim, placeholder());
        const bytes list = client_list({answer()});
        sim.controller(one_record(CLIENT_MGR_PMK_FETCH_SUCCESS, list));
        sim.expect({pmk_receipt(list, 1), client_lookup(CLIENT, true), key_installed(CLIENT, 0)});
    });
}

SIM_TEST(pmk_answer, is_kept_though_hostapd_cannot_be_reached) {
    have_client(sim, placeholder());
    have_client(sim, placeholder(CLIENT_2));
    sim.fail_nth("hostapd_config_open_connection", 1);
    const bytes list = client_list({answer(), answer(CLIENT_2)});
    sim.controller(one_record(CLIENT_MGR_PMK_FETCH_SUCCESS, list));
    sim.expect({pmk_receipt(list, 2), client_lookup(CLIENT, true), client_update_at(CLIENT, 0),
                log(3, "called client_mgr_notify_hostapd"), failed(did("hostapd_config_open_connection(hapdcfg, 0)")),
                log(1, " Connection to the Hostapd failed "), client_lookup(CLIENT_2, true),
                key_installed(CLIENT_2, 1)});
    EXPECT_EQ(CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, stored_client(CLIENT)->flag);
}

// A client info answer after a PMK answer installs only keys as well.
SIM_TEST(pmk_answer, makes_the_rest_of_the_message_one) {
    have_two_vaps();
    have_client(sim, placeholder());
    sim.controller(ctrlr_message({ctrlr_record(CLIENT_MGR_PMK_FETCH_SUCCESS, big32(0)),
                                  ctrlr_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, client_list({answer()}))}));
    sim.expect({log(3, "Received apcomm msg"), log(3, "Received recs 2 hdr_len 14 tot_len 92"),
                log(3, "Received rec_type 14 rec_hdr_len 4 rec_len 8"), log(3, "Received CLIENT_MGR_PMK_FETCH_SUCCESS"),
                log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"), log(3, "NUM OF CLIENT INFO: 0"),
                log(3, "Received rec_type 15 rec_hdr_len 4 rec_len 70"),
                log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"), log(3, "NUM OF CLIENT INFO: 1"),
                client_lookup(CLIENT, true), key_installed(CLIENT, 0)});
}

SIM_TEST(pmk_answer, ends_at_the_end_of_the_buffer) {
    have_client(sim, placeholder());
    have_client(sim, placeholder(CLIENT_2));
    const auto handler = [](uint8_t *rec) { EXPECT_EQ(0, client_mgr_proc_fetch_cl_info(rec, 1)); };
    const bytes two = client_list({answer(), answer(CLIENT_2)});
    at_buffer_end(first(two, two.size() - 1), handler);
    sim.expect({log(3, "NUM OF CLIENT INFO: 2"), client_lookup(CLIENT, true), key_installed(CLIENT, 0), LEAVES_BUFFER});
    expect_stored(placeholder(CLIENT_2));
}

}  // namespace sim
