#include <cstring>

#include "association_steps.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/dispatch/local_events.h"
#include "client_mgr/tables/client_tbl.h"
#include "tables.h"
#include "wire/mac_address.h"

namespace sim {

using namespace associating;

namespace {

const client_info &record_of(const char *mac) {
    const client_info *c = stored_client(mac);
    if (c == nullptr) {
        throw std::logic_error("the client is not in the table");
    }
    return *c;
}

}  // namespace

// --- association

SIM_TEST(association, reports_records_bridges_and_announces_a_client) {
    have_vaps();
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect(
        {RECEIVED, log(3, "Received association msg"),
         syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Association-Req 0a:1b:2c:3d:4e:50 -- 02:11:22:33:44:55"),
         client_lookup(STA, false), log(3, "Client 02:11:22:33:44:55"), log(3, "To BSSID 0a:1b:2c:3d:4e:50"),
         log(3, "Client IP 0x00000000"),
         to_controller(hex("01 0e 00"           // version, header length, type
                           "0001 00 0028"       // one record, 40 bytes
                           "a0 a1 a2 a3 a4 a5"  // this access point
                           "02 04 001a"         // association, 26 bytes
                           "02 11 22 33 44 55"  // client
                           "0a 1b 2c 3d 4e 50"  // BSSID
                           "00 00 00 00 00 00"  // no last BSSID
                           "00 00 00 00")),     // no address yet
         client_update(STA, client_added(STA, 0)),
         log(3, "[client_mgr_send_assoc_msg] Adding client to kxbr_api_add_client"), log(3, "Client 02:11:22:33:44:55"),
         log(3, "BSSID  0a:1b:2c:3d:4e:50"), log(3, "VLAN   4660"), log(3, "Client IP 0x00000000"),
         bridge_add(STA, "ath0", "eth0", 4660, "0.0.0.0", 0), client_lookup(STA, true),
         log(3, "Sending Assoc IPC to /kx/ipc/captive_app"),
         to_captive_portal(hex("000000a6 0000002c 00000001 021122334455") + padded("welcome", 34) + hex("00000001"))});
}

SIM_TEST(association, records_a_home_client) {
    have_vaps();
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    client_info expected = client_of(STA);
    set_text(expected.cl_mac_str, sizeof(expected.cl_mac_str), STA);
    set_mac(expected.home_bssid, BSSID);
    set_mac(expected.assoc_bssid, BSSID);
    expected.home_vlan = expected.assoc_vlan = 0x1234;
    expected.bssid_idx = 0;
    expected.flag = CLIENT_FLAG_LOCAL;
    EXPECT_EQ(client_data(expected), client_data(record_of(STA)));
    sim.forget();
}

SIM_TEST(association, is_dropped_silently_until_the_controller_can_be_reached) {
    have_vaps();
    for (uint32_t flags : {0U, 1U, 2U, 3U, 0xfffffffcU}) {
        for (uint32_t ip : {0U, 1U}) {
            if (flags == 3 && ip == 1) {
                continue;
            }
            g_cfg.status_flags = flags;
            g_cfg.ctrlr_ip = ip;
            bytes payload = NOTIFICATION;
            client_mgr_send_assoc_msg(payload.data());
            sim.expect_nothing();
            EXPECT_EQ(NOTIFICATION, payload);
            sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
            sim.expect({RECEIVED});
        }
    }
    EXPECT_EQ(std::vector<int>{}, used_clients());
}

SIM_TEST(association, to_an_unknown_bssid_is_an_alarm_and_nothing_else) {
    have_vaps();
    bytes payload = hex("00000000000000000000000000000000 021122334455 0a1b2c3d4eff e1e2e3e4");
    client_mgr_send_assoc_msg(payload.data());
    sim.expect({log(3, "Received association msg"),
                syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Association-Req 0a:1b:2c:3d:4e:ff -- 02:11:22:33:44:55"),
                syslog(LOG_USER | LOG_CRIT,
                       "<clmgr> Proc Association-Req 0a:1b:2c:3d:4e:ff -- 02:11:22:33:44:55 [Invalid BSS]"),
                log(1, "Invalid ap bssid in assoc msg")});
    EXPECT_EQ(std::vector<int>{}, used_clients());
}

SIM_TEST(association, writes_the_address_into_the_notification) {
    have_vaps();
    bytes payload = NOTIFICATION;
    client_mgr_send_assoc_msg(payload.data());
    EXPECT_EQ(first(NOTIFICATION, 28) + hex("00 00 00 00"), payload);
    client_info client = record_of(STA);
    set_bytes(client.cl_ip.bytes, hex("c0 a8 05 17"));
    client_tbl_mac_update(&client, 0);
    client_mgr_send_assoc_msg(payload.data());
    EXPECT_EQ(first(NOTIFICATION, 28) + hex("c0 a8 05 17"), payload);
    sim.forget();
}

SIM_TEST(association, repeated_on_the_same_vap_keeps_the_address) {
    have_vaps();
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    client_info client = record_of(STA);
    set_bytes(client.cl_ip.bytes, hex("c0 a8 05 17"));
    client_tbl_mac_update(&client, 0);
    sim.forget();
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(BSSID, STA), client_lookup(STA, true),
                log(3, "Client already present in same BSS, might be already assocaited 02:11:22:33:44:55"),
                update_lines(BSSID, "0xc0a80517"), to_controller(update_msg("02", "50", "c0a80517")),
                client_update(STA, client_overwritten(STA, 0)), bridged(BSSID, 0x1234, "0xc0a80517"),
                bridge_add(STA, "ath0", "eth0", 0x1234, "192.168.5.23", 0),
                captive_msg(STA, "welcome", CAPTIVE_MSG_ASSOCIATION, 1)});
    EXPECT_EQ(hex("c0 a8 05 17"), bytes(record_of(STA).cl_ip.bytes, record_of(STA).cl_ip.bytes + 4));
}

