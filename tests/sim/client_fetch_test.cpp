// An unknown client roams in, and the daemon asks the controller about it.
#include "client_mgr/clients/client_fetch.h"

#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

constexpr std::string_view HOME = "e0:e1:e2:e3:e4:e5";
const bytes IP = hex("0a5b5c5d");

bytes notice(std::string_view bssid = BSSID) {
    return zeros(16) + mac_bytes(CLIENT) + mac_bytes(bssid) + mac_bytes(ELSEWHERE) + hex("f6f7f8f9");
}

steps asked() {
    return notified(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, "KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION rcvd") +
           client_lookup(CLIENT, false) + log(3, "Unable to find client, req cntlr");
}

steps placed(std::string_view mac = CLIENT) {
    return client_lookup(mac, false) + client_update(mac, client_added(mac, 0));
}

client_info placeholder() {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, ELSEWHERE);
    set_mac(client.assoc_bssid, BSSID);
    client.home_vlan = 100;
    client.assoc_vlan = 100;
    client.flag = CLIENT_FLAG_FOREIGN;
    return client;
}

}  // namespace

SIM_TEST(client_fetch, leaves_a_placeholder_and_asks_the_controller) {
    have_two_vaps();
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({
        notified(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, "KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION rcvd"),
        client_lookup(CLIENT, false),
        log(3, "Unable to find client, req cntlr"),
        client_lookup(CLIENT, false),
        client_update(CLIENT, client_added(CLIENT, 0)),
        to_controller(hex("01 0e 00 0001 00 0044 a0a1a2a3a4a5  0d 04 0036  021324354657 b0b1b2b3b4b5") + zeros(38)),
    });
    expect_stored(placeholder());
    // The handler does not change the notification.
    const uint8_t *payload = g_cfg.ipc_rx_buf + IPC_HDR_SIZE;
    EXPECT_EQ(notice(), bytes(payload, payload + 38));
}

SIM_TEST(client_fetch, takes_index_and_vlan_of_the_vap) {
    have_two_vaps();
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice(BSSID_2));
    sim.expect({asked(), placed(), fetch_request(CLIENT_MGR_CLIENT_INFO_FETCH, CLIENT, BSSID_2)});
    client_info expected = placeholder();
    set_mac(expected.assoc_bssid, BSSID_2);
    expected.home_vlan = 200;
    expected.assoc_vlan = 200;
    expected.bssid_idx = 1;
    expect_stored(expected);
}

SIM_TEST(client_fetch, for_a_bssid_that_is_not_ours_does_nothing) {
    have_two_vaps();
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice("cc:cd:ce:cf:ca:cb"));
    sim.expect({asked(), log(1, "Invalid ap bssid in assoc msg")});
    EXPECT_EQ(nullptr, stored_client(CLIENT));
}

SIM_TEST(client_fetch, keeps_the_placeholder_of_a_request_that_cannot_be_sent) {
    have_two_vaps();
    sim.fail_nth("apcomm_send_msg", 1);
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({asked(), placed(), failed(fetch_request(CLIENT_MGR_CLIENT_INFO_FETCH, CLIENT, BSSID)), NOT_SENT,
                log(1, "Error sending Foreign Client Update")});
    expect_stored(placeholder());
}

// The placeholder counts as a known client, as if the VLAN of VAP 0 were its home VLAN.
SIM_TEST(client_fetch, is_not_repeated_while_the_placeholder_is_there) {
    have_two_vaps();
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.forget();
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({notified(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, "KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION rcvd"),
                client_lookup(CLIENT, true),
                syslog(LOG_USER | LOG_INFO,
                       "<clmgr> Proc Reassociation-Req b0:b1:b2:b3:b4:b5 -- 02:13:24:35:46:57 "
                       "[Last BSS d0:d1:d2:d3:d4:d5]"),
                foreign_update(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, CLIENT, BSSID, ELSEWHERE, zeros(4)),
                client_update_at(CLIENT, 0), adding_to_bridge("client_mgr_send_assoc_foreign_msg", CLIENT, BSSID, 100),
                log(3, "Client IP 0x00000000"), bridge_add(CLIENT, "ath0", "eth0", 100, "0.0.0.0", 0),
                captive_msg(CLIENT, "portal zero", CAPTIVE_MSG_FOREIGN_ASSOCIATION, 1)});
}

