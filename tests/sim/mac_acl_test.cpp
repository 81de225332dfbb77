// The driver's questions are answered from the client table or the cache, or passed on to the controller.
#include "client_mgr/clients/mac_acl.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

const bytes DATA = hex("30313233343536373839");

bytes question(const bytes &data, uint32_t length, std::string_view bssid = BSSID) {
    return mac_bytes(CLIENT) + mac_bytes(bssid) + big32(length) + data;
}

bytes question() { return question(DATA, 10); }

steps receipt() { return notified(KX_MSG_ID_MAC_ACL_AUTH, "KX_MSG_ID_MAC_ACL_AUTH rcvd", 4); }

steps not_here() { return client_lookup(CLIENT, false); }

steps on_another_vap() {
    return client_lookup(CLIENT, true) + log(4, "client found in client manager list 02:13:24:35:46:57") +
           log(3, "acl auth from diff bss_id, do re-auth with controller");
}

steps cached() {
    return acl_lookup(CLIENT, true) + log(4, "client found in client manager acl cache 02:13:24:35:46:57");
}

steps pending() { return cached() + log(4, "acl auth already sent to controller for client  02:13:24:35:46:57 "); }

steps timed_out() { return log(4, "acl auth sent to controller for client 02:13:24:35:46:57 timed out. resend auth"); }

bytes request(const bytes &data, uint32_t length) {
    bytes field = data;
    field.resize(128);
    return hex("01 0e 00 0001 00 00bc a0a1a2a3a4a5  1b 04 00ae  ffffffff 021324354657 b0b1b2b3b4b5 a0a1a2a3a4a5"
               "00000000 11121314 21222324 31323334") +
           big32(length) + field;
}

steps asking() {
    return log(4,
               "client info not found in client manager list andin acl cache or auth is for diff bss id "
               "02:13:24:35:46:57send acl auth message to ap_mgr on controller ");
}

steps asked(const bytes &data = DATA, uint32_t length = 10) {
    return asking() + to_controller(request(data, length)) + log(4, " success in sending mac acl auth to ctrlr ");
}

steps verdict(uint32_t value, const bytes &data = DATA, uint32_t length = 10) {
    bytes field = data;
    field.resize(128);
    return did("socket") + driver_request(0x89fc, "ath0", host32(value) + host32(length) + field);
}

steps answered(uint32_t value) {
    return verdict(value) + did("close") + log(4, "sending acl auth response to drv successful for 02:13:24:35:46:57 ");
}

void have_acl_vaps() {
    have_two_vaps();
    g_cfg.vaps[0].radius_idx = 0x11121314;
    g_cfg.vaps[0].mac_acl_idx = 0x21222324;
    g_cfg.vaps[0].radius_acl_type = 0x31323334;
}

int32_t now(const site &sim) { return static_cast<int32_t>(sim.wall_secs()); }

void expect_cached(int32_t state, int32_t timestamp, const char *text = "02:13:24:35:46:57") {
    const acl_cache_entry *entry = stored_verdict(CLIENT);
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(state, entry->state);
    EXPECT_EQ(timestamp, entry->timestamp);
    EXPECT_STREQ(text, entry->acl_mac_str);
}

void have_client_on(site &sim, int32_t vap_idx) {
    client_info client = client_of(CLIENT);
    client.bssid_idx = vap_idx;
    have_client(sim, client);
}

}  // namespace

// --- the rows of the life of a cache entry

SIM_TEST(mac_acl, asks_the_controller_about_an_unknown_client) {
    have_acl_vaps();
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, hex("021324354657 b0b1b2b3b4b5 0000000a 30313233343536373839"));
    sim.expect({
        notified(KX_MSG_ID_MAC_ACL_AUTH, "KX_MSG_ID_MAC_ACL_AUTH rcvd", 4),
        client_lookup(CLIENT, false),
        acl_lookup(CLIENT, false),
        log(4,
            "client info not found in client manager list andin acl cache or auth is for diff bss id "
            "02:13:24:35:46:57send acl auth message to ap_mgr on controller "),
        to_controller(hex("01 0e 00 0001 00 00bc a0a1a2a3a4a5  1b 04 00ae"
                          "ffffffff 021324354657 b0b1b2b3b4b5 a0a1a2a3a4a5 00000000 11121314 21222324 31323334"
                          "0000000a 30313233343536373839") +
                      zeros(118)),
        log(4, " success in sending mac acl auth to ctrlr "),
        acl_update(CLIENT, acl_added(CLIENT, 0)),
    });
    expect_cached(2, now(sim));
}

SIM_TEST(mac_acl, names_the_vap_that_was_asked_about) {
    have_two_vaps();
    g_cfg.vaps[1].radius_idx = 0x41424344;
    g_cfg.vaps[1].mac_acl_idx = 0x51525354;
    g_cfg.vaps[1].radius_acl_type = 0x61626364;
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question(DATA, 10, BSSID_2));
    sim.expect({receipt(), not_here(), acl_lookup(CLIENT, false), asking(),
                to_controller(hex("01 0e 00 0001 00 00bc a0a1a2a3a4a5  1b 04 00ae"
                                  "ffffffff 021324354657 c0c1c2c3c4c5 a0a1a2a3a4a5 00000001 41424344 51525354 61626364"
                                  "0000000a 30313233343536373839") +
                              zeros(118)),
                log(4, " success in sending mac acl auth to ctrlr "), acl_update(CLIENT, acl_added(CLIENT, 0))});
}

