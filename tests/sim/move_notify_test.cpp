#include <algorithm>
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_records.h"
#include "client_mgr/tables/client_tbl.h"
#include "lifecycle.h"

namespace sim {
namespace {

constexpr std::string_view OLD = "e0:e1:e2:e3:e4:e5";
constexpr std::string_view NEW = "f0:f1:f2:f3:f4:f5";

bytes body(uint8_t kind, uint8_t vlan = 44) {
    return bytes{kind} + mac_bytes(CLIENT) + mac_bytes(OLD) + mac_bytes(NEW) + bytes{vlan};
}

steps receipt(size_t size = 20) {
    return received(CLIENT_MGR_CLIENT_MOVE_NOTIFY, size) + log(3, "Received client move notify") +
           log(3, "Client MAC : 02:13:24:35:46:57");
}

steps disassociated(std::string_view ifname, std::string_view bssid) {
    return log(3, "VAP If   : " + std::string(ifname)) + sta_disassoc(ifname, bssid, CLIENT, 2);
}

steps removed(std::string_view text = "") {
    return client_deleted(CLIENT, 0) + deleting_from_bridge("client_mgr_process_move_notify", CLIENT) +
           captive_msg_of_stranger(CLIENT, text, CAPTIVE_MSG_DISASSOCIATION) + bridge_del(CLIENT);
}

steps tunnelled(int vlan) {
    return bridge_add(CLIENT, "tun0", "eth0", static_cast<uint32_t>(vlan), "0.0.0.0", 0) + client_update_at(CLIENT, 0) +
           adding_to_bridge("client_mgr_process_move_notify", CLIENT, NEW, vlan);
}

client_info on(std::string_view bssid, uint32_t flag = CLIENT_FLAG_LOCAL, int32_t home_vlan = 100) {
    client_info client = client_of(CLIENT);
    set_mac(client.home_bssid, BSSID);
    set_mac(client.assoc_bssid, bssid);
    client.home_vlan = home_vlan;
    client.assoc_vlan = 100;
    set_bytes(client.cl_ip.bytes, hex("0a5b5c5d"));
    client.bssid_idx = 3;
    set_bytes(client.pmk, pmk_bytes());
    client.flag = flag;
    return client;
}

client_info moved(client_info client, int32_t vlan, uint32_t flag) {
    set_mac(client.assoc_bssid, NEW);
    client.assoc_vlan = vlan;
    client.flag = flag;
    return client;
}

// A message outside the controller message buffer.
int process(const bytes &record_body) {
    bytes record = ctrlr_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, record_body);
    return client_mgr_process_move_notify(record.data());
}

}  // namespace

SIM_TEST(move_notify, is_not_read_past_the_controller_message_buffer) {
    uint8_t *end = g_cfg.ctrlr_msg_buf + sizeof(g_cfg.ctrlr_msg_buf);
    for (std::ptrdiff_t left : {4, 5, 6}) {
        EXPECT_EQ(-1, client_mgr_process_move_notify(end - left));
        sim.expect({LEAVES_BUFFER});
    }
}

SIM_TEST(move_notify, below_the_controller_message_buffer_is_as_long_as_its_header_has_it) {
    const bytes record = ctrlr_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(1));
    uint8_t *rec = reinterpret_cast<uint8_t *>(&g_cfg) + offsetof(client_mgr_cfg, ctrlr_msg_buf) - record.size();
    std::copy(record.begin(), record.end(), rec);
    EXPECT_EQ(-1, client_mgr_process_move_notify(rec));
    sim.expect(
        {log(3, "Client MAC : 02:13:24:35:46:57"), client_lookup(CLIENT, false), log(1, "Client not present in AP")});
}

SIM_TEST(move_notify, right_behind_the_controller_message_buffer_is_as_long_as_its_header_has_it) {
    const bytes record = ctrlr_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(1));
    static_assert(offsetof(client_mgr_cfg, ipc_rx_buf) ==
                  offsetof(client_mgr_cfg, ctrlr_msg_buf) + CLIENT_MGR_BUF_SIZE);
    std::copy(record.begin(), record.end(), g_cfg.ipc_rx_buf);
    EXPECT_EQ(-1, client_mgr_process_move_notify(g_cfg.ipc_rx_buf));
    sim.expect(
        {log(3, "Client MAC : 02:13:24:35:46:57"), client_lookup(CLIENT, false), log(1, "Client not present in AP")});
}

