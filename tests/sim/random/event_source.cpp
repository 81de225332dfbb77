// Arguments of one call are evaluated in an order that differs between compilers: whatever draws more than one random
// number does so in statements of its own or in braces, where the order is fixed.
#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <utility>

#include "event.h"
#include "kx/apcfg.h"
#include "kx/kx_ipc.h"
#include "station_records.h"
#include "tables.h"
#include "wire/ctrlr_messages.h"

namespace sim {
namespace {

constexpr size_t LOCAL_ROOM = 16384 - IPC_HDR_SIZE;
constexpr size_t CONTROLLER_ROOM = 16384;
// Where a 32-bit time_t goes negative, and where seconds of 32 bits begin again.
constexpr int64_t WRAPS[] = {int64_t{1} << 31, int64_t{1} << 32};
constexpr int64_t LAST_SECOND = int64_t{1} << 33;

constexpr uint32_t LOCAL_IDS[] = {
    63,  63,  63,  63,  63, 63, 64, 64, 64, 64, 65, 65, 65, 66, 66,  161, 161, 161, 161, 150, 150, 150, 150,
    195, 195, 195, 195, 60, 60, 61, 61, 13, 16, 17, 28, 29, 59, 123, 63,  64,  65,  66,  161, 150, 195,
};
constexpr uint8_t RECORD_TYPES[] = {9, 9, 9, 10, 10, 10, 14, 14, 15, 15, 15, 16, 17, 17, 24, 24, 24, 26, 26, 28, 28};
constexpr uint32_t WAITS[] = {1, 1, 1, 9, 10, 11, 29, 30, 31, 59, 60, 61, 120};
constexpr uint32_t EDGES[] = {0, 1, 2, 0x7f, 0x80, 0xff, 0x100, 0x7fff, 0xffff, 0x7fffffff, 0x80000000, 0xffffffff};
// Not "write": where a dump that fails is cut depends on how long the addresses in it are.
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
constexpr const char *SERVING[] = {"eth0", "br-lan",   "eth0.100",        "-x",
                                   "",     "a;reboot", "abcdefghijklmno", "abcdefghijklmnopq"};

bytes joined(std::initializer_list<bytes> parts) {
    bytes all;
    for (const bytes &part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

}  // namespace

event_source::event_source(uint64_t seed) : dice_(seed) {
    // Most runs begin as the daemon's life does.
    if (dice_.one_in(8)) {
        return;
    }
    queue_.push_back(surroundings_change());
    queue_.push_back({.kind = event::LOCAL, .number = 17, .flags = KX_IPC_FLAG_NOTIFICATION});
    queue_.push_back({.kind = event::LOCAL, .number = 16, .flags = KX_IPC_FLAG_NOTIFICATION});
    queue_.push_back({.kind = event::LINK, .number = 0x0a0b0c0d, .flags = 1});
    queue_.push_back({.kind = event::LOCAL, .number = 60, .flags = KX_IPC_FLAG_NOTIFICATION});
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

// --- local messages

event event_source::local() {
    event e = {.kind = event::LOCAL, .number = dice_.any(LOCAL_IDS), .flags = KX_IPC_FLAG_NOTIFICATION};
    if (dice_.one_in(40)) {
        e.number = dice_.one_in(2) ? dice_.below(256) : dice_.any(EDGES);
    }
    e.data = payload(e.number);
    const bool request = e.number == 28 || e.number == 59;
    if (request != dice_.one_in(50)) {
        e.flags = KX_IPC_FLAG_REQUEST;
    }
    if (dice_.one_in(60)) {
        e.flags = dice_.any(EDGES);
    }
    if (dice_.one_in(40)) {
        e.data.resize(dice_.below(static_cast<uint32_t>(e.data.size()) + 1));
    }
    if (dice_.one_in(60)) {
        e.data = noise(dice_.below(100));
    }
    if (dice_.one_in(1000)) {
        e.data = noise(LOCAL_ROOM);
    }
    return e;
}

bytes event_source::payload(uint32_t id) {
    switch (id) {
        case 63:
        case 65:
            return joined({noise(16), mac(), bssid(), ip()});
        case 64:
        case 66:
            return joined({noise(16), mac(), bssid(), bssid(), ip()});
        case 161: {
            const bytes front = joined({mac(), noise(2), ip()});
            const std::string name = dice_.any(SERVING);
            return front + padded(name, name.size() + 1);
        }
        case 150: {
            const uint32_t sub_type = dice_.one_in(16) ? dice_.any(EDGES) : 1 + dice_.below(2);
            return joined({big32(sub_type), bssid(), bssid(), mac(), noise(32)});
        }
        case 195: {
            const bytes who = joined({mac(), bssid()});
            uint32_t length = 0;
            const bytes data = acl_data(length);
            return joined({who, big32(length), data});
        }
        case 61:
            return padded("ath" + std::to_string(dice_.below(20)), 12);
        default:
            return noise(dice_.below(40));
    }
}

bytes event_source::acl_data(uint32_t &length) {
    bytes data = noise(dice_.one_in(8) ? dice_.below(300) : dice_.below(8));
    length = static_cast<uint32_t>(data.size());
    if (dice_.one_in(20)) {
        length = dice_.any(EDGES);
    }
    return data;
}

// --- controller messages

event event_source::controller() {
    std::vector<bytes> records;
    const uint32_t count = dice_.one_in(4) ? 2 + dice_.below(4) : 1;
    for (uint32_t i = 0; i < count; i++) {
        records.push_back(record());
    }
    return {.kind = event::CONTROLLER, .data = message(records)};
}

bytes event_source::message(const std::vector<bytes> &records) {
    bytes body;
    for (const bytes &r : records) {
        body = body + r;
    }
    const bytes ap_mac = noise(6);
    auto count = static_cast<uint16_t>(records.size());
    if (dice_.one_in(60)) {
        count = static_cast<uint16_t>(dice_.below(300));
    }
    if (dice_.one_in(4000)) {
        count = 0xffff;
    }
    bytes msg = hex("01 0e 00") + big16(count) + hex("00") + big16(static_cast<uint16_t>(14 + body.size())) + ap_mac;
    // One byte of the header is any.
    if (dice_.one_in(60)) {
        const uint32_t at = dice_.below(3);
        msg[at] = dice_.byte();
    }
    msg = msg + body;
    if (dice_.one_in(60)) {
        msg.resize(1 + dice_.below(static_cast<uint32_t>(msg.size())));
    }
    if (dice_.one_in(500)) {
        msg.resize(CONTROLLER_ROOM - 2 + dice_.below(4));
    }
    msg.resize(std::min(msg.size(), CONTROLLER_ROOM + 1));
    return msg;
}

bytes event_source::record() {
    const uint8_t type = dice_.one_in(40) ? dice_.byte() : dice_.any(RECORD_TYPES);
    const bytes body = record_body(type);
    auto length = static_cast<uint16_t>(4 + body.size());
    if (dice_.one_in(80)) {
        length = static_cast<uint16_t>(dice_.any(EDGES));
    }
    const uint8_t header_length = dice_.one_in(100) ? dice_.byte() : uint8_t{4};
    return bytes{type, header_length} + big16(length) + body;
}

bytes event_source::record_body(uint8_t type) {
    switch (type) {
        case 9: {
            const uint8_t kind = dice_.one_in(20) ? dice_.byte() : static_cast<uint8_t>(1 + dice_.below(2));
            const uint8_t vlan = dice_.one_in(2) ? uint8_t{100} : dice_.byte();
            return joined({bytes{kind}, mac(), bssid(), bssid(), bytes{vlan}});
        }
        case 10:
        case 14:
        case 15:
        case 17:
        case 26: {
            uint32_t count = dice_.below(5);
            bytes list;
            for (uint32_t i = 0; i < count; i++) {
                list = list + client_entry();
            }
            if (dice_.one_in(60)) {
                count = dice_.any(EDGES);
            }
            return big32(count) + list;
        }
        case 24:
            return mac();
        case 28: {
            const uint32_t verdict = dice_.one_in(20) ? dice_.any(EDGES) : dice_.below(2);
            const bytes who = joined({mac(), bssid(), noise(6), noise(16)});
            uint32_t length = 0;
            const bytes data = acl_data(length);
            return joined({big32(verdict), who, big32(length), data});
        }
        default:
            return noise(dice_.below(40));
    }
}

bytes event_source::client_entry() {
    constexpr uint32_t vlans[] = {0, 100, 100, 200, 4095};
    bytes entry = joined({mac(), bssid(), bssid()});
    const uint32_t vlan = dice_.one_in(40) ? dice_.any(EDGES) : dice_.any(vlans);
    entry = joined({entry, big32(vlan), ip(), noise(32)});
    return entry + big32(dice_.one_in(40) ? dice_.any(EDGES) : dice_.below(4));
}

// The controller names 2048 clients and, mostly, takes them back later.
void event_source::queue_full_table() {
    constexpr uint32_t per_message = 256;
    const bool same_bucket = dice_.one_in(2);
    const bytes rest = joined({bssid(), zeros(6), big32(100), ip(), zeros(32), zeros(4)});
    for (const uint8_t type : {uint8_t{10}, uint8_t{17}}) {
        for (uint32_t n = 0; n < 2048; n += per_message) {
            bytes body = big32(per_message);
            for (uint32_t i = n; i < n + per_message; i++) {
                body = body + (same_bucket ? mac_of_bucket_0(i) : mac_number(i)) + rest;
            }
            const bytes record = bytes{type, 4} + big16(static_cast<uint16_t>(4 + body.size())) + body;
            const bytes msg = hex("01 0e 00 0001 00") + big16(static_cast<uint16_t>(14 + record.size())) + zeros(6);
            queue_.push_back({.kind = event::CONTROLLER, .data = msg + record});
        }
        const uint32_t between = type == 10 ? 20 : 0;
        for (uint32_t i = 0; i < between; i++) {
            const event e = dice_.one_in(2) ? local() : controller();
            queue_.push_back(e);
        }
        if (dice_.one_in(8)) {
            return;
        }
    }
}

event event_source::link() {
    event e = {.kind = event::LINK, .number = 0x0a0b0c0d, .flags = 1};
    if (dice_.one_in(3)) {
        e.flags = dice_.one_in(6) ? dice_.any(EDGES) : 2;
    }
    if (dice_.one_in(10)) {
        e.number = dice_.any(EDGES);
    }
    // A link that is down is up again soon: without one little happens.
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
    queue_.push_back({.kind = event::LOCAL, .number = 60, .flags = KX_IPC_FLAG_NOTIFICATION});
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
    r.radius_idx = dice_.any(EDGES);
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
