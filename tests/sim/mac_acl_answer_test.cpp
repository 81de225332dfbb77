// The controller's verdicts, and the clock.
#include <algorithm>
#include <string>

#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "lifecycle.h"

namespace sim {
namespace {

const bytes DATA = hex("30313233343536373839");

bytes answer(uint32_t value, const bytes &data = DATA, uint32_t length = 10, std::string_view bssid = BSSID) {
    return big32(value) + mac_bytes(CLIENT) + mac_bytes(bssid) +
           hex("e0e1e2e3e4e5 e6e7e8e9 eaebeced eeeff0f1 f2f3f4f5") + big32(length) + data;
}

steps receipt(std::string_view word, size_t size = 52) {
    return received(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, size) + log(4, "Received CLIENT_MGR_CLIENT_ACL_AUTH_RESP msg ") +
           log(4, " Client 02:13:24:35:46:57 mac acl auth response (" + std::string(word) + ")");
}

steps pushed(uint32_t value, const bytes &data = DATA, uint32_t length = 10) {
    bytes field = data;
    field.resize(128);
    return did("socket") + driver_request(0x89fc, "ath0", host32(value) + host32(length) + field);
}

steps driver_told(uint32_t value, const bytes &data = DATA, uint32_t length = 10) {
    return pushed(value, data, length) + did("close") +
           log(4, "sending acl auth response to drv success for 02:13:24:35:46:57 ");
}

steps cached() {
    return acl_lookup(CLIENT, true) + log(3, "client found in client manager acl cache 02:13:24:35:46:57");
}

steps unexpected(int32_t state) {
    return log(1, "acl auth resp from controller for client  02:13:24:35:46:57 but client cached entry state is (" +
                      std::to_string(state) + ")");
}

int32_t now(const site &sim) { return static_cast<int32_t>(sim.wall_secs()); }

void expect_cached(int32_t state, int32_t timestamp) {
    const acl_cache_entry *entry = stored_verdict(CLIENT);
    ASSERT_NE(nullptr, entry);
    EXPECT_EQ(state, entry->state);
    EXPECT_EQ(timestamp, entry->timestamp);
    EXPECT_STREQ("02:13:24:35:46:57", entry->acl_mac_str);
}

}  // namespace

SIM_TEST(mac_acl_answer, reaches_driver_and_cache) {
    have_two_vaps();
    have_verdict(sim, CLIENT_2, ACL_STATE_PENDING, now(sim));
    EXPECT_EQ(1, have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim) - 7));
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP,
                              hex("00000001 021324354657 b0b1b2b3b4b5 a0a1a2a3a4a5 00000000 11121314 21222324"
                                  "31323334 0000000a 30313233343536373839")));
    sim.expect({
        received(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, 52),
        log(4, "Received CLIENT_MGR_CLIENT_ACL_AUTH_RESP msg "),
        log(4, " Client 02:13:24:35:46:57 mac acl auth response (ALLOWED)"),
        did("socket"),
        driver_request(0x89fc, "ath0", host32(1) + host32(10) + hex("30313233343536373839") + zeros(118)),
        did("close"),
        log(4, "sending acl auth response to drv success for 02:13:24:35:46:57 "),
        acl_lookup(CLIENT, true),
        log(3, "client found in client manager acl cache 02:13:24:35:46:57"),
        acl_update_at(CLIENT, 1),
    });
    expect_cached(1, now(sim));
}

SIM_TEST(mac_acl_answer, is_handed_on_as_it_is_and_cached_as_a_verdict) {
    have_two_vaps();
    for (uint32_t value : {0u, 1u, 2u, 7u, 0x01000000u, 0xffffffffu}) {
        SCOPED_TRACE(value);
        have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim) - 29);
        sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(value)));
        sim.expect(
            {receipt(value == 1 ? "ALLOWED" : "DENIED"), driver_told(value), cached(), acl_update_at(CLIENT, 0)});
        expect_cached(value == 1 ? 1 : 0, now(sim));
    }
}

