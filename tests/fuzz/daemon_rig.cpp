#include "daemon_rig.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kx_ipc.h"
#include "kx/kx_log.h"
#include "poison.h"
#include "random/soundness.h"
#include "table_copy.h"
#include "tables.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace fuzz {
namespace {

constexpr uint8_t BSSID[2][6] = {{0xb0, 0xb1, 0xb2, 0xb3, 0xb4, 0xb5}, {0xb0, 0xb1, 0xb2, 0xb3, 0xb4, 0xb6}};
constexpr uint8_t BSSID_ELSEWHERE[6] = {0xd0, 0xd1, 0xd2, 0xd3, 0xd4, 0xd5};
constexpr const char *IFNAME[2] = {"ath0", "ath1"};
constexpr uint32_t VLAN[2] = {100, 200};

// Nothing is logged until the input's bytes are used.
constexpr int QUIET = 0;

// Handlers read and write this far, also past a short message, where the buffer is zero.
constexpr size_t PAYLOAD_USED = KX_IPC_RX_SCRATCH;
constexpr size_t ACL_AUTH_PAYLOAD_USED = sizeof(acl_auth_request) + ACL_AUTH_DATA_MAX;

constexpr uint8_t LEVEL = 3;
constexpr uint8_t LINK_DOWN = 4;
constexpr uint8_t DRIVER_FAILS = 8;
constexpr uint8_t CHANNEL_FULL = 16;
constexpr uint8_t TABLES = 0xe0;  // when these bits are 001 the tables are full, which is slow

sim::bytes as_bytes(std::span<const uint8_t> part) { return {part.begin(), part.end()}; }

void configure_vap(sim::platform &sim, unsigned idx, bool guest) {
    sim::listed_vap listed = {.ifname = IFNAME[idx]};
    listed.ifname.copy(listed.record.ifname, sizeof listed.record.ifname);
    strcpy(listed.record.ssid, "network");
    listed.record.vlan = static_cast<uint16_t>(VLAN[idx]);
    listed.record.vap_attr = guest ? 1 : 0;
    sim.vaps.push_back(listed);
    sim.hwaddr[IFNAME[idx]] = as_bytes(BSSID[idx]);

    vap_cfg &vap = g_cfg.vaps[idx];
    memcpy(vap.bssid.bytes, BSSID[idx], sizeof vap.bssid);
    memcpy(vap.ssid, listed.record.ssid, sizeof vap.ssid);
    memset(vap.captive_cfg, 'p', sizeof vap.captive_cfg);
    listed.ifname.copy(vap.ifname, sizeof vap.ifname);
    vap.vlan = VLAN[idx];
    vap.vap_attr = listed.record.vap_attr;
}

// 02:00:00:00:00:<number>
void set_mac(uint8_t mac[6], uint8_t number) {
    mac[0] = 2;
    mac[5] = number;
}

void add_client(uint8_t number, uint32_t flag, unsigned vap, bool associated, int32_t home_vlan) {
    client_info client = {};
    set_mac(client.cl_mac.bytes, number);
    const bool local = (flag & CLIENT_FLAG_LOCAL) != 0;
    memcpy(client.home_bssid.bytes, local ? BSSID[vap] : BSSID_ELSEWHERE, sizeof client.home_bssid);
    if (associated) {
        memcpy(client.assoc_bssid.bytes, BSSID[vap], sizeof client.assoc_bssid);
    }
    client.home_vlan = home_vlan;
    client.assoc_vlan = static_cast<int32_t>(VLAN[vap]);
    client.cl_ip.bytes[0] = 10;
    client.cl_ip.bytes[3] = number;
    client.bssid_idx = static_cast<int32_t>(vap);
    memset(client.pmk, (flag & CLIENT_FLAG_PMK) != 0 ? number : 0, sizeof client.pmk);
    client.flag = flag;
    client_tbl_mac_add(&client);
}

void add_verdict(uint8_t number, int32_t state, int64_t now) {
    acl_cache_entry entry = {};
    set_mac(entry.acl_mac.bytes, number);
    entry.state = state;
    entry.timestamp = static_cast<int32_t>(now);
    client_mgr_acl_mac_add(&entry);
}

// Fills the tables after the fixed clients. The copy is made only once, because it is always the same.
void fill_tables(int64_t now) {
    static sim::table_copy<client_info> clients;
    static sim::table_copy<acl_cache_entry> verdicts;
    if (clients.is_taken()) {
        clients.put_back();
        verdicts.put_back();
        return;
    }
    for (unsigned i = 0; i < CLIENT_TBL_SIZE; i++) {
        client_info client = {};
        memcpy(client.cl_mac.bytes, sim::mac_number(i).data(), sizeof client.cl_mac);
        client_tbl_mac_add(&client);
        acl_cache_entry entry = {};
        entry.acl_mac = client.cl_mac;
        entry.timestamp = static_cast<int32_t>(now);
        client_mgr_acl_mac_add(&entry);
    }
    clients.take();
    verdicts.take();
}

sim::bytes record(uint8_t type, std::span<const uint8_t> body) {
    return sim::bytes{type, 4} + sim::big16(static_cast<uint16_t>(4 + body.size())) + as_bytes(body);
}

}  // namespace

