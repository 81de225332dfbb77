#include "arrange.h"

#include <algorithm>
#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "daemon_steps.h"

namespace sim {
namespace {

template <class Slot>
const Slot *slot_with(const Slot *slots, const uint8_t *(*key)(const Slot &), std::string_view mac) {
    const bytes wanted = mac_bytes(mac);
    for (const Slot *s = slots; s < slots + 2048; s++) {
        if ((s->entry_flag & 1) != 0 && std::equal(wanted.begin(), wanted.end(), key(*s))) {
            return s;
        }
    }
    return nullptr;
}

}  // namespace

void ready_to_talk() {
    g_cfg.status_flags = STATUS_SYS_READY | STATUS_CTRLR_LINK_UP;
    g_cfg.ctrlr_ip = 0x0a0b0c0d;
}

vap_cfg &have_vap(uint32_t idx, std::string_view ifname, std::string_view bssid, uint32_t vlan) {
    vap_cfg &vap = g_cfg.vaps[idx];
    vap = {};
    set_mac(vap.bssid, bssid);
    set_text(vap.ifname, sizeof(vap.ifname), ifname);
    vap.vlan = vlan;
    g_cfg.num_vaps = std::max(g_cfg.num_vaps, idx + 1);
    return vap;
}

void set_full_ifname(vap_cfg &vap) {
    auto *name = reinterpret_cast<char *>(&vap) + offsetof(vap_cfg, ifname);
    memset(name, 'm', offsetof(vap_cfg, vlan) - offsetof(vap_cfg, ifname));
    std::copy(FULL_IFNAME.begin(), FULL_IFNAME.end(), name);
}

client_info client_of(std::string_view mac) {
    client_info client = {};
    set_mac(client.cl_mac, mac);
    return client;
}

int32_t have_client(site &sim, const client_info &client) {
    const int32_t idx = client_tbl_mac_add(&client);
    sim.forget();
    return idx;
}

const client_info *stored_client(std::string_view mac) {
    return slot_with<client_info>(
        client_info_tbl, [](const client_info &s) { return s.cl_mac.bytes; }, mac);
}

const acl_cache_entry *stored_verdict(std::string_view mac) {
    return slot_with<acl_cache_entry>(
        client_acl_cache, [](const acl_cache_entry &s) { return s.acl_mac.bytes; }, mac);
}

void set_mac(uint8_t dst[6], std::string_view mac) { set_bytes(dst, mac_bytes(mac)); }

void set_mac(mac_address &dst, std::string_view mac) { set_mac(dst.bytes, mac); }

void set_bytes(uint8_t *dst, const bytes &value) { std::copy(value.begin(), value.end(), dst); }

void set_bytes(mac_address &dst, const bytes &value) { set_bytes(dst.bytes, value); }

void set_text(char *dst, size_t width, std::string_view text) {
    const bytes field = padded(text, width);
    memcpy(dst, field.data(), width);
}

bytes client_data(const client_info &client) {
    const auto *start = reinterpret_cast<const uint8_t *>(&client);
    return {start, start + offsetof(client_info, hash_index)};
}

bytes state_block() {
    const auto *start = reinterpret_cast<const uint8_t *>(&g_cfg);
    return {start, start + sizeof g_cfg};
}

listed_vap apcfg_entry(std::string_view ifname, std::string_view ssid, uint16_t vlan) {
    listed_vap entry = {.ifname = std::string(ifname)};
    set_text(entry.record.ifname, sizeof(entry.record.ifname), ifname);
    set_text(entry.record.ssid, sizeof(entry.record.ssid), ssid);
    entry.record.vlan = vlan;
    entry.record.status = 1;
    return entry;
}

}  // namespace sim