SIM_TEST(mac_acl_answer, for_no_entry_reaches_the_driver_alone) {
    have_two_vaps();
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(1)));
    sim.expect({receipt("ALLOWED"), driver_told(1), acl_lookup(CLIENT, false)});
    EXPECT_EQ(nullptr, stored_verdict(CLIENT));
}

SIM_TEST(mac_acl_answer, for_an_outdated_entry_reaches_the_driver_alone) {
    have_two_vaps();
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim) - 30);
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(1)));
    sim.expect({receipt("ALLOWED"), driver_told(1), acl_lookup(CLIENT, false)});
    expect_cached(2, now(sim) - 30);
}

SIM_TEST(mac_acl_answer, to_a_question_already_answered_is_logged_and_taken) {
    have_two_vaps();
    for (int32_t state : {0, 1, 3, -1}) {
        have_verdict(sim, CLIENT, state, now(sim) - 5);
        sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(state == 0 ? 1 : 0)));
        sim.expect({receipt(state == 0 ? "ALLOWED" : "DENIED"), driver_told(state == 0 ? 1 : 0), cached(),
                    unexpected(state), acl_update_at(CLIENT, 0)});
        expect_cached(state == 0 ? 1 : 0, now(sim));
    }
}

SIM_TEST(mac_acl_answer, is_taken_whatever_the_state_of_the_link) {
    have_two_vaps();
    whenever_not_ready([&] {
        have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim));
        sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(1)));
        sim.expect({receipt("ALLOWED"), driver_told(1), cached(), acl_update_at(CLIENT, 0)});
    });
}

SIM_TEST(mac_acl_answer, for_a_bssid_that_is_not_ours_is_cached) {
    have_two_vaps();
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim) - 3);
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(1, DATA, 10, ELSEWHERE)));
    sim.expect({receipt("ALLOWED"), log(1, "Invalid ap bssid in acl auth resp msg"),
                log(1, "sending acl auth response to drv failed for 02:13:24:35:46:57 "), cached(),
                acl_update_at(CLIENT, 0)});
    expect_cached(1, now(sim));
}

SIM_TEST(mac_acl_answer, that_the_driver_refuses_is_cached) {
    have_two_vaps();
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim) - 3);
    sim.fail_nth("ioctl", 1);
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(0)));
    sim.expect({receipt("DENIED"), failed(pushed(0)), did("close"),
                log(1, "sending acl auth response to drv failed for 02:13:24:35:46:57 "), cached(),
                acl_update_at(CLIENT, 0)});
    expect_cached(0, now(sim));
}

SIM_TEST(mac_acl_answer, carries_at_most_128_bytes_of_data_and_the_length_it_was_given) {
    have_two_vaps();
    bytes data;
    for (int i = 0; i < 200; i++) {
        data.push_back(static_cast<uint8_t>(i + 1));
    }
    for (uint32_t length : {0u, 1u, 127u, 128u, 129u, 200u, 0xffffffffu}) {
        SCOPED_TRACE(length);
        sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(1, data, length)));
        sim.expect({receipt("ALLOWED", 242), driver_told(1, first(data, std::min(length, 128u)), length),
                    acl_lookup(CLIENT, false)});
    }
}

// Missing data reads as the zeros past the message.
SIM_TEST(mac_acl_answer, with_less_data_than_it_says_is_filled_with_zeros) {
    have_two_vaps();
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(1, DATA, 0xffffffff)));
    sim.expect({receipt("ALLOWED"), driver_told(1, DATA, 0xffffffff), acl_lookup(CLIENT, false)});
}