daemon_rig::daemon_rig(input &in) : sim_(QUIET) {
    const uint8_t kind = in.byte();
    arrange();
    if ((kind & TABLES) == 0x20) {
        fill_tables(sim_.wall_secs());
    }
    if ((kind & LINK_DOWN) != 0) {
        g_cfg.status_flags = STATUS_SYS_READY;
    }
    if ((kind & DRIVER_FAILS) != 0) {
        sim_.fail_from("ioctl", 1);
    }
    if ((kind & CHANNEL_FULL) != 0) {
        sim_.fail_from("apcomm_send_msg", 1);
    }
    kx_log_conf_data.level = 1 + (kind & LEVEL);
    // Otherwise a record that leaves the controller message buffer would continue in the next one.
    poison(g_cfg.ipc_rx_buf, sizeof g_cfg.ipc_rx_buf);
}

daemon_rig::daemon_rig() : sim_(QUIET) { poison(g_cfg.ipc_rx_buf, sizeof g_cfg.ipc_rx_buf); }

daemon_rig::~daemon_rig() { unpoison(g_cfg.ipc_rx_buf, sizeof g_cfg.ipc_rx_buf); }

void daemon_rig::arrange() {
    g_cfg.status_flags = STATUS_SYS_READY | STATUS_CTRLR_LINK_UP;
    g_cfg.ctrlr_ip = 0x0a0b0c0d;
    g_cfg.num_vaps = 2;
    configure_vap(sim_, 0, false);
    configure_vap(sim_, 1, true);
    g_cfg.vaps[1].guest_count = 1;
    add_client(1, CLIENT_FLAG_LOCAL | CLIENT_FLAG_PMK, 0, true, 100);
    add_client(2, CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST, 1, true, 200);
    add_client(3, CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK, 0, false, 100);
    add_client(4, CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL, 0, true, 300);
    add_client(5, CLIENT_FLAG_FOREIGN | CLIENT_FLAG_GUEST, 1, false, 200);
    const int64_t now = sim_.wall_secs();
    add_verdict(17, ACL_STATE_DENIED, now);
    add_verdict(18, ACL_STATE_ALLOWED, now);
    add_verdict(19, ACL_STATE_PENDING, now);
    add_verdict(20, ACL_STATE_PENDING, now - 20);
}

void daemon_rig::local(uint32_t id, uint32_t flags, std::span<const uint8_t> payload) {
    const size_t used = id == KX_MSG_ID_MAC_ACL_AUTH ? ACL_AUTH_PAYLOAD_USED : PAYLOAD_USED;
    const size_t room = sim::IPC_HDR_SIZE + std::max(payload.size(), used);
    message_.reset(new uint8_t[room]);
    sim_.rx_buf = message_.get();
    sim_.rx_buf_len = static_cast<uint32_t>(room);
    sim_.local(id, as_bytes(payload), flags);
}

void daemon_rig::happen(const sim::event &e) {
    if (e.kind == sim::event::LOCAL) {
        local(e.number, e.flags, e.data);
        return;
    }
    e.happen(sim_);
}

void daemon_rig::check() {
    const std::vector<std::string> faults = sim::faults_of_daemon(sim_);
    if (faults.empty()) {
        sim_.effects.clear();
        return;
    }
    for (const std::string &fault : faults) {
        fprintf(stderr, "fault: %s\n", fault.c_str());
    }
    for (const std::string &effect : sim_.effects) {
        fprintf(stderr, "  %s\n", effect.c_str());
    }
    abort();
}

sim::bytes controller_message(input &in) {
    if (in.byte() == 0) {
        sim::bytes msg = as_bytes(in.rest());
        if (msg.size() > 4) {
            // A record of length 0 repeats as often as the count says, up to 65,535 times, which is slow and shows
            // nothing.
            msg[3] = 0;
            msg[4] %= 16;
        }
        return msg;
    }
    sim::bytes records;
    uint16_t count = 0;
    while (!in.empty()) {
        const uint8_t type = in.byte();
        records = records + record(type, in.block());
        count++;
    }
    const auto length = static_cast<uint16_t>(14 + records.size());
    return sim::hex("01 0e 00") + sim::big16(count) + sim::hex("00") + sim::big16(length) +
           sim::hex("90 91 92 93 94 95") + records;
}

sim::bytes station_list(input &in) {
    if (in.byte() == 0) {
        return as_bytes(in.rest());
    }
    sim::bytes list;
    while (!in.empty()) {
        const size_t more = in.byte();
        sim::bytes mac = as_bytes(in.take(6));
        mac.resize(6);
        const uint16_t inactivity = in.word16();
        list = list + sim::host16(static_cast<uint16_t>(156 + more)) + sim::zeros(14) + mac + sim::zeros(118) +
               sim::host16(inactivity) + sim::zeros(14 + more);
    }
    return list;
}

}  // namespace fuzz
