// Arguments of one call are evaluated in an order that differs between compilers: whatever draws more than one random
// number does so in statements of its own or in braces, where the order is fixed.
#include <algorithm>
#include <cstring>
#include <utility>

#include "event.h"
#include "kx/apcfg.h"
#include "kx/kx_ipc.h"
#include "station_records.h"
#include "tables.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

// The seconds at which a 32-bit time_t becomes negative, and at which 32 bits wrap.
constexpr int64_t WRAPS[] = {int64_t{1} << 31, int64_t{1} << 32};
constexpr int64_t LAST_SECOND = int64_t{1} << 33;

constexpr uint32_t WAITS[] = {1, 1, 1, 9, 10, 11, 29, 30, 31, 59, 60, 61, 120};
// Not "write": the place where a failed dump is cut depends on the length of its addresses.
constexpr const char *CALLS[] = {
    "apcomm_send_msg",
    "apcomm_send_msg",
    "apcomm_send_msg",
    "ioctl",
    "ioctl",
    "socket",
    "system",
    "log",
    "open",
    "kx_ipc_send",
    "kx_ipc_eloop_resp",
    "kxbr_api_add_client",
    "kxbr_api_del_client",
    "hostapd_config_open_connection",
    "hostapd_config_send_command",
    "hostapd_config_close_connection",
    "apcfg_vap_get_ifname_list",
    "apcfg_vap_get_by_ifname",
    "sysmon_send_hb",
    "apcomm_recv_register",
    "apcomm_status_register",
    "apcomm_register_kx_ipc",
    "kx_eloop_register_timeout",
};
}  // namespace

event_source::event_source(uint64_t seed) : dice_(seed) {
    // Most runs begin with the daemon's usual start.
    if (dice_.one_in(8)) {
        return;
    }
    queue_.push_back(surroundings_change());
    queue_.push_back({.kind = event::LOCAL, .number = KX_MSG_ID_SYS_INIT, .flags = KX_IPC_FLAG_NOTIFICATION});
    queue_.push_back({.kind = event::LOCAL, .number = KX_MSG_ID_SYS_READY, .flags = KX_IPC_FLAG_NOTIFICATION});
    queue_.push_back({.kind = event::LINK, .number = 0x0a0b0c0d, .flags = 1});
    queue_.push_back({.kind = event::LOCAL, .number = KX_MSG_ID_VAP_INIT, .flags = KX_IPC_FLAG_NOTIFICATION});
}

event event_source::next() {
    if (queue_.empty()) {
        queue_.push_back(any_event());
    }
    event e = std::move(queue_.front());
    queue_.pop_front();
    if (e.kind == event::WAIT) {
        wall_secs_ += e.number;
    }
    if (e.kind == event::CLOCK) {
        wall_secs_ = e.clock;
    }
    return e;
}

event event_source::any_event() {
    const uint32_t chance = dice_.below(1000);
    if (chance < 560) {
        return local();
    }
    if (chance < 850) {
        return controller();
    }
    if (chance < 920) {
        return {.kind = event::WAIT, .number = dice_.any(WAITS)};
    }
    if (chance < 930) {
        return clock();
    }
    if (chance < 945) {
        return link();
    }
    if (chance < 965) {
        return fail();
    }
    if (chance < 980) {
        return {.kind = event::MEND};
    }
    if (chance < 988) {
        return surroundings_change();
    }
    if (chance < 997) {
        return log_level();
    }
    if (chance < 999 && dice_.one_in(4)) {
        return {.kind = event::ACL_BURST, .number = dice_.below(4096), .data = bssid()};
    }
    if (dice_.one_in(6)) {
        queue_full_table();
    }
    return controller();
}

// --- the controller link

event event_source::link() {
    event e = {.kind = event::LINK, .number = 0x0a0b0c0d, .flags = 1};
    if (dice_.one_in(3)) {
        e.flags = dice_.one_in(6) ? edge() : 2;
    }
    if (dice_.one_in(10)) {
        e.number = edge();
    }
    // A link that goes down soon comes up again, because little happens without one.
    const bool ready = e.flags == 1 && e.number != 0;
    for (uint32_t i = dice_.below(10); !ready && i > 0; i--) {
        const event between = dice_.one_in(2) ? local() : controller();
        queue_.push_back(between);
    }
    if (!ready) {
        queue_.push_back({.kind = event::LINK, .number = 0x0a0b0c0d, .flags = 1});
    }
    return e;
}

// --- the rest of the world

event event_source::clock() {
    constexpr int64_t steps[] = {-100000, -3600, -61, -31, -30, -11, -1, 1, 10, 30, 3600, 100000};
    event e = {.kind = event::CLOCK, .number = dice_.below(1000)};
    e.clock = std::clamp<int64_t>(wall_secs_ + dice_.any(steps), 0, LAST_SECOND);
    if (dice_.one_in(20)) {
        e.clock = dice_.one_in(2) ? 0 : 1700000000;
    }
    if (dice_.one_in(4)) {
        const int64_t wrap = dice_.any(WRAPS);
        e.clock = wrap - dice_.below(90);
    }
    return e;
}