SIM_TEST(client_fetch, asks_though_the_table_is_full) {
    have_two_vaps();
    have_full_table(sim);
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, notice());
    sim.expect({asked(), client_lookup(CLIENT, false), client_update(CLIENT, client_refused(CLIENT)),
                fetch_request(CLIENT_MGR_CLIENT_INFO_FETCH, CLIENT, BSSID)});
}

SIM_TEST(client_request, carries_the_type_it_is_given) {
    have_two_vaps();
    const bytes mac = mac_bytes(CLIENT);
    const bytes bssid = mac_bytes(BSSID);
    const bytes last = mac_bytes(ELSEWHERE);
    EXPECT_EQ(0, client_mgr_get_clinfo_frm_ctrlr(mac.data(), bssid.data(), last.data(), 12));
    sim.expect({
        placed(),
        to_controller(hex("01 0e 00 0001 00 0044 a0a1a2a3a4a5  0c 04 0036  021324354657 b0b1b2b3b4b5") + zeros(38)),
    });
    expect_stored(placeholder());
}

SIM_TEST(client_request, leaves_a_known_client_as_it_is) {
    have_two_vaps();
    client_info client = placeholder();
    set_mac(client.home_bssid, HOME);
    set_mac(client.assoc_bssid, BSSID_2);
    client.bssid_idx = 1;
    client.flag = CLIENT_FLAG_LOCAL;
    have_client(sim, client);
    const bytes bssid = mac_bytes(BSSID);
    EXPECT_EQ(0, client_mgr_get_clinfo_frm_ctrlr(client.cl_mac.bytes, bssid.data(), bssid.data(),
                                                 CLIENT_MGR_CLIENT_INFO_FETCH));
    sim.expect({client_lookup(CLIENT, true), fetch_request(CLIENT_MGR_CLIENT_INFO_FETCH, CLIENT, BSSID)});
    expect_stored(client);
}

// The callers check the link.
SIM_TEST(client_request, does_not_look_at_the_link) {
    have_two_vaps();
    g_cfg.status_flags = 0;
    g_cfg.ctrlr_ip = 0;
    const bytes mac = mac_bytes(CLIENT);
    const bytes bssid = mac_bytes(BSSID);
    EXPECT_EQ(0, client_mgr_get_clinfo_frm_ctrlr(mac.data(), bssid.data(), bssid.data(), CLIENT_MGR_PMK_FETCH));
    sim.expect({placed(), fetch_request(CLIENT_MGR_PMK_FETCH, CLIENT, BSSID)});
}

SIM_TEST(client_request, returns_whether_the_controller_was_asked) {
    have_two_vaps();
    const bytes mac = mac_bytes(CLIENT);
    const bytes bssid = mac_bytes(BSSID);
    const bytes unknown = mac_bytes(ELSEWHERE);
    EXPECT_EQ(-1, client_mgr_get_clinfo_frm_ctrlr(mac.data(), unknown.data(), bssid.data(), CLIENT_MGR_PMK_FETCH));
    sim.expect({log(1, "Invalid ap bssid in assoc msg")});
    sim.fail_nth("apcomm_send_msg", 1, 4);
    EXPECT_EQ(-1, client_mgr_get_clinfo_frm_ctrlr(mac.data(), bssid.data(), bssid.data(), CLIENT_MGR_PMK_FETCH));
    sim.expect({placed(), failed(fetch_request(CLIENT_MGR_PMK_FETCH, CLIENT, BSSID), 4), NOT_SENT,
                log(1, "Error sending Foreign Client Update")});
}

}  // namespace sim
