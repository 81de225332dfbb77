#include <string>

#include "client_mgr/dispatch/local_events.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"
#include "tables.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

constexpr std::string_view PREVIOUS = "e0:e1:e2:e3:e4:e5";

bytes message(uint32_t sub_type, std::string_view bssid = BSSID, const bytes &pmk = pmk_bytes()) {
    return big32(sub_type) + mac_bytes(bssid) + mac_bytes(PREVIOUS) + mac_bytes(CLIENT) + pmk;
}

steps receipt() { return notified(KX_MSG_ID_CLIENT_MGR_PMK_INFO, "KX_MSG_ID_CLIENT_MGR_PMK_INFO rcvd"); }

steps key_line(std::string_view first_row, std::string_view second_row) {
    const std::string gap = "\n" + std::string(24, ' ');
    return log(3, "Cur PMK " + std::string(first_row) + gap + std::string(second_row) + gap);
}

steps added(std::string_view bssid) {
    return log(3, "HOSTAPD_PMK_ADD rcvd") + log(3, "Received PMK add msg") + log(3, "Client 02:13:24:35:46:57") +
           log(3, "Cur BSSID " + std::string(bssid)) +
           key_line("40 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F ",
                    "50 51 52 53 54 55 56 57 58 59 5A 5B 5C 5D 5E 5F ");
}

steps add_receipt(std::string_view bssid = BSSID) { return receipt() + added(bssid); }

steps fetch_receipt(std::string_view bssid = BSSID) {
    return receipt() + log(3, "HOSTAPD_PMK_FETCH rcvd") + log(3, "Received PMK fetch msg") +
           log(3, "Client 02:13:24:35:46:57") + log(3, "Cur BSSID " + std::string(bssid)) +
           log(3, "Prev BSSID e0:e1:e2:e3:e4:e5");
}

steps reported(std::string_view bssid = BSSID) {
    return to_controller(hex("01 0e 00 0001 00 0044 a0a1a2a3a4a5  0b 04 0036") + mac_bytes(CLIENT) + mac_bytes(bssid) +
                         zeros(6) + pmk_bytes());
}

// The record of a client that a PMK add creates.
client_info new_client() {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, BSSID_2);
    set_mac(client.assoc_bssid, BSSID_2);
    client.home_vlan = 200;
    client.assoc_vlan = 200;
    client.bssid_idx = 1;
    set_bytes(client.pmk, pmk_bytes());
    client.flag = CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK;
    return client;
}

client_info known_client(uint32_t flag) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, ELSEWHERE);
    set_mac(client.assoc_bssid, "f0:f1:f2:f3:f4:f5");
    client.home_vlan = 300;
    client.assoc_vlan = 400;
    set_bytes(client.cl_ip.bytes, hex("0a5b5c5d"));
    client.bssid_idx = 9;
    set_bytes(client.pmk, other_pmk_bytes());
    client.flag = flag;
    return client;
}

int handle(const bytes &msg) {
    bytes copy = msg;
    return client_mgr_handle_pmk_info(copy.data());
}

}  // namespace

SIM_TEST(pmk_info, has_its_key_erased_once_it_is_handled) {
    for (const bool ready : {false, true}) {
        if (ready) {
            ready_to_talk();
        }
        for (const uint32_t sub_type : {+HOSTAPD_PMK_FETCH, +HOSTAPD_PMK_ADD, 3U}) {
            bytes msg = message(sub_type);
            client_mgr_handle_pmk_info(msg.data());
            EXPECT_EQ(zeros(32), bytes(msg.begin() + 22, msg.end()));
            EXPECT_EQ(first(message(sub_type), 22), first(msg, 22));
        }
    }
    sim.forget();
}

SIM_TEST(pmk_info, is_dropped_silently_until_the_controller_can_be_reached) {
    have_two_vaps();
    have_client(sim, known_client(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK));
    for (uint32_t sub_type : {+HOSTAPD_PMK_FETCH, +HOSTAPD_PMK_ADD, 3u}) {
        whenever_not_ready([&] {
            sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(sub_type));
            sim.expect({receipt()});
            EXPECT_EQ(2, handle(message(sub_type)));
        });
    }
    expect_stored(known_client(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK));
}

SIM_TEST(pmk_info, of_another_sub_type_is_ignored) {
    have_two_vaps();
    for (uint32_t sub_type : {0u, 3u, 129u, 0x01000000u, 0x02000000u, 0x101u, 0xffffffffu}) {
        sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(sub_type));
        sim.expect({receipt()});
        EXPECT_EQ(2, handle(message(sub_type)));
        sim.expect_nothing();
    }
}

// --- add