SIM_TEST(association, on_another_vap_starts_without_address) {
    have_vaps();
    client_info client = client_of(STA);
    client.bssid_idx = 1;
    set_bytes(client.cl_ip.bytes, hex("c0 a8 05 17"));
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(BSSID, STA), client_lookup(STA, true), update_lines(BSSID, "0x00000000"),
                to_controller(update_msg("02", "50", "00000000")), client_update(STA, client_overwritten(STA, 0)),
                bridged(BSSID, 0x1234, "0x00000000"), bridge_add(STA, "ath0", "eth0", 0x1234, "0.0.0.0", 0),
                captive_msg(STA, "welcome", CAPTIVE_MSG_ASSOCIATION, 1)});
    EXPECT_EQ(zeros(4), bytes(record_of(STA).cl_ip.bytes, record_of(STA).cl_ip.bytes + 4));
    EXPECT_EQ(0, record_of(STA).bssid_idx);
}

SIM_TEST(association, replaces_whatever_was_known_of_the_client) {
    have_vaps();
    client_info roamed = client_of(STA);
    set_mac(roamed.home_bssid, "06:01:02:03:04:05");
    roamed.home_vlan = 99;
    roamed.bssid_idx = 0;  // the same VAP, so the address is kept
    roamed.flag = CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST;
    memset(roamed.pmk, 0xbb, sizeof(roamed.pmk));
    set_bytes(roamed.cl_ip.bytes, hex("0a 01 02 03"));
    have_client(sim, roamed);
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    client_info expected = client_of(STA);
    set_text(expected.cl_mac_str, sizeof(expected.cl_mac_str), STA);
    set_mac(expected.home_bssid, BSSID);
    set_mac(expected.assoc_bssid, BSSID);
    expected.home_vlan = expected.assoc_vlan = 0x1234;
    set_bytes(expected.cl_ip.bytes, hex("0a 01 02 03"));
    expected.flag = CLIENT_FLAG_LOCAL;
    EXPECT_EQ(client_data(expected), client_data(record_of(STA)));
    sim.forget();
}