SIM_TEST(mac_acl, waits_for_the_answer_for_11_seconds) {
    have_acl_vaps();
    const int32_t asked_at = now(sim);
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, asked_at);
    for (unsigned step : {0u, 5u, 5u}) {
        sim.advance(step);
        sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
        sim.expect({receipt(), not_here(), pending()});
        expect_cached(2, asked_at);
    }
    sim.advance(1);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), not_here(), pending(), timed_out(), asked(), acl_update_at(CLIENT, 0)});
    // An entry that is written in place has no text of its address.
    expect_cached(2, asked_at + 11, "");
}

SIM_TEST(mac_acl, asks_again_once_a_pending_entry_is_outdated) {
    have_acl_vaps();
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim) - 30);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect(
        {receipt(), not_here(), acl_lookup(CLIENT, false), asked(), acl_update(CLIENT, acl_overwritten(CLIENT, 0))});
    expect_cached(2, now(sim));
}

SIM_TEST(mac_acl, answers_with_a_cached_verdict) {
    have_acl_vaps();
    for (int32_t state : {0, 1}) {
        for (int32_t age : {0, 29}) {
            have_verdict(sim, CLIENT, state, now(sim) - age);
            sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
            sim.expect({receipt(), not_here(), cached(), answered(static_cast<uint32_t>(state))});
            expect_cached(state, now(sim) - age);
        }
        have_verdict(sim, CLIENT, state, now(sim) - 30);
        sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
        sim.expect({receipt(), not_here(), acl_lookup(CLIENT, false), asked(),
                    acl_update(CLIENT, acl_overwritten(CLIENT, 0))});
        expect_cached(2, now(sim));
    }
}

SIM_TEST(mac_acl, does_not_trust_a_verdict_for_another_vap) {
    have_acl_vaps();
    have_client_on(sim, 1);
    for (int32_t state : {0, 1}) {
        have_verdict(sim, CLIENT, state, now(sim) - 3);
        sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
        sim.expect({receipt(), on_another_vap(), cached(), asked(), acl_update_at(CLIENT, 0)});
        expect_cached(2, now(sim), "");
    }
}

SIM_TEST(mac_acl, asks_about_a_client_of_another_vap_that_is_not_cached) {
    have_acl_vaps();
    have_client_on(sim, -1);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect(
        {receipt(), on_another_vap(), acl_lookup(CLIENT, false), asked(), acl_update(CLIENT, acl_added(CLIENT, 0))});
    expect_cached(2, now(sim));
}

SIM_TEST(mac_acl, waits_for_the_answer_about_a_client_of_another_vap_as_well) {
    have_acl_vaps();
    have_client_on(sim, 1);
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim) - 10);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), on_another_vap(), pending()});
    expect_cached(2, now(sim) - 10);
    sim.advance(1);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), on_another_vap(), pending(), timed_out(), asked(), acl_update_at(CLIENT, 0)});
    expect_cached(2, now(sim), "");
}

SIM_TEST(mac_acl, drops_a_question_that_meets_an_unknown_state) {
    have_acl_vaps();
    for (int32_t state : {3, 0x7fffffff, -1, static_cast<int32_t>(0x80000000)}) {
        have_verdict(sim, CLIENT, state, now(sim));
        sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
        sim.expect({receipt(), not_here(), cached(),
                    log(3, "acl authentication state (" + std::to_string(state) + ") for client  02:13:24:35:46:57 ")});
        expect_cached(state, now(sim));
    }
}

SIM_TEST(mac_acl, allows_a_client_of_the_same_vap_whatever_is_cached) {
    have_acl_vaps();
    have_client_on(sim, 0);
    const steps allowed =
        client_lookup(CLIENT, true) + log(4, "client found in client manager list 02:13:24:35:46:57") + answered(1);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), allowed});
    EXPECT_EQ(nullptr, stored_verdict(CLIENT));
    for (int32_t state : {0, 2, 7}) {
        have_verdict(sim, CLIENT, state, now(sim) - 20);
        sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
        sim.expect({receipt(), allowed});
        expect_cached(state, now(sim) - 20);
    }
}

// --- what goes wrong

SIM_TEST(mac_acl, does_not_answer_for_a_bssid_that_is_not_ours) {
    have_acl_vaps();
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question(DATA, 10, ELSEWHERE));
    sim.expect({receipt(), log(1, "Invalid ap bssid in acl auth msg")});
    EXPECT_EQ(nullptr, stored_verdict(CLIENT));
}

SIM_TEST(mac_acl, waits_though_the_question_could_not_be_passed_on) {
    have_acl_vaps();
    sim.fail_nth("apcomm_send_msg", 1);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), not_here(), acl_lookup(CLIENT, false), asking(), failed(to_controller(request(DATA, 10))),
                NOT_SENT, log(1, "Error sending mac acl auth to ctrlr "), acl_update(CLIENT, acl_added(CLIENT, 0))});
    expect_cached(2, now(sim));
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), not_here(), pending()});
}