SIM_TEST(pmk_add, of_an_unknown_client_reports_and_records_it) {
    have_two_vaps();
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, hex("00000002 c0c1c2c3c4c5 e0e1e2e3e4e5 021324354657"
                                                 "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f"));
    sim.expect({
        notified(KX_MSG_ID_CLIENT_MGR_PMK_INFO, "KX_MSG_ID_CLIENT_MGR_PMK_INFO rcvd"),
        log(3, "HOSTAPD_PMK_ADD rcvd"),
        log(3, "Received PMK add msg"),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "Cur BSSID c0:c1:c2:c3:c4:c5"),
        log(3,
            "Cur PMK 40 41 42 43 44 45 46 47 48 49 4A 4B 4C 4D 4E 4F \n                        "
            "50 51 52 53 54 55 56 57 58 59 5A 5B 5C 5D 5E 5F \n                        "),
        to_controller(hex("01 0e 00 0001 00 0044 a0a1a2a3a4a5  0b 04 0036  021324354657 c0c1c2c3c4c5 000000000000"
                          "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f")),
        client_lookup(CLIENT, false),
        log(3, "Client not present in local tbl, adding"),
        client_update(CLIENT, client_added(CLIENT, 0)),
    });
    expect_stored(new_client());
}

SIM_TEST(pmk_add, of_a_known_client_changes_its_key_alone) {
    have_two_vaps();
    have_client(sim, client_of(CLIENT_2));
    for (uint32_t flag :
         {0u, +CLIENT_FLAG_LOCAL, CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_GUEST,
          CLIENT_FLAG_LOCAL | CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST}) {
        EXPECT_EQ(1, have_client(sim, known_client(flag)));
        sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_ADD));
        sim.expect({add_receipt(), reported(), client_lookup(CLIENT, true),
                    log(3, "Client already present in local tbl"), client_update_at(CLIENT, 1)});
        client_info expected = known_client(flag | CLIENT_FLAG_PMK);
        set_bytes(expected.pmk, pmk_bytes());
        expect_stored(expected);
    }
}

SIM_TEST(pmk_add, that_cannot_be_reported_is_not_recorded) {
    have_two_vaps();
    sim.fail_nth("apcomm_send_msg", 1);
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_ADD));
    sim.expect({add_receipt(), failed(reported()), NOT_SENT, log(1, "Error sending Foreign Client Update")});
    EXPECT_EQ(nullptr, stored_client(CLIENT));
}

SIM_TEST(pmk_add, on_a_bssid_that_is_not_ours_is_reported_and_not_recorded) {
    have_two_vaps();
    have_client(sim, known_client(CLIENT_FLAG_LOCAL));
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_ADD, ELSEWHERE));
    sim.expect({add_receipt(ELSEWHERE), reported(ELSEWHERE), log(1, "Invalid ap bssid in assoc msg")});
    expect_stored(known_client(CLIENT_FLAG_LOCAL));
}

SIM_TEST(pmk_add, of_an_unknown_client_on_a_bssid_that_is_not_ours_is_reported_and_stores_nothing) {
    have_two_vaps();
    EXPECT_EQ(-1, handle(message(HOSTAPD_PMK_ADD, ELSEWHERE)));
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_ADD, ELSEWHERE));
    const steps reported_alone =
        to_controller(hex("01 0e 00 0001 00 0044 a0a1a2a3a4a5  0b 04 0036  021324354657 d0d1d2d3d4d5 000000000000"
                          "404142434445464748494a4b4c4d4e4f505152535455565758595a5b5c5d5e5f"));
    sim.expect({added(ELSEWHERE), reported_alone, log(1, "Invalid ap bssid in assoc msg"), add_receipt(ELSEWHERE),
                reported_alone, log(1, "Invalid ap bssid in assoc msg")});
    EXPECT_EQ(std::vector<int>(), used_clients());
}

SIM_TEST(pmk_add, with_a_full_table_is_reported) {
    have_two_vaps();
    have_full_table(sim);
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_ADD));
    sim.expect({add_receipt(), reported(), client_lookup(CLIENT, false),
                log(3, "Client not present in local tbl, adding"), client_update(CLIENT, client_refused(CLIENT))});
}

SIM_TEST(pmk_add, shows_a_key_of_zeros_in_two_rows) {
    have_two_vaps();
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_ADD, BSSID, zeros(32)));
    std::string row;
    for (int i = 0; i < 16; i++) {
        row += "00 ";
    }
    sim.expect({receipt(), log(3, "HOSTAPD_PMK_ADD rcvd"), log(3, "Received PMK add msg"),
                log(3, "Client 02:13:24:35:46:57"), log(3, "Cur BSSID b0:b1:b2:b3:b4:b5"), key_line(row, row),
                to_controller(hex("01 0e 00 0001 00 0044 a0a1a2a3a4a5  0b 04 0036") + mac_bytes(CLIENT) +
                              mac_bytes(BSSID) + zeros(38)),
                client_lookup(CLIENT, false), log(3, "Client not present in local tbl, adding"),
                client_update(CLIENT, client_added(CLIENT, 0))});
    EXPECT_EQ(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK, stored_client(CLIENT)->flag);
}

// --- fetch