SIM_TEST(move_notify, elsewhere_is_not_read_past_its_own_length) {
    bytes record = ctrlr_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(1));
    for (size_t length = 0; length < 4 + sizeof(move_notify_body); length++) {
        const bytes claimed = big16(static_cast<uint16_t>(length));
        std::copy(claimed.begin(), claimed.end(), record.begin() + 2);
        EXPECT_EQ(-1, client_mgr_process_move_notify(record.data()));
        sim.expect({LEAVES_BUFFER});
    }
}

SIM_TEST(move_notify, of_an_unknown_client_does_nothing) {
    for (uint8_t kind : {uint8_t{1}, uint8_t{2}, uint8_t{3}}) {
        sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(kind)));
        sim.expect({receipt(), client_lookup(CLIENT, false), log(1, "Client not present in AP")});
        EXPECT_EQ(-1, process(body(kind)));
        sim.forget();
    }
}

SIM_TEST(move_notify, of_another_kind_does_nothing) {
    have_two_vaps();
    have_client(sim, on(BSSID));
    for (int kind = 0; kind < 256; kind++) {
        if (kind == 1 || kind == 2) {
            continue;
        }
        sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(static_cast<uint8_t>(kind))));
        sim.expect({receipt(), client_lookup(CLIENT, true)});
    }
    EXPECT_EQ(0, process(body(3)));
    sim.forget();
    expect_stored(on(BSSID));
}

SIM_TEST(move_notify, is_taken_whatever_the_state_of_the_link) {
    have_two_vaps();
    whenever_not_ready([&] {
        have_client(sim, on(ELSEWHERE));
        sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(1)));
        sim.expect({receipt(), client_lookup(CLIENT, true), log(3, "CUR BSSID : d0:d1:d2:d3:d4:d5"), removed()});
    });
}

// --- kind 2: a client whose home is here moved

SIM_TEST(client_moved, to_another_vlan_is_tunnelled) {
    have_client(sim, on(BSSID, CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST));
    sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, hex("02 021324354657 e0e1e2e3e4e5 f0f1f2f3f4f5 2c")));
    sim.expect({
        received(CLIENT_MGR_CLIENT_MOVE_NOTIFY, 20),
        log(3, "Received client move notify"),
        log(3, "Client MAC : 02:13:24:35:46:57"),
        client_lookup(CLIENT, true),
        bridge_add(CLIENT, "tun0", "eth0", 100, "0.0.0.0", 0),
        client_update_at(CLIENT, 0),
        log(3, "[client_mgr_process_move_notify] Adding client to kxbr_api_add_client"),
        log(3, "Client 02:13:24:35:46:57"),
        log(3, "BSSID  f0:f1:f2:f3:f4:f5"),
        log(3, "VLAN   100"),
    });
    expect_stored(moved(on(BSSID), 44, CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST));
}

SIM_TEST(client_moved, to_its_home_vlan_is_not_recorded) {
    have_client(sim, on(BSSID));
    EXPECT_EQ(0, process(body(2, 100)));
    sim.expect({log(3, "Client MAC : 02:13:24:35:46:57"), client_lookup(CLIENT, true)});
    expect_stored(on(BSSID));
}

// The notification carries one byte of the VLAN: 44, the low byte of 300, is not 300.
SIM_TEST(client_moved, with_a_home_vlan_above_255_never_comes_home) {
    have_client(sim, on(BSSID, CLIENT_FLAG_LOCAL, 300));
    for (int i = 0; i < 2; i++) {
        sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(2, 44)));
        sim.expect({receipt(), client_lookup(CLIENT, true), tunnelled(300)});
        expect_stored(moved(on(BSSID, 0, 300), 44, CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL));
    }
}

SIM_TEST(client_moved, reads_the_vlan_as_unsigned) {
    have_client(sim, on(BSSID, CLIENT_FLAG_LOCAL, 255));
    EXPECT_EQ(0, process(body(2, 255)));
    sim.forget();
    expect_stored(on(BSSID, CLIENT_FLAG_LOCAL, 255));
    EXPECT_EQ(0, process(body(2, 254)));
    sim.expect({log(3, "Client MAC : 02:13:24:35:46:57"), client_lookup(CLIENT, true), tunnelled(255)});
    expect_stored(moved(on(BSSID, 0, 255), 254, CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL));
}

