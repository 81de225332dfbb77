#include "lifecycle.h"

#include <algorithm>
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/mac_address.h"

namespace sim {
namespace {

bytes header(uint16_t records, size_t total) {
    return hex("01 0e 00") + big16(records) + hex("00") + big16(static_cast<uint16_t>(total)) + hex("a0a1a2a3a4a5");
}

bytes vap_fields(std::string_view bssid, std::string_view ssid, uint16_t vlan) {
    return mac_bytes(bssid) + padded(ssid, 32) + hex("0000") + big16(vlan);
}

bytes sent_message(uint8_t type, const bytes &body) {
    const bytes record = ctrlr_record(type, body);
    return header(1, 14 + record.size()) + record;
}

std::string ip_number(const bytes &ip) { return "0x" + show(ip); }

}  // namespace

bytes pmk_bytes() { return hex("40414243444546474849 4a4b4c4d4e4f 50515253545556575859 5a5b5c5d5e5f"); }

bytes other_pmk_bytes() { return hex("60616263646566676869 6a6b6c6d6e6f 70717273747576777879 7a7b7c7d7e7f"); }

void have_two_vaps() {
    ready_to_talk();
    set_text(have_vap(0, "ath0", BSSID, 100).captive_cfg, 32, "portal zero");
    set_text(have_vap(1, "ath1", BSSID_2, 200).captive_cfg, 32, "portal one");
}

void have_interface(site &sim, std::string_view ifname, std::string_view ssid, uint16_t vlan, std::string_view bssid) {
    sim.vaps.push_back(apcfg_entry(ifname, ssid, vlan));
    sim.hwaddr[std::string(ifname)] = mac_bytes(bssid);
}

void have_full_table(site &sim) {
    for (int i = 0; i < CLIENT_TBL_SIZE; i++) {
        client_info client = {};
        set_bytes(client.cl_mac, hex("aa aa aa aa") + big16(static_cast<uint16_t>(i)));
        client_tbl_mac_add(&client);
    }
    sim.forget();
}

void whenever_not_ready(const std::function<void()> &event) {
    ready_to_talk();
    const uint32_t ip = g_cfg.ctrlr_ip;
    for (uint32_t flags : {0u, 1u, 2u, 3u}) {
        g_cfg.status_flags = flags;
        g_cfg.ctrlr_ip = flags == 3 ? 0 : ip;
        event();
    }
}

void expect_stored(const client_info &expected, const char *file, int line) {
    const testing::ScopedTrace here(file, line, "expected here");
    client_info wanted = expected;
    const std::string mac = mac_text(expected.cl_mac.bytes);
    set_text(wanted.cl_mac_str, sizeof(wanted.cl_mac_str), mac);
    const client_info *stored = stored_client(mac);
    ASSERT_NE(nullptr, stored);
    EXPECT_EQ(show(client_data(wanted)), show(client_data(*stored)));
}

int32_t have_verdict(site &sim, std::string_view mac, int32_t state, int32_t timestamp) {
    acl_cache_entry entry = {};
    set_mac(entry.acl_mac, mac);
    entry.state = state;
    entry.timestamp = timestamp;
    const int32_t idx = client_mgr_acl_mac_add(&entry);
    sim.forget();
    return idx;
}

steps notified(uint32_t id, std::string_view text, int level) {
    return log(4, "Received Msg ID : " + std::to_string(id)) + log(4, "Notification message") + log(level, text);
}

steps received(uint8_t type, size_t body_size) {
    return log(3, "Received apcomm msg") +
           log(3, "Received recs 1 hdr_len 14 tot_len " + std::to_string(18 + body_size)) +
           log(3,
               "Received rec_type " + std::to_string(type) + " rec_hdr_len 4 rec_len " + std::to_string(4 + body_size));
}

bytes client_list(std::initializer_list<listed_client> clients) {
    bytes list = big32(static_cast<uint32_t>(clients.size()));
    for (const listed_client &c : clients) {
        list = list + client_entry(mac_bytes(c.mac), mac_bytes(c.home_bssid), mac_bytes(c.bssid), c.home_vlan, c.ip,
                                   c.pmk, c.flags);
    }
    return list;
}

void at_buffer_end(const bytes &body, const std::function<void(uint8_t *rec)> &handler) {
    const bytes record = ctrlr_record(0, body);
    uint8_t *rec = g_cfg.ctrlr_msg_buf + sizeof(g_cfg.ctrlr_msg_buf) - record.size();
    std::copy(record.begin(), record.end(), rec);
    // A read past the buffer finds a client and not zeros.
    std::fill(std::begin(g_cfg.ipc_rx_buf), std::end(g_cfg.ipc_rx_buf), uint8_t{1});
    handler(rec);
}

steps client_update(uint8_t type, std::string_view mac, std::string_view bssid, const bytes &ip) {
    return log(3, "Client " + std::string(mac)) + log(3, "To BSSID " + std::string(bssid)) +
           log(3, "Client IP " + ip_number(ip)) +
           to_controller(sent_message(type, mac_bytes(mac) + mac_bytes(bssid) + zeros(6) + ip));
}

steps foreign_update(uint8_t type, std::string_view mac, std::string_view bssid, std::string_view last_bssid,
                     const bytes &ip) {
    return log(3, "Client " + std::string(mac)) + log(3, "To BSSID " + std::string(bssid)) +
           log(3, "From BSSID " + std::string(last_bssid)) +
           to_controller(sent_message(type, mac_bytes(mac) + mac_bytes(bssid) + mac_bytes(last_bssid) + ip));
}

steps fetch_request(uint8_t type, std::string_view mac, std::string_view bssid) {
    return to_controller(sent_message(type, mac_bytes(mac) + mac_bytes(bssid) + zeros(38)));
}

bytes config_record(std::string_view bssid, std::string_view ssid, uint16_t vlan) {
    return hex("01 04 002e") + vap_fields(bssid, ssid, vlan);
}

bytes list_record(std::string_view bssid, std::string_view ssid, uint16_t vlan, const bytes &entries) {
    const auto count = static_cast<uint16_t>(entries.size() / 16);
    return hex("00 04") + big16(static_cast<uint16_t>(54 + entries.size())) + vap_fields(bssid, ssid, vlan) +
           big16(count) + zeros(6) + entries;
}

bytes bulk_message(uint8_t count, const bytes &records) { return header(count, 14 + records.size()) + records; }

steps vap_read(std::string_view ifname, std::string_view bssid, std::string_view ssid, int vlan,
               std::string_view status) {
    return log(3, "vap " + std::string(ifname) + " status = " + std::string(status)) + read_hwaddr(ifname) +
           log(3, "BSSID : " + std::string(bssid)) + log(3, "SSID  " + std::string(ssid)) +
           log(3, "VLAN  " + std::to_string(vlan));
}

steps sta_disassoc_refused(std::string_view ifname, std::string_view bssid, std::string_view mac, int reason) {
    return did("socket") + log(3, "Sending disassoc to " + std::string(mac)) +
           failed(driver_request(0x8be6, ifname, hex("02 00") + host16(1) + mac_bytes(mac) + zeros(32))) +
           log(1, "client_mgr_sta_disassoc: Failed to disassoc STA") +
           syslog(LOG_USER | LOG_CRIT, "<clmgr> Send Disassociation " + std::string(bssid) + " -> " + std::string(mac) +
                                           " [reason " + std::to_string(reason) + "]") +
           did("close");
}

steps adding_to_bridge(std::string_view function, std::string_view mac, std::string_view bssid, int vlan) {
    return log(3, "[" + std::string(function) + "] Adding client to kxbr_api_add_client") +
           log(3, "Client " + std::string(mac)) + log(3, "BSSID  " + std::string(bssid)) +
           log(3, "VLAN   " + std::to_string(vlan));
}

steps deleting_from_bridge(std::string_view function, std::string_view mac) {
    return log(3, "[" + std::string(function) + "] Deleting client to kxbr_api_del_client") +
           log(3, "Client " + std::string(mac));
}

steps captive_msg_of_stranger(std::string_view mac, std::string_view text, uint32_t id) {
    return client_lookup(mac, false) + log(1, "Captive cl failed " + std::string(mac)) +
           log(3, "Sending Assoc IPC to /kx/ipc/captive_app") +
           to_captive_portal(big32(id) + hex("0000002c 00000001") + mac_bytes(mac) + padded(text, 34) +
                             hex("00000001"));
}

}  // namespace sim