SIM_TEST(pmk_fetch, is_answered_from_the_table) {
    have_two_vaps();
    have_client(sim, known_client(CLIENT_FLAG_LOCAL | CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK));
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_FETCH));
    sim.expect({
        notified(KX_MSG_ID_CLIENT_MGR_PMK_INFO, "KX_MSG_ID_CLIENT_MGR_PMK_INFO rcvd"),
        log(3, "HOSTAPD_PMK_FETCH rcvd"),
        log(3, "Received PMK fetch msg"),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "Cur BSSID b0:b1:b2:b3:b4:b5"),
        log(3, "Prev BSSID e0:e1:e2:e3:e4:e5"),
        client_lookup(CLIENT, true),
        log(3, "Client with PMK already present in local tbl"),
        log(3, "called client_mgr_notify_hostapd"),
        hostapd_command(hex("00000009 00000081 b0b1b2b3b4b5 e0e1e2e3e4e5 021324354657"
                            "606162636465666768696a6b6c6d6e6f707172737475767778797a7b7c7d7e7f") +
                        zeros(1038)),
    });
    expect_stored(known_client(CLIENT_FLAG_LOCAL | CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK));
}

SIM_TEST(pmk_fetch, writes_its_answer_over_the_message) {
    have_two_vaps();
    const client_info client = known_client(CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK);
    have_client(sim, client);
    bytes payload = message(HOSTAPD_PMK_FETCH);
    EXPECT_EQ(0, client_mgr_handle_pmk_fetch(payload.data()));
    EXPECT_EQ(big32(HOSTAPD_PMK_FETCH_RESP), first(payload, 4));
    EXPECT_EQ(bytes(client.pmk, client.pmk + sizeof client.pmk), bytes(payload.begin() + 22, payload.begin() + 54));
    sim.forget();
}

// The BSSID is not checked when the key is known.
SIM_TEST(pmk_fetch, from_a_bssid_that_is_not_ours_is_answered_from_the_table) {
    have_two_vaps();
    have_client(sim, known_client(CLIENT_FLAG_PMK));
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_FETCH, ELSEWHERE));
    sim.expect({fetch_receipt(ELSEWHERE), client_lookup(CLIENT, true),
                log(3, "Client with PMK already present in local tbl"), log(3, "called client_mgr_notify_hostapd"),
                hostapd_command(hex("00000009 00000081") + mac_bytes(ELSEWHERE) + mac_bytes(PREVIOUS) +
                                mac_bytes(CLIENT) + other_pmk_bytes() + zeros(1038))});
}

SIM_TEST(pmk_fetch, is_lost_when_hostapd_cannot_be_reached) {
    have_two_vaps();
    have_client(sim, known_client(CLIENT_FLAG_PMK));
    sim.fail_nth("hostapd_config_open_connection", 1);
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_FETCH));
    sim.expect({fetch_receipt(), client_lookup(CLIENT, true), log(3, "Client with PMK already present in local tbl"),
                log(3, "called client_mgr_notify_hostapd"), failed(did("hostapd_config_open_connection(hapdcfg, 0)")),
                log(1, " Connection to the Hostapd failed ")});
}

SIM_TEST(pmk_fetch, of_a_client_without_key_asks_the_controller) {
    have_two_vaps();
    for (uint32_t flag :
         {0u, +CLIENT_FLAG_LOCAL, CLIENT_FLAG_LOCAL | CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_GUEST,
          ~CLIENT_FLAG_PMK}) {
        have_client(sim, known_client(flag));
        sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_FETCH));
        sim.expect({
            fetch_receipt(),
            client_lookup(CLIENT, true),
            client_lookup(CLIENT, true),
            to_controller(hex("01 0e 00 0001 00 0044 a0a1a2a3a4a5  0c 04 0036  021324354657 b0b1b2b3b4b5") + zeros(38)),
        });
        expect_stored(known_client(flag));
    }
}

// The placeholder's home BSSID is the current one. The previous one is not used.
SIM_TEST(pmk_fetch, of_an_unknown_client_leaves_a_placeholder) {
    have_two_vaps();
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_FETCH, BSSID_2));
    sim.expect({fetch_receipt(BSSID_2), client_lookup(CLIENT, false), client_lookup(CLIENT, false),
                client_update(CLIENT, client_added(CLIENT, 0)), fetch_request(CLIENT_MGR_PMK_FETCH, CLIENT, BSSID_2)});
    client_info expected = new_client();
    set_bytes(expected.pmk, zeros(32));
    expected.flag = CLIENT_FLAG_FOREIGN;
    expect_stored(expected);
}

SIM_TEST(pmk_fetch, that_cannot_be_forwarded_is_logged) {
    have_two_vaps();
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_FETCH, ELSEWHERE));
    sim.expect({fetch_receipt(ELSEWHERE), client_lookup(CLIENT, false), log(1, "Invalid ap bssid in assoc msg")});
    sim.fail_nth("apcomm_send_msg", 1);
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, message(HOSTAPD_PMK_FETCH));
    sim.expect({fetch_receipt(), client_lookup(CLIENT, false), client_lookup(CLIENT, false),
                client_update(CLIENT, client_added(CLIENT, 0)),
                failed(fetch_request(CLIENT_MGR_PMK_FETCH, CLIENT, BSSID)), NOT_SENT,
                log(1, "Error sending Foreign Client Update")});
}

}  // namespace sim