SIM_TEST(association, on_a_guest_vap_is_reported_twice_before_it_is_recorded) {
    have_vaps();
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, GUEST_NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(GUEST_BSSID, STA), client_lookup(STA, false),
                update_lines(GUEST_BSSID, "0x00000000"), to_controller(update_msg("02", "61", "00000000")),
                update_lines(GUEST_BSSID, "0x00000000"), to_controller(update_msg("19", "61", "00000000")),
                client_update(STA, client_added(STA, 0)), bridged(GUEST_BSSID, 20, "0x00000000"),
                bridge_add(STA, "ath1", "eth0", 20, "0.0.0.0", 0),
                captive_msg(STA, "guests only", CAPTIVE_MSG_ASSOCIATION, 0)});
    EXPECT_EQ(CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, record_of(STA).flag);
    EXPECT_EQ(1, record_of(STA).bssid_idx);
}

SIM_TEST(association, repeated_on_a_guest_vap_has_its_address_in_both_reports) {
    have_vaps();
    client_info client = client_of(STA);
    client.bssid_idx = 1;
    set_bytes(client.cl_ip.bytes, hex("c0 a8 05 17"));
    have_client(sim, client);
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, GUEST_NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(GUEST_BSSID, STA), client_lookup(STA, true),
                log(3, "Client already present in same BSS, might be already assocaited 02:11:22:33:44:55"),
                update_lines(GUEST_BSSID, "0xc0a80517"), to_controller(update_msg("02", "61", "c0a80517")),
                update_lines(GUEST_BSSID, "0xc0a80517"), to_controller(update_msg("19", "61", "c0a80517")),
                client_update(STA, client_overwritten(STA, 0)), bridged(GUEST_BSSID, 20, "0xc0a80517"),
                bridge_add(STA, "ath1", "eth0", 20, "192.168.5.23", 0),
                captive_msg(STA, "guests only", CAPTIVE_MSG_ASSOCIATION, 0)});
}

SIM_TEST(association, is_recorded_when_it_cannot_be_reported) {
    have_vaps();
    sim.fail_from("apcomm_send_msg", 1);
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, GUEST_NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(GUEST_BSSID, STA), client_lookup(STA, false),
                update_lines(GUEST_BSSID, "0x00000000"), failed(to_controller(update_msg("02", "61", "00000000"))),
                SEND_FAILED, update_lines(GUEST_BSSID, "0x00000000"),
                failed(to_controller(update_msg("19", "61", "00000000"))), SEND_FAILED,
                client_update(STA, client_added(STA, 0)), bridged(GUEST_BSSID, 20, "0x00000000"),
                bridge_add(STA, "ath1", "eth0", 20, "0.0.0.0", 0),
                captive_msg(STA, "guests only", CAPTIVE_MSG_ASSOCIATION, 0)});
    EXPECT_EQ(std::vector<int>{0}, used_clients());
}

SIM_TEST(association, goes_on_whatever_the_bridge_and_the_portal_answer) {
    have_vaps();
    sim.fail_nth("kxbr_api_add_client", 1);
    sim.fail_nth("kx_ipc_send", 1);
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(BSSID, STA), client_lookup(STA, false), update_lines(BSSID, "0x00000000"),
                to_controller(update_msg("02", "50", "00000000")), client_update(STA, client_added(STA, 0)),
                bridged(BSSID, 0x1234, "0x00000000"), failed(bridge_add(STA, "ath0", "eth0", 0x1234, "0.0.0.0", 0)),
                failed(captive_msg(STA, "welcome", CAPTIVE_MSG_ASSOCIATION, 1)),
                log(1, " Send Assoc to Captive application failed!")});
}

