#include "client_mgr/dispatch/ctrlr_dispatch.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <set>

#include "arrange.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "wire/ctrlr_messages.h"

namespace sim {
namespace {

constexpr uint32_t BUF_SIZE = CLIENT_MGR_BUF_SIZE;
constexpr const char *STA = "02:11:22:33:44:55";

const steps RECEIVED = log(3, "Received apcomm msg");
const steps LEAVES_BUFFER = log(1, "Record leaves the controller message buffer");

steps header_line(int recs, int hdr_len, int tot_len) {
    return log(3, "Received recs " + std::to_string(recs) + " hdr_len " + std::to_string(hdr_len) + " tot_len " +
                      std::to_string(tot_len));
}

steps record_line(int type, int hdr_len, int len) {
    return log(3, "Received rec_type " + std::to_string(type) + " rec_hdr_len " + std::to_string(hdr_len) +
                      " rec_len " + std::to_string(len));
}

steps invalid(int version, int msg_type) {
    return log(1, "Received Invalid version/type in msg hdr version " + std::to_string(version) + " msg_type " +
                      std::to_string(msg_type));
}

// A message of `recs` records, which begin right behind the header.
bytes message(uint16_t recs, const bytes &records) {
    return hex("01 0e 00") + big16(recs) + hex("00") + big16(static_cast<uint16_t>(14 + records.size())) +
           hex("c1c2c3c4c5c6") + records;
}

// A record of `type` with a body.
bytes record(uint8_t type, const bytes &body) {
    return bytes{type, 4} + big16(static_cast<uint16_t>(4 + body.size())) + body;
}

// One 62-byte entry for a client of an unknown VAP, with or without a key.
bytes client_entry_of(const char *mac, bool key) {
    return mac_bytes(mac) + hex("d0d1d2d3d4d5 0affffffff01 00000005 0a010203") + bytes(32, 0xab) + big32(key ? 1 : 0);
}

void have_station(site &sim) { have_client(sim, client_of(STA)); }

// The effects of the PMK answer for the station.
steps key_installed() {
    return client_lookup(STA, true) + client_update_at(STA, 0) + log(3, "called client_mgr_notify_hostapd") +
           hostapd_command(hex("00000009 00000081 0affffffff01 000000000000 021122334455") + bytes(32, 0xab) +
                           zeros(1038));
}

}  // namespace

// --- receiving

SIM_TEST(ctrlr_dispatch, logs_two_lines_for_a_message_without_records) {
    sim.controller(message(0, {}));
    sim.expect({RECEIVED, header_line(0, 14, 14)});
    sim.controller(message(0, record(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, hex("00000001"))));
    sim.expect({RECEIVED, header_line(0, 14, 22)});
}

SIM_TEST(ctrlr_dispatch, drops_a_message_of_another_version_or_type) {
    sim.controller(hex("02 0e 00 0001 00 0012 c1c2c3c4c5c6 63 04 0004"));
    sim.expect({RECEIVED, invalid(2, 0)});
    sim.controller(hex("01 0e ff 0001 00 0012 c1c2c3c4c5c6 63 04 0004"));
    sim.expect({RECEIVED, invalid(1, 255)});
    sim.controller(hex("01 0e 01 0001 00 0012 c1c2c3c4c5c6 63 04 0004"));
    sim.expect({RECEIVED, invalid(1, 1)});
    sim.controller(hex("00 0e 01 0001 00 0012 c1c2c3c4c5c6 63 04 0004"));
    sim.expect({RECEIVED, invalid(0, 1)});
    sim.controller(hex("01 0e 01"));
    sim.expect({RECEIVED, invalid(1, 1)});
}

SIM_TEST(ctrlr_dispatch, keeps_the_last_message_when_it_drops_one) {
    sim.controller(message(1, record(99, hex("11 22 33"))));
    const bytes kept(g_cfg.ctrlr_msg_buf, g_cfg.ctrlr_msg_buf + BUF_SIZE);
    sim.controller(hex("02 0e 00 0001 00 0012 c1c2c3c4c5c6 63 04 0004"));
    sim.controller(bytes{1, 14} + zeros(BUF_SIZE));
    EXPECT_EQ(kept, bytes(g_cfg.ctrlr_msg_buf, g_cfg.ctrlr_msg_buf + BUF_SIZE));
    sim.forget();
}

SIM_TEST(ctrlr_dispatch, fills_the_buffer_with_the_message_and_zeros) {
    memset(g_cfg.ctrlr_msg_buf, 0xa5, BUF_SIZE);
    memset(g_cfg.ipc_rx_buf, 0xa5, BUF_SIZE);
    const bytes msg = message(1, record(99, hex("11 22 33 44 55")));
    sim.controller(msg);
    EXPECT_EQ(msg + zeros(BUF_SIZE - msg.size()), bytes(g_cfg.ctrlr_msg_buf, g_cfg.ctrlr_msg_buf + BUF_SIZE));
    EXPECT_EQ(bytes(BUF_SIZE, 0xa5), bytes(g_cfg.ipc_rx_buf, g_cfg.ipc_rx_buf + BUF_SIZE)) << "what lies behind";
    sim.forget();
}

SIM_TEST(ctrlr_dispatch, erases_a_message_that_may_carry_keys_once_it_is_handled) {
    const std::set<int> with_keys = {ROAMING_MGR_CLIENT_BULK_INFO, CLIENT_MGR_PMK_FETCH_SUCCESS,
                                     CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, CLIENT_MGR_REMOVE_CLIENT_BULK_INFO,
                                     CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC};
    const bytes no_list = zeros(4);
    for (uint8_t type = 0; type < 30; type++) {
        const bool carries_keys = with_keys.count(type) != 0;
        const bytes msg = message(1, record(type, no_list)) + bytes(7, 0x5c);
        sim.controller(msg);
        EXPECT_EQ(carries_keys ? zeros(BUF_SIZE) : msg + zeros(BUF_SIZE - msg.size()),
                  bytes(g_cfg.ctrlr_msg_buf, g_cfg.ctrlr_msg_buf + BUF_SIZE))
            << "type " << int{type};
    }
    sim.forget();
}

SIM_TEST(ctrlr_dispatch, drops_a_message_of_fewer_than_3_bytes) {
    // A missing field is logged as 0.
    for (const auto &[msg, version] : {std::pair("", 0), {"01", 1}, {"01 0e", 1}, {"07", 7}, {"07 0e", 7}}) {
        sim.controller(hex(msg));
        sim.expect({RECEIVED, invalid(version, 0)});
    }
}

// All bytes of the header and of the records differ. The records begin after a header of 18 bytes.
SIM_TEST(ctrlr_dispatch, reads_a_message_cut_at_any_length_as_if_zeros_followed) {
    const bytes msg = hex("01 12 00 0002 77 a1b2 c1c2c3c4c5c6 e1e2e3e4  63 05 0007 f1f2f3  64 06 0809");
    for (size_t len = 3; len <= msg.size(); len++) {
        const bytes seen = first(msg, len) + zeros(BUF_SIZE - len);
        const auto word = [&](size_t at) { return seen[at] << 8 | seen[at + 1]; };
        sim.controller(first(msg, len));
        steps expected = RECEIVED + header_line(word(3), seen[1], word(6));
        size_t at = seen[1];
        for (int i = 0; i < word(3); i++) {
            expected = expected + record_line(seen[at], seen[at + 1], word(at + 2));
            at += static_cast<size_t>(word(at + 2));
        }
        sim.expect({expected});
    }
    // The whole message.
    sim.controller(msg);
    sim.expect({RECEIVED, header_line(2, 18, 41394), record_line(99, 5, 7), record_line(100, 6, 2057)});
}

SIM_TEST(ctrlr_dispatch, takes_a_message_that_fills_the_buffer_and_none_that_is_longer) {
    bytes msg = message(1, record(99, {})) + bytes(BUF_SIZE - 18, 0x5c);
    sim.controller(msg);
    sim.expect({RECEIVED, header_line(1, 14, 18), record_line(99, 4, 4)});
    EXPECT_EQ(0x5c, g_cfg.ctrlr_msg_buf[BUF_SIZE - 1]);
    msg.push_back(0x5c);
    g_cfg.ipc_rx_buf[0] = 0xa5;
    sim.controller(msg);
    sim.expect({RECEIVED, invalid(1, 0)});
    EXPECT_EQ(0xa5, g_cfg.ipc_rx_buf[0]);
    msg.resize(size_t{5} * BUF_SIZE);
    sim.controller(msg);
    sim.expect({RECEIVED, invalid(1, 0)});
}

SIM_TEST(ctrlr_dispatch, takes_messages_in_any_state_of_the_link) {
    for (uint32_t flags : {0U, 1U, 2U, 3U}) {
        g_cfg.status_flags = flags;
        sim.controller(message(1, record(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, hex("00000000"))));
        sim.expect({RECEIVED, header_line(1, 14, 22), record_line(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, 4, 8),
                    log(3, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC"), log(3, "NUM OF CLIENT INFO: 0")});
    }
}

// --- records

SIM_TEST(ctrlr_dispatch, logs_each_received_type_and_calls_its_handler) {
    const auto alone = [&](uint8_t type, const steps &handled) {
        sim.controller(message(1, record(type, zeros(64))));
        sim.expect({RECEIVED, header_line(1, 14, 82), record_line(type, 4, 68), handled});
    };
    const std::string nobody = "00:00:00:00:00:00";
    const steps no_clients = log(3, "NUM OF CLIENT INFO: 0");
    const steps not_ready = log(1, "Not yet ready to talk to controller");
    alone(9, log(3, "Received client move notify") + log(3, "Client MAC : " + nobody) + client_lookup(nobody, false) +
                 log(1, "Client not present in AP"));
    alone(10, log(3, "Received ROAMING_MGR_CLIENT_BULK_INFO") + no_clients);
    alone(14, log(3, "Received CLIENT_MGR_PMK_FETCH_SUCCESS") +
                  log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS") + no_clients);
    alone(15, log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS") + no_clients);
    alone(16, log(3, "Received CLIENT_MGR_REQ_BULK_INFO") + log(3, "Sending bulk vap config") + not_ready +
                  log(3, "Sending bulk info") + not_ready);
    alone(17, log(3, "Received CLIENT_MGR_REMOVE_CLIENT_BULK_INFO") + log(3, "NUM OF DEL CLIENT INFO: 0"));
    alone(24, log(3, "Received CLIENT_MGR_CLIENT_GUEST_AUTH") + client_lookup(nobody, false) +
                  log(1, "Invalid client " + nobody));
    alone(26, log(3, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC") + no_clients);
    alone(28, log(4, "Received CLIENT_MGR_CLIENT_ACL_AUTH_RESP msg ") +
                  log(4, " Client " + nobody + " mac acl auth response (DENIED)") +
                  log(1, "Invalid ap bssid in acl auth resp msg") +
                  log(1, "sending acl auth response to drv failed for " + nobody + " ") + acl_lookup(nobody, false));
}

SIM_TEST(ctrlr_dispatch, skips_any_other_type_silently) {
    const std::set<int> handled = {CLIENT_MGR_CLIENT_MOVE_NOTIFY,  ROAMING_MGR_CLIENT_BULK_INFO,
                                   CLIENT_MGR_PMK_FETCH_SUCCESS,   CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS,
                                   CLIENT_MGR_REQ_BULK_INFO,       CLIENT_MGR_REMOVE_CLIENT_BULK_INFO,
                                   CLIENT_MGR_CLIENT_GUEST_AUTH,   CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC,
                                   CLIENT_MGR_CLIENT_ACL_AUTH_RESP};
    for (int type = 0; type < 256; type++) {
        if (handled.count(type) != 0) {
            continue;
        }
        sim.controller(message(2, record(static_cast<uint8_t>(type), hex("ffffffff")) +
                                      record(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, hex("00000000"))));
        sim.expect({RECEIVED, header_line(2, 14, 30), record_line(type, 4, 8),
                    record_line(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, 4, 8),
                    log(3, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC"), log(3, "NUM OF CLIENT INFO: 0")});
    }
}

SIM_TEST(ctrlr_dispatch, handles_records_in_their_order) {
    sim.controller(message(2, record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, hex("00000000")) +
                                  record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, zeros(42))));
    sim.expect({RECEIVED, header_line(2, 14, 68), record_line(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, 4, 8),
                log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"), log(3, "NUM OF CLIENT INFO: 0"),
                record_line(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, 4, 46),
                log(4, "Received CLIENT_MGR_CLIENT_ACL_AUTH_RESP msg "),
                log(4, " Client 00:00:00:00:00:00 mac acl auth response (DENIED)"),
                log(1, "Invalid ap bssid in acl auth resp msg"),
                log(1, "sending acl auth response to drv failed for 00:00:00:00:00:00 "),
                acl_lookup("00:00:00:00:00:00", false)});
}

SIM_TEST(ctrlr_dispatch, handles_a_client_info_answer_without_a_pmk_answer_in_full) {
    have_station(sim);
    sim.controller(
        message(1, record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, hex("00000001") + client_entry_of(STA, true))));
    sim.expect({RECEIVED, header_line(1, 14, 84), record_line(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, 4, 70),
                log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"), log(3, "NUM OF CLIENT INFO: 1"),
                client_lookup(STA, true), log(1, "Invalid ap bssid in fetch client info msg")});
}

SIM_TEST(ctrlr_dispatch, takes_only_keys_from_a_pmk_answer) {
    have_station(sim);
    sim.controller(message(1, record(CLIENT_MGR_PMK_FETCH_SUCCESS, hex("00000001") + client_entry_of(STA, true))));
    sim.expect({RECEIVED, header_line(1, 14, 84), record_line(CLIENT_MGR_PMK_FETCH_SUCCESS, 4, 70),
                log(3, "Received CLIENT_MGR_PMK_FETCH_SUCCESS"),
                log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"), log(3, "NUM OF CLIENT INFO: 1"),
                key_installed()});
}

SIM_TEST(ctrlr_dispatch, takes_only_keys_from_a_client_info_answer_behind_a_pmk_answer) {
    have_station(sim);
    const bytes info = record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, hex("00000001") + client_entry_of(STA, true));
    // Other records may lie in between.
    sim.controller(message(4, record(CLIENT_MGR_PMK_FETCH_SUCCESS, hex("00000000")) + info + record(99, {}) + info));
    sim.expect(
        {RECEIVED, header_line(4, 14, 166), record_line(CLIENT_MGR_PMK_FETCH_SUCCESS, 4, 8),
         log(3, "Received CLIENT_MGR_PMK_FETCH_SUCCESS"), log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"),
         log(3, "NUM OF CLIENT INFO: 0"), record_line(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, 4, 70),
         log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"), log(3, "NUM OF CLIENT INFO: 1"), key_installed(),
         record_line(99, 4, 4), record_line(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, 4, 70),
         log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"), log(3, "NUM OF CLIENT INFO: 1"), key_installed()});
    // The next message starts afresh.
    sim.controller(message(1, info));
    sim.expect({RECEIVED, header_line(1, 14, 84), record_line(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, 4, 70),
                log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"), log(3, "NUM OF CLIENT INFO: 1"),
                client_lookup(STA, true), log(1, "Invalid ap bssid in fetch client info msg")});
}

// --- the walk trusts counts and lengths, within the buffer

SIM_TEST(ctrlr_dispatch, is_limited_by_neither_total_length_nor_message_length) {
    bytes msg = message(3, record(99, hex("11")));
    msg[6] = msg[7] = 0;
    sim.controller(msg);
    sim.expect({RECEIVED, header_line(3, 14, 0), record_line(99, 4, 5), record_line(0, 0, 0), record_line(0, 0, 0)});
}

SIM_TEST(ctrlr_dispatch, repeats_a_record_of_length_0_until_the_count_ends) {
    sim.controller(message(3, hex("1a 04 0000 00000000")));
    const steps again = record_line(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, 4, 0) +
                        log(3, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC") + log(3, "NUM OF CLIENT INFO: 0");
    sim.expect({RECEIVED, header_line(3, 14, 22), again, again, again});
}

SIM_TEST(ctrlr_dispatch, ends_after_the_largest_count) {
    if (sim.log_level == 4) {
        return;
    }
    sim.controller(hex("01 0e 00 ffff 00 000e c1c2c3c4c5c6"));
    const std::vector<std::string> effects = sim.take_effects();
    EXPECT_EQ(sim.log_level == 3 ? 2U + 65535 : 0U, effects.size());
}

SIM_TEST(ctrlr_dispatch, honours_a_header_length_below_14) {
    // The first record begins in the header, at its byte 3, and the second follows it.
    sim.controller(hex("01 03 00 0002 00 0019 c1c2c3c4c5c6  1a 04 0008 00000000"));
    sim.expect({RECEIVED, header_line(2, 3, 25), record_line(0, 2, 0), record_line(0, 2, 0)});
    // At byte 0 it is the header itself.
    sim.controller(hex("01 00 00 0001 00 000e c1c2c3c4c5c6"));
    sim.expect({RECEIVED, header_line(1, 0, 14), record_line(1, 0, 0)});
}

SIM_TEST(ctrlr_dispatch, honours_a_record_header_length_below_4) {
    // The body is the record's own header: the client is 18:00:00:06:01:02.
    sim.controller(message(1, hex("18 00 0006 0102")));
    sim.expect({RECEIVED, header_line(1, 14, 20), record_line(CLIENT_MGR_CLIENT_GUEST_AUTH, 0, 6),
                log(3, "Received CLIENT_MGR_CLIENT_GUEST_AUTH"), client_lookup("18:00:00:06:01:02", false),
                log(1, "Invalid client 18:00:00:06:01:02")});
}

SIM_TEST(ctrlr_dispatch, reads_a_record_header_at_the_very_end_of_the_buffer) {
    const bytes msg = message(2, record(99, zeros(BUF_SIZE - 14 - 4 - 4)) + record(100, {}));
    ASSERT_EQ(BUF_SIZE, msg.size());
    sim.controller(msg);
    sim.expect({RECEIVED, header_line(2, 14, 16384), record_line(99, 4, 16366), record_line(100, 4, 4)});
}

SIM_TEST(ctrlr_dispatch, ends_at_a_record_that_would_leave_the_buffer) {
    // The memory after the buffer holds records that the daemon would handle.
    for (uint32_t i = 0; i < BUF_SIZE; i += 4) {
        set_bytes(g_cfg.ipc_rx_buf + i, hex("1a 04 0004"));
    }
    for (int rec_len : {16367, 16368, 16369, 16370, 16371, 20000, 32754, 65535}) {
        bytes msg = message(3, hex("63 04") + big16(static_cast<uint16_t>(rec_len)));
        msg.resize(BUF_SIZE, 0x1a);
        sim.controller(msg);
        sim.expect({RECEIVED, header_line(3, 14, 18), record_line(99, 4, rec_len), LEAVES_BUFFER});
    }
}

// For each type with a body: a record whose header ends with the buffer.
SIM_TEST(ctrlr_dispatch, handles_no_body_that_would_leave_the_buffer) {
    const auto at_the_end = [&](uint8_t type, const steps &receipt) {
        sim.controller(message(2, record(99, zeros(BUF_SIZE - 14 - 4 - 4)) + record(type, {})));
        sim.expect({RECEIVED, header_line(2, 14, 16384), record_line(99, 4, 16366), record_line(type, 4, 4), receipt,
                    LEAVES_BUFFER});
    };
    at_the_end(CLIENT_MGR_CLIENT_MOVE_NOTIFY, log(3, "Received client move notify"));
    at_the_end(ROAMING_MGR_CLIENT_BULK_INFO, log(3, "Received ROAMING_MGR_CLIENT_BULK_INFO"));
    at_the_end(CLIENT_MGR_PMK_FETCH_SUCCESS, log(3, "Received CLIENT_MGR_PMK_FETCH_SUCCESS") +
                                                 log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"));
    at_the_end(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, log(3, "Received CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS"));
    at_the_end(CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, log(3, "Received CLIENT_MGR_REMOVE_CLIENT_BULK_INFO"));
    at_the_end(CLIENT_MGR_CLIENT_GUEST_AUTH, log(3, "Received CLIENT_MGR_CLIENT_GUEST_AUTH"));
    at_the_end(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, log(3, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC"));
    at_the_end(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, log(4, "Received CLIENT_MGR_CLIENT_ACL_AUTH_RESP msg "));
}

SIM_TEST(ctrlr_dispatch, handles_a_message_outside_the_controller_message_buffer) {
    const bytes msg = message(1, record(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, hex("00000000")));
    const std::unique_ptr<uint8_t[]> own(new uint8_t[msg.size()]);
    std::copy(msg.begin(), msg.end(), own.get());
    client_mgr_proc_ctrlr_msg(own.get());
    sim.expect({header_line(1, 14, 22), record_line(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, 4, 8),
                log(3, "Received CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC"), log(3, "NUM OF CLIENT INFO: 0")});
}

SIM_TEST(ctrlr_dispatch, reads_a_message_elsewhere_up_to_its_total_length) {
    bytes msg = message(2, record(99, {}) + record(100, {}));
    msg[7] = 21;
    client_mgr_proc_ctrlr_msg(msg.data());
    sim.expect({header_line(2, 14, 21), record_line(99, 4, 4), LEAVES_BUFFER});
}

}  // namespace sim