SIM_TEST(client_moved, must_be_local) {
    for (uint32_t flag : {0u, +CLIENT_FLAG_FOREIGN, CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL,
                          CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST}) {
        have_client(sim, on(BSSID, flag));
        EXPECT_EQ(-1, process(body(2)));
        sim.expect({log(3, "Client MAC : 02:13:24:35:46:57"), client_lookup(CLIENT, true),
                    log(3, "Not a local client, but update rcvd")});
        expect_stored(on(BSSID, flag));
    }
    for (uint32_t flag :
         {+CLIENT_FLAG_LOCAL, CLIENT_FLAG_LOCAL | CLIENT_FLAG_FOREIGN, CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL,
          CLIENT_FLAG_LOCAL | CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL | CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST}) {
        have_client(sim, on(BSSID, flag));
        EXPECT_EQ(0, process(body(2)));
        sim.forget();
        expect_stored(moved(on(BSSID), 44, flag | CLIENT_FLAG_TUNNEL));
    }
}

SIM_TEST(client_moved, is_recorded_though_the_bridge_fails) {
    have_client(sim, on(BSSID));
    sim.fail_nth("kxbr_api_add_client", 1);
    sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(2)));
    sim.expect({receipt(), client_lookup(CLIENT, true), failed(bridge_add(CLIENT, "tun0", "eth0", 100, "0.0.0.0", 0)),
                client_update_at(CLIENT, 0), adding_to_bridge("client_mgr_process_move_notify", CLIENT, NEW, 100)});
    expect_stored(moved(on(BSSID), 44, CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL));
}

// --- kind 1: a client moved away

SIM_TEST(client_moved_away, is_taken_off_everything_in_order) {
    have_two_vaps();
    have_client(sim, on(BSSID, CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST));
    sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, hex("01 021324354657 e0e1e2e3e4e5 f0f1f2f3f4f5 2c")));
    sim.expect({
        received(CLIENT_MGR_CLIENT_MOVE_NOTIFY, 20),
        log(3, "Received client move notify"),
        log(3, "Client MAC : 02:13:24:35:46:57"),
        client_lookup(CLIENT, true),
        log(3, "CUR BSSID : b0:b1:b2:b3:b4:b5"),
        log(3, "VAP If   : ath0"),
        sta_disassoc("ath0", BSSID, CLIENT, 2),
        client_deleted(CLIENT, 0),
        log(3, "[client_mgr_process_move_notify] Deleting client to kxbr_api_del_client"),
        log(3, "Client 02:13:24:35:46:57"),
        client_lookup(CLIENT, false),
        log(1, "Captive cl failed 02:13:24:35:46:57"),
        log(3, "Sending Assoc IPC to /kx/ipc/captive_app"),
        to_captive_portal(hex("000000a8 0000002c 00000001 021324354657") + zeros(34) + hex("00000001")),
        bridge_del(CLIENT),
    });
    EXPECT_EQ(nullptr, stored_client(CLIENT));
}

SIM_TEST(client_moved_away, is_disassociated_on_every_vap_with_its_bssid) {
    have_two_vaps();
    set_full_ifname(have_vap(15, "", BSSID, 0));
    set_mac(g_cfg.vaps[1].bssid, BSSID);
    g_cfg.num_vaps = 0;
    have_client(sim, on(BSSID));
    EXPECT_EQ(0, process(body(1)));
    sim.expect({log(3, "Client MAC : 02:13:24:35:46:57"), client_lookup(CLIENT, true),
                log(3, "CUR BSSID : b0:b1:b2:b3:b4:b5"), disassociated("ath0", BSSID), disassociated("ath1", BSSID),
                disassociated(FULL_IFNAME, BSSID), removed()});
}

SIM_TEST(client_moved_away, without_bssid_is_disassociated_on_every_unused_vap) {
    have_two_vaps();
    have_client(sim, on(NOWHERE));
    sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(1)));
    steps unused;
    for (int i = 2; i < 16; i++) {
        unused = unused + disassociated("", NOWHERE);
    }
    sim.expect({receipt(), client_lookup(CLIENT, true), log(3, "CUR BSSID : 00:00:00:00:00:00"), unused, removed()});
}