TEST(association, goes_on_when_the_table_is_full) {
    site sim(4);
    have_vaps();
    for (unsigned i = 0; i < 2048; i++) {
        client_info c = {};
        set_bytes(c.cl_mac, mac_number(i));
        client_tbl_mac_add(&c);
    }
    sim.forget();
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect(
        {RECEIVED, ACCEPTED, heard(BSSID, STA), client_lookup(STA, false), update_lines(BSSID, "0x00000000"),
         to_controller(update_msg("02", "50", "00000000")), client_update(STA, client_refused(STA)),
         bridged(BSSID, 0x1234, "0x00000000"), bridge_add(STA, "ath0", "eth0", 0x1234, "0.0.0.0", 0),
         client_lookup(STA, false), log(1, "Captive cl failed 02:11:22:33:44:55"),
         log(3, "Sending Assoc IPC to /kx/ipc/captive_app"),
         to_captive_portal(hex("000000a6 0000002c 00000001 021122334455") + padded("welcome", 34) + hex("00000001"))});
    sim.check_end();
}

SIM_TEST(association, prints_the_vlan_as_a_signed_number) {
    have_vaps();
    g_cfg.vaps[0].vlan = 0xfffffff0;
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(BSSID, STA), client_lookup(STA, false), update_lines(BSSID, "0x00000000"),
                to_controller(update_msg("02", "50", "00000000")), client_update(STA, client_added(STA, 0)),
                bridged(BSSID, -16, "0x00000000"), bridge_add(STA, "ath0", "eth0", 0xfffffff0, "0.0.0.0", 0),
                captive_msg(STA, "welcome", CAPTIVE_MSG_ASSOCIATION, 1)});
}

SIM_TEST(association, passes_on_texts_that_fill_their_fields) {
    have_vaps();
    set_full_ifname(g_cfg.vaps[0]);
    set_text(g_cfg.vaps[0].captive_cfg, 32, "abcdefghijklmnopqrstuvwxyz012345");
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(BSSID, STA), client_lookup(STA, false), update_lines(BSSID, "0x00000000"),
                to_controller(update_msg("02", "50", "00000000")), client_update(STA, client_added(STA, 0)),
                bridged(BSSID, 0x1234, "0x00000000"), bridge_add(STA, FULL_IFNAME, "eth0", 0x1234, "0.0.0.0", 0),
                captive_msg(STA, "abcdefghijklmnopqrstuvwxyz012345", CAPTIVE_MSG_ASSOCIATION, 1)});
}

// The receive buffer is zero past a message, so the missing end of a short one reads as zero.
SIM_TEST(association, names_no_vap_when_its_notification_is_cut) {
    have_vaps();
    for (size_t len = 0; len < 28; len++) {
        sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, first(NOTIFICATION, len));
        const bytes seen = first(NOTIFICATION, len) + zeros(28 - len);
        sim.expect({RECEIVED, ACCEPTED, invalid(mac_text(&seen[22]), mac_text(&seen[16]))});
    }
    for (size_t len = 28; len <= 32; len++) {
        client_tbl_init();
        sim.forget();
        sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, first(NOTIFICATION, len));
        sim.expect({RECEIVED, first_association(client_added(STA, 0))});
    }
}

// --- update message

SIM_TEST(client_update, carries_client_bssid_and_address) {
    const bytes payload = hex("c0c1c2c3c4c5c6c7c8c9cacbcccdcecf  101112131415  202122232425  30313233  40414243");
    for (const char *type : {"02", "03", "04", "19", "ff"}) {
        client_mgr_send_client_update_msg(payload.data(), hex(type)[0]);
        sim.expect({log(3, "Client 10:11:12:13:14:15"), log(3, "To BSSID 20:21:22:23:24:25"),
                    log(3, "Client IP 0x30313233"),
                    to_controller(hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5") + hex(type) +
                                  hex("04 001a  101112131415 202122232425 000000000000 30313233"))});
    }
}

SIM_TEST(client_update, that_cannot_be_sent_is_logged_and_not_repeated) {
    sim.fail_nth("apcomm_send_msg", 1, 1);
    client_mgr_send_client_update_msg(NOTIFICATION.data(), 4);
    sim.expect(
        {update_lines(BSSID, "0xe1e2e3e4"), failed(to_controller(update_msg("04", "50", "e1e2e3e4")), 1), SEND_FAILED});
}

}  // namespace sim