SIM_TEST(mac_acl, logs_that_the_driver_refused) {
    have_acl_vaps();
    have_client_on(sim, 0);
    sim.fail_nth("ioctl", 1, -2);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), client_lookup(CLIENT, true), log(4, "client found in client manager list 02:13:24:35:46:57"),
                failed(verdict(1), -2), did("close"),
                log(1, "sending acl auth response to drv failed for02:13:24:35:46:57 ")});
    sim.end_rules();
    sim.fail_nth("socket", 1);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), client_lookup(CLIENT, true), log(4, "client found in client manager list 02:13:24:35:46:57"),
                failed(did("socket")), log(1, "sending acl auth response to drv failed for02:13:24:35:46:57 ")});
}

SIM_TEST(mac_acl, takes_any_other_result_of_the_driver_for_success) {
    have_acl_vaps();
    have_client_on(sim, 0);
    sim.fail_nth("ioctl", 1, 1);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), client_lookup(CLIENT, true), log(4, "client found in client manager list 02:13:24:35:46:57"),
                failed(verdict(1), 1), did("close"),
                log(4, "sending acl auth response to drv successful for 02:13:24:35:46:57 ")});
}

SIM_TEST(mac_acl, asks_though_the_cache_is_full) {
    have_acl_vaps();
    for (unsigned i = 0; i < 2048; i++) {
        acl_cache_entry entry = {};
        set_bytes(entry.acl_mac, hex("aa aa aa aa") + big16(static_cast<uint16_t>(i)));
        client_mgr_acl_mac_add(&entry);
    }
    sim.forget();
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.expect({receipt(), not_here(), acl_lookup(CLIENT, false), asked(), acl_update(CLIENT, acl_refused(CLIENT))});
}

SIM_TEST(mac_acl, asks_whatever_the_state_of_the_link) {
    have_acl_vaps();
    whenever_not_ready([&] {
        sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
        sim.expect(
            {receipt(), not_here(), acl_lookup(CLIENT, false), asked(), acl_update(CLIENT, acl_added(CLIENT, 0))});
        client_mgr_acl_drv_mac_delete(0);
        sim.forget();
    });
}

// --- the opaque data

SIM_TEST(mac_acl, carries_at_most_128_bytes_of_data_and_the_length_it_was_given) {
    have_acl_vaps();
    bytes data;
    for (int i = 0; i < 200; i++) {
        data.push_back(static_cast<uint8_t>(i + 1));
    }
    for (uint32_t length : {0u, 1u, 127u, 128u, 129u, 200u, 0xffffffffu}) {
        SCOPED_TRACE(length);
        const bytes carried = first(data, std::min(length, 128u));
        sim.local(KX_MSG_ID_MAC_ACL_AUTH, question(data, length));
        sim.expect({receipt(), not_here(), acl_lookup(CLIENT, false), asked(carried, length),
                    acl_update(CLIENT, acl_added(CLIENT, 0))});
        have_verdict(sim, CLIENT, ACL_STATE_DENIED, now(sim));
        sim.local(KX_MSG_ID_MAC_ACL_AUTH, question(data, length));
        sim.expect({receipt(), not_here(), cached(), verdict(0, carried, length), did("close"),
                    log(4, "sending acl auth response to drv successful for 02:13:24:35:46:57 ")});
        client_mgr_acl_drv_mac_delete(0);
        sim.forget();
    }
}

SIM_TEST(mac_acl, cuts_an_interface_name_of_12_characters_at_its_end) {
    have_acl_vaps();
    set_full_ifname(g_cfg.vaps[0]);
    const bytes mac = mac_bytes(CLIENT);
    const bytes bssid = mac_bytes(BSSID);
    EXPECT_EQ(0, client_mgr_acl_auth_resp(7, mac.data(), bssid.data(), DATA.data(), 10));
    bytes field = DATA;
    field.resize(128);
    sim.expect({did("socket"), driver_request(0x89fc, FULL_IFNAME, host32(7) + host32(10) + field), did("close")});
}

SIM_TEST(mac_acl, writes_the_low_byte_of_the_record_type) {
    const bytes mac = mac_bytes(CLIENT);
    const bytes bssid = mac_bytes(BSSID);
    const bytes ap_mac = hex("717273747576");
    EXPECT_EQ(0, client_mgr_get_acl_info_frm_ctrlr(mac.data(), bssid.data(), ap_mac.data(), 0x01020304, 0x11121314,
                                                   0x21222324, 0x31323334, 10, DATA.data(), 0x55667788));
    sim.expect({to_controller(hex("01 0e 00 0001 00 00bc a0a1a2a3a4a5  88 04 00ae"
                                  "ffffffff 021324354657 b0b1b2b3b4b5 717273747576 01020304 11121314 21222324 31323334"
                                  "0000000a 30313233343536373839") +
                              zeros(118)),
                log(4, " success in sending mac acl auth to ctrlr ")});
}

}  // namespace sim