event event_source::fail() {
    event e = {.kind = event::FAIL, .number = 1 + dice_.below(4)};
    e.flags = dice_.one_in(4) ? 1 : 0;
    e.call = dice_.any(CALLS);
    return e;
}

event event_source::log_level() {
    event e = {.kind = event::LOG_LEVEL, .number = dice_.below(5)};
    e.flags = dice_.one_in(8) ? 1 : 0;
    return e;
}

event event_source::surroundings_change() {
    event e = {.kind = event::SURROUNDINGS};
    const uint32_t count = dice_.one_in(10) ? dice_.below(21) : 1 + dice_.below(6);
    for (uint32_t i = 0; i < count; i++) {
        const std::string name = dice_.one_in(30) ? "wifi0vap-012" : "ath" + std::to_string(i);
        e.around.vaps.push_back(vap(name));
        if (!dice_.one_in(12)) {
            const bytes address = bssid();
            e.around.hwaddr[name] = address;
        }
        const bytes list = station_list();
        e.around.stations[name] = list;
    }
    queue_.push_back({.kind = event::LOCAL, .number = KX_MSG_ID_VAP_INIT, .flags = KX_IPC_FLAG_NOTIFICATION});
    return e;
}

listed_vap event_source::vap(const std::string &ifname) {
    constexpr uint16_t vlans[] = {100, 100, 200, 0, 4095, 0xffff};
    listed_vap listed = {.ifname = ifname};
    apcfg_vap &r = listed.record;
    memcpy(r.ifname, padded(ifname, sizeof r.ifname).data(), sizeof r.ifname);
    memcpy(r.ssid, text_field(sizeof r.ssid).data(), sizeof r.ssid);
    memcpy(r.captive_cfg, text_field(sizeof r.captive_cfg).data(), sizeof r.captive_cfg);
    r.vap_attr = dice_.one_in(2) ? 1 : 0;
    r.vlan = dice_.any(vlans);
    r.status = dice_.below(3);
    r.radius_idx = edge();
    r.mac_acl_idx = dice_.below(9);
    r.radius_acl_type = dice_.below(9);
    listed.readable = !dice_.one_in(15);
    return listed;
}

// As the driver writes it. A wrong length ends the list or leads to the middle of a record.
bytes event_source::station_list() {
    constexpr uint16_t wrong_lengths[] = {0, 0x7fff, 0xffff};
    station_records records;
    const uint32_t count = dice_.one_in(100) ? 120 : dice_.below(5);
    for (uint32_t i = 0; i < count; i++) {
        const bytes address = mac();
        const auto inactivity = static_cast<uint16_t>(dice_.below(65536));
        uint32_t step = dice_.one_in(4) ? 156 + 4 * dice_.below(20) : 156;
        if (dice_.one_in(20)) {
            step = 1 + dice_.below(200);
        }
        records.add(address, inactivity, step);
        if (dice_.one_in(50)) {
            records.end(dice_.any(wrong_lengths));
        }
    }
    bytes list = records.list();
    if (dice_.one_in(30)) {
        list.resize(dice_.below(static_cast<uint32_t>(list.size()) + 1));
    }
    return list;
}

// --- fields

uint32_t event_source::edge() {
    constexpr uint32_t edges[] = {0, 1, 2, 0x7f, 0x80, 0xff, 0x100, 0x7fff, 0xffff, 0x7fffffff, 0x80000000, 0xffffffff};
    return dice_.any(edges);
}

bytes event_source::mac() {
    const uint32_t n = dice_.below(26);
    if (dice_.one_in(100)) {
        return noise(6);
    }
    if (dice_.one_in(100)) {
        return n < 13 ? zeros(6) : hex("ffffffffffff");
    }
    return n < 12 ? mac_of_bucket_0(n + 1) : mac_number(n);
}

bytes event_source::bssid() {
    if (dice_.one_in(40)) {
        return dice_.one_in(2) ? zeros(6) : noise(6);
    }
    return hex("b0b1b2b3b4") + bytes{static_cast<uint8_t>(0xb5 + dice_.below(6))};
}

bytes event_source::ip() {
    if (dice_.one_in(8)) {
        return zeros(4);
    }
    return hex("0a0000") + bytes{static_cast<uint8_t>(1 + dice_.below(30))};
}

bytes event_source::noise(uint32_t count) {
    bytes out;
    for (uint32_t i = 0; i < count; i++) {
        out.push_back(dice_.byte());
    }
    return out;
}

bytes event_source::text_field(size_t width) {
    const uint32_t length = dice_.one_in(6) ? static_cast<uint32_t>(width) : dice_.below(12);
    std::string text;
    for (uint32_t i = 0; i < length; i++) {
        text += static_cast<char>(dice_.one_in(100) ? dice_.byte() : 'a' + dice_.below(26));
    }
    return padded(text, width);
}

}  // namespace sim