SIM_TEST(mac_acl_answer, reads_nothing_past_the_buffer) {
    have_two_vaps();
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, now(sim) - 3);
    const bytes whole = answer(1);
    for (size_t size = 0; size < whole.size(); size++) {
        SCOPED_TRACE(size);
        at_buffer_end(first(whole, size), client_mgr_proc_client_acl_auth_resp);
        sim.expect({LEAVES_BUFFER});
    }
    expect_cached(2, now(sim) - 3);
    bytes data(128, 0x77);
    at_buffer_end(answer(1, first(data, 127), 129), client_mgr_proc_client_acl_auth_resp);
    sim.expect({LEAVES_BUFFER});
    const steps allowed = log(4, " Client 02:13:24:35:46:57 mac acl auth response (ALLOWED)");
    at_buffer_end(whole, client_mgr_proc_client_acl_auth_resp);
    sim.expect({allowed, driver_told(1), cached(), acl_update_at(CLIENT, 0)});
    at_buffer_end(answer(1, data, 129), client_mgr_proc_client_acl_auth_resp);
    sim.expect({allowed, driver_told(1, data, 129), cached(), unexpected(1), acl_update_at(CLIENT, 0)});
}

SIM_TEST(mac_acl_answer, finds_its_body_behind_a_longer_record_header) {
    have_two_vaps();
    sim.controller(ctrlr_message({hex("1c 07 003b eeefed") + answer(1)}));
    sim.expect({log(3, "Received apcomm msg"), log(3, "Received recs 1 hdr_len 14 tot_len 73"),
                log(3, "Received rec_type 28 rec_hdr_len 7 rec_len 59"),
                log(4, "Received CLIENT_MGR_CLIENT_ACL_AUTH_RESP msg "),
                log(4, " Client 02:13:24:35:46:57 mac acl auth response (ALLOWED)"), driver_told(1),
                acl_lookup(CLIENT, false)});
}

// --- the clock

namespace {

bytes question() { return mac_bytes(CLIENT) + mac_bytes(BSSID) + big32(0); }

// The number of requests to the controller when a question arrives `age` seconds after a pending entry of time
// `then`. The log is off, because its lines show the time in the process's own clock type.
size_t asked_at(int32_t then, int64_t clock) {
    site sim(0);
    have_two_vaps();
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, then);
    sim.set_clock(clock);
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    const size_t count = sim.take_effects().size();
    sim.check_end();
    return count;
}

}  // namespace

TEST(mac_acl_clock, is_compared_right_across_a_wrap) {
    const int32_t then = 0x7ffffffb;
    EXPECT_EQ(0u, asked_at(then, 0x7ffffffbLL + 10));
    EXPECT_EQ(1u, asked_at(then, 0x7ffffffbLL + 11));
    EXPECT_EQ(1u, asked_at(then, 0x7ffffffbLL + 29));
    EXPECT_EQ(0u, asked_at(-5, 10 - 5));
    EXPECT_EQ(1u, asked_at(-5, 11 - 5));
}

TEST(mac_acl_clock, set_back_keeps_the_question_pending) {
    EXPECT_EQ(0u, asked_at(1700000000, 1700000000 - 1));
    EXPECT_EQ(0u, asked_at(1700000000, 1700000000 - 100000));
    EXPECT_EQ(0u, asked_at(1700000000, 1700000000 + 10));
    EXPECT_EQ(1u, asked_at(1700000000, 1700000000 + 11));
}

// The pending entry gets the time after the send, not the time of the question.
SIM_TEST(mac_acl_clock, is_read_again_when_the_entry_is_written) {
    have_two_vaps();
    const int32_t before = now(sim);
    sim.on("apcomm_send_msg", [&] { sim.set_clock(before + 4, 123); });
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, question());
    sim.forget();
    expect_cached(2, before + 4);
}

SIM_TEST(mac_acl_clock, is_read_again_when_a_verdict_is_cached) {
    have_two_vaps();
    const int32_t before = now(sim);
    have_verdict(sim, CLIENT, ACL_STATE_PENDING, before);
    sim.on("ioctl", [&] { sim.set_clock(before + 4, 123); });
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, answer(1)));
    sim.forget();
    expect_cached(1, before + 4);
}

}  // namespace sim