// The bytes of the stored message from the 38th on: at most 33, and none after a zero.
SIM_TEST(client_moved_away, hands_the_portal_bytes_of_the_message) {
    const std::string text = "0123456789abcdef0123456789abcdefX";
    for (const std::string &behind : {text.substr(0, 5), text.substr(0, 32), text, text + "Y", std::string("ab\0cd", 5),
                                      std::string("\xff\xfe\x80")}) {
        have_client(sim, on(ELSEWHERE));
        const bytes record = body(1) + bytes(behind.begin(), behind.end());
        sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, record));
        sim.expect({receipt(record.size()), client_lookup(CLIENT, true), log(3, "CUR BSSID : d0:d1:d2:d3:d4:d5"),
                    removed(behind.substr(0, std::min<size_t>(behind.find('\0'), 33)))});
    }
}

SIM_TEST(client_moved_away, by_a_later_record_hands_over_bytes_of_the_first) {
    have_client(sim, on(ELSEWHERE));
    const bytes record = bytes{0xc8, 4} + big16(27) + zeros(20) + hex("41 42 43");
    sim.controller(ctrlr_message({record, ctrlr_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, first(body(1), 7))}));
    sim.expect({log(3, "Received apcomm msg"), log(3, "Received recs 2 hdr_len 14 tot_len 52"),
                log(3, "Received rec_type 200 rec_hdr_len 4 rec_len 27"),
                log(3, "Received rec_type 9 rec_hdr_len 4 rec_len 11"), log(3, "Received client move notify"),
                log(3, "Client MAC : 02:13:24:35:46:57"), client_lookup(CLIENT, true),
                log(3, "CUR BSSID : d0:d1:d2:d3:d4:d5"), removed(std::string("ABC\x09\x04", 5))});
}

SIM_TEST(client_moved_away, goes_on_when_driver_portal_and_bridge_fail) {
    have_two_vaps();
    have_client(sim, on(BSSID));
    sim.fail_nth("ioctl", 1);
    sim.fail_nth("kx_ipc_send", 1);
    sim.fail_nth("kxbr_api_del_client", 1);
    sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, body(1)));
    sim.expect({receipt(), client_lookup(CLIENT, true), log(3, "CUR BSSID : b0:b1:b2:b3:b4:b5"),
                log(3, "VAP If   : ath0"), sta_disassoc_refused("ath0", BSSID, CLIENT, 2), client_deleted(CLIENT, 0),
                deleting_from_bridge("client_mgr_process_move_notify", CLIENT),
                failed(captive_msg_of_stranger(CLIENT, "", CAPTIVE_MSG_DISASSOCIATION)),
                log(1, " Send Assoc to Captive application failed!"), failed(bridge_del(CLIENT))});
}

// --- the end of the buffer

SIM_TEST(move_notify, reads_nothing_past_the_buffer) {
    have_client(sim, on(ELSEWHERE));
    const auto handler = [](int expected) {
        return [expected](uint8_t *rec) { EXPECT_EQ(expected, client_mgr_process_move_notify(rec)); };
    };
    const steps looked_up = log(3, "Client MAC : 02:13:24:35:46:57") + client_lookup(CLIENT, true);
    for (size_t size = 0; size < 20; size++) {
        SCOPED_TRACE(size);
        at_buffer_end(first(body(2), size), handler(-1));
        sim.expect({size >= 7 ? looked_up : steps{}, LEAVES_BUFFER});
    }
    expect_stored(on(ELSEWHERE));
    at_buffer_end(body(2), handler(0));
    sim.expect({looked_up, tunnelled(100)});
    // For a client that moved away, only kind and MAC address are read.
    for (size_t size = 0; size < 7; size++) {
        at_buffer_end(first(body(1), size), handler(-1));
        sim.expect({LEAVES_BUFFER});
    }
    at_buffer_end(first(body(1), 7), handler(0));
    sim.expect({looked_up, log(3, "CUR BSSID : f0:f1:f2:f3:f4:f5"), removed()});
}

}  // namespace sim
