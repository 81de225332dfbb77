
#include <cstring>

#include "arrange.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/dispatch/local_events.h"
#include "client_mgr/tables/client_tbl.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "tables.h"
#include "wire/mac_address.h"

namespace sim {
namespace {

constexpr const char *STA = "02:11:22:33:44:55";
constexpr const char *BSSID = "0a:1b:2c:3d:4e:50";
constexpr const char *GUEST_BSSID = "0a:1b:2c:3d:4e:61";

// 16 bytes of the radio stack's own, the client, the BSSID, an address that is not used.
const bytes NOTIFICATION = hex("c0c1c2c3c4c5c6c7c8c9cacbcccdcecf  021122334455  0a1b2c3d4e50  e1e2e3e4");
const bytes GUEST_NOTIFICATION = hex("c0c1c2c3c4c5c6c7c8c9cacbcccdcecf  021122334455  0a1b2c3d4e61  e1e2e3e4");

const steps RECEIVED =
    log(4, "Received Msg ID : 63") + log(4, "Notification message") + log(3, "KX_MSG_ID_CLIENT_ASSOCIATION rcvd");
const steps ACCEPTED = log(3, "Received association msg");
const steps SEND_FAILED = log(1, "APComm Unable to send data") + log(1, "Error sending Client Update");

// Two VAPs, the second for guests.
void have_vaps() {
    ready_to_talk();
    set_text(have_vap(0, "ath0", BSSID, 0x1234).captive_cfg, 32, "welcome");
    vap_cfg &guests = have_vap(1, "ath1", GUEST_BSSID, 20);
    guests.vap_attr = 0x80000000;
    set_text(guests.captive_cfg, 32, "guests only");
}

steps heard(const std::string &bssid, const std::string &client) {
    return syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Association-Req " + bssid + " -- " + client);
}

steps invalid(const std::string &bssid, const std::string &client) {
    return heard(bssid, client) +
           syslog(LOG_USER | LOG_CRIT, "<clmgr> Proc Association-Req " + bssid + " -- " + client + " [Invalid BSS]") +
           log(1, "Invalid ap bssid in assoc msg");
}

steps update_lines(const char *bssid, const char *ip) {
    return log(3, std::string("Client ") + STA) + log(3, std::string("To BSSID ") + bssid) +
           log(3, std::string("Client IP ") + ip);
}

// One client update message: type, and the BSSID's last byte and the address as digits.
bytes update_msg(const char *type, const char *bssid_end, const char *ip) {
    return hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5") + hex(type) + hex("04 001a 021122334455 0a1b2c3d4e") +
           hex(bssid_end) + hex("000000000000") + hex(ip);
}

steps bridged(const char *bssid, int vlan, const char *ip) {
    return log(3, "[client_mgr_send_assoc_msg] Adding client to kxbr_api_add_client") +
           log(3, std::string("Client ") + STA) + log(3, std::string("BSSID  ") + bssid) +
           log(3, "VLAN   " + std::to_string(vlan)) + log(3, std::string("Client IP ") + ip);
}

// A first association on the VAP for home clients, from the receipt's end on.
steps first_association(const steps &table) {
    return ACCEPTED + heard(BSSID, STA) + client_lookup(STA, false) + update_lines(BSSID, "0x00000000") +
           to_controller(update_msg("02", "50", "00000000")) + client_update(STA, table) +
           bridged(BSSID, 0x1234, "0x00000000") + bridge_add(STA, "ath0", "eth0", 0x1234, "0.0.0.0", 0) +
           captive_msg(STA, "welcome", CAPTIVE_MSG_ASSOCIATION, 1);
}

bytes entry(const char *mac, const char *bssid) {
    // The address, the home BSSID, the BSSID; VLAN, address, key and flags are of no concern here.
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

SIM_TEST(association, the_record_is_that_of_a_home_client) {
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

SIM_TEST(association, is_dropped_silently_before_the_controller_can_be_talked_to) {
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
    roamed.bssid_idx = 0;  // and so its address counts, wherever the record came from
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

SIM_TEST(association, is_recorded_although_the_controller_did_not_hear_of_it) {
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

SIM_TEST(association, a_vlan_is_printed_as_a_signed_number) {
    have_vaps();
    g_cfg.vaps[0].vlan = 0xfffffff0;
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(BSSID, STA), client_lookup(STA, false), update_lines(BSSID, "0x00000000"),
                to_controller(update_msg("02", "50", "00000000")), client_update(STA, client_added(STA, 0)),
                bridged(BSSID, -16, "0x00000000"), bridge_add(STA, "ath0", "eth0", 0xfffffff0, "0.0.0.0", 0),
                captive_msg(STA, "welcome", CAPTIVE_MSG_ASSOCIATION, 1)});
}

SIM_TEST(association, texts_that_fill_their_fields_are_handed_on_whole) {
    have_vaps();
    set_full_ifname(g_cfg.vaps[0]);
    set_text(g_cfg.vaps[0].captive_cfg, 32, "abcdefghijklmnopqrstuvwxyz012345");
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, NOTIFICATION);
    sim.expect({RECEIVED, ACCEPTED, heard(BSSID, STA), client_lookup(STA, false), update_lines(BSSID, "0x00000000"),
                to_controller(update_msg("02", "50", "00000000")), client_update(STA, client_added(STA, 0)),
                bridged(BSSID, 0x1234, "0x00000000"), bridge_add(STA, FULL_IFNAME, "eth0", 0x1234, "0.0.0.0", 0),
                captive_msg(STA, "abcdefghijklmnopqrstuvwxyz012345", CAPTIVE_MSG_ASSOCIATION, 1)});
}

// The receive buffer is zero past a message: what is missing of a short one is zero.
SIM_TEST(association, a_notification_cut_at_any_length_names_no_vap) {
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

SIM_TEST(association, an_update_message_carries_client_bssid_and_address) {
    const bytes payload = hex("c0c1c2c3c4c5c6c7c8c9cacbcccdcecf  101112131415  202122232425  30313233  40414243");
    for (const char *type : {"02", "03", "04", "19", "ff"}) {
        client_mgr_send_client_update_msg(payload.data(), hex(type)[0]);
        sim.expect({log(3, "Client 10:11:12:13:14:15"), log(3, "To BSSID 20:21:22:23:24:25"),
                    log(3, "Client IP 0x30313233"),
                    to_controller(hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5") + hex(type) +
                                  hex("04 001a  101112131415 202122232425 000000000000 30313233"))});
    }
}

SIM_TEST(association, an_update_that_cannot_be_sent_is_logged_and_not_repeated) {
    sim.fail_nth("apcomm_send_msg", 1, 1);
    client_mgr_send_client_update_msg(NOTIFICATION.data(), 4);
    sim.expect(
        {update_lines(BSSID, "0xe1e2e3e4"), failed(to_controller(update_msg("04", "50", "e1e2e3e4")), 1), SEND_FAILED});
}

// --- treat as association

SIM_TEST(association, a_list_of_no_clients_does_nothing) {
    have_vaps();
    sim.controller(treat_as_assoc(hex("00000000"), entry("021122334455", "0a1b2c3d4e50")));
    sim.expect({walked(70, 84), log(3, "NUM OF CLIENT INFO: 0")});
}

SIM_TEST(association, every_client_of_a_list_associates) {
    have_vaps();
    sim.controller(treat_as_assoc(hex("00000003"), entry("021122334455", "0a1b2c3d4e50") +
                                                       entry("060708090a0b", "0a1b2c3d4eff") +
                                                       entry("021122334455", "0a1b2c3d4e61")));
    sim.expect({walked(194, 208), log(3, "NUM OF CLIENT INFO: 3"), first_association(client_added(STA, 0)), ACCEPTED,
                invalid("0a:1b:2c:3d:4e:ff", "06:07:08:09:0a:0b"),
                // Also one that is already present, here on another VAP.
                ACCEPTED, heard(GUEST_BSSID, STA), client_lookup(STA, true), update_lines(GUEST_BSSID, "0x00000000"),
                to_controller(update_msg("02", "61", "00000000")), update_lines(GUEST_BSSID, "0x00000000"),
                to_controller(update_msg("19", "61", "00000000")), client_update(STA, client_overwritten(STA, 0)),
                bridged(GUEST_BSSID, 20, "0x00000000"), bridge_add(STA, "ath1", "eth0", 20, "0.0.0.0", 0),
                captive_msg(STA, "guests only", CAPTIVE_MSG_ASSOCIATION, 0)});
}

SIM_TEST(association, a_list_that_comes_too_early_is_counted_and_dropped) {
    have_vaps();
    g_cfg.ctrlr_ip = 0;
    sim.controller(treat_as_assoc(hex("00000001"), entry("021122334455", "0a1b2c3d4e50")));
    sim.expect({walked(70, 84), log(3, "NUM OF CLIENT INFO: 1")});
}

SIM_TEST(association, the_list_begins_where_the_records_header_ends) {
    have_vaps();
    // A record header of 7 bytes: nothing behind it is aligned.
    bytes record = hex("1a 07 0049 eeeeee 00000001") + entry("021122334455", "0a1b2c3d4e50");
    EXPECT_EQ(0, client_mgr_treat_unkn_as_assoc(record.data()));
    sim.expect({log(3, "NUM OF CLIENT INFO: 1"), first_association(client_added(STA, 0))});
}

SIM_TEST(association, the_count_of_a_list_is_trusted_over_the_records_length) {
    have_vaps();
    bytes msg = treat_as_assoc(hex("00000001"), entry("021122334455", "0a1b2c3d4e50"));
    msg[17] = 8;  // the record ends behind the count
    sim.controller(msg);
    sim.expect({walked(8, 84), log(3, "NUM OF CLIENT INFO: 1"), first_association(client_added(STA, 0))});
}

SIM_TEST(association, the_count_of_a_list_is_printed_as_a_signed_number) {
    // All entries behind the message are zero: no VAP has that BSSID, and the last entry ends the list.
    ready_to_talk();
    g_cfg.ctrlr_ip = 0;
    sim.controller(treat_as_assoc(hex("fffffffe"), {}));
    sim.expect(
        {walked(8, 22), log(3, "NUM OF CLIENT INFO: -2"), log(1, "Record leaves the controller message buffer")});
}

namespace {

// A message that fills the buffer: its second record, of type 26, starts `room` bytes before the buffer's end.
bytes with_record_at_the_end(size_t room, const bytes &record) {
    const auto skipped = static_cast<uint16_t>(CLIENT_MGR_BUF_SIZE - 14 - room);
    return hex("01 0e 00 0002 00 4000") + zeros(6) + hex("63 04") + big16(skipped) + zeros(skipped - 4U) +
           first(record, room);
}

// What lies behind the buffer goes on like the record that leaves it.
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

SIM_TEST(association, a_list_is_followed_to_the_end_of_the_buffer_and_not_beyond) {
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
