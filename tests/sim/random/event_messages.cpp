// The local messages and the controller messages of a random run. As in event_source.cpp, random numbers are drawn in
// statements of their own or in braces.
#include <algorithm>
#include <initializer_list>

#include "event.h"
#include "kx/kx_ipc.h"
#include "tables.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

constexpr size_t LOCAL_ROOM = 16384 - IPC_HDR_SIZE;
constexpr size_t CONTROLLER_ROOM = 16384;

constexpr weighted<uint32_t> LOCAL_IDS[] = {
    {KX_MSG_ID_CLIENT_ASSOCIATION, 6},
    {KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, 4},
    {KX_MSG_ID_CLIENT_DISASSOCIATION, 3},
    {KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, 2},
    {KX_MSG_ID_CLIENT_IP, 4},
    {KX_MSG_ID_CLIENT_MGR_PMK_INFO, 4},
    {KX_MSG_ID_MAC_ACL_AUTH, 4},
    {KX_MSG_ID_VAP_INIT, 2},
    {KX_MSG_ID_VAP_UPDATE, 2},
    {KX_MSG_ID_SYSMON_HB, 1},
    {KX_MSG_ID_SYS_READY, 1},
    {KX_MSG_ID_SYS_INIT, 1},
    {KX_MSG_ID_LOG_CFG_GET, 1},
    {KX_MSG_ID_LOG_CFG_SET, 1},
    {KX_MSG_ID_CLIENT_TBL_DUMP, 1},
    {KX_MSG_ID_APCOMM_MSG, 1},
    {KX_MSG_ID_CLIENT_ASSOCIATION, 1},
    {KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, 1},
    {KX_MSG_ID_CLIENT_DISASSOCIATION, 1},
    {KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, 1},
    {KX_MSG_ID_CLIENT_IP, 1},
    {KX_MSG_ID_CLIENT_MGR_PMK_INFO, 1},
    {KX_MSG_ID_MAC_ACL_AUTH, 1},
};
constexpr weighted<uint8_t> RECORD_TYPES[] = {
    {CLIENT_MGR_CLIENT_MOVE_NOTIFY, 3},   {ROAMING_MGR_CLIENT_BULK_INFO, 3},
    {CLIENT_MGR_PMK_FETCH_SUCCESS, 2},    {CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, 3},
    {CLIENT_MGR_REQ_BULK_INFO, 1},        {CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, 2},
    {CLIENT_MGR_CLIENT_GUEST_AUTH, 3},    {CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, 2},
    {CLIENT_MGR_CLIENT_ACL_AUTH_RESP, 2},
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

// --- local messages

event event_source::local() {
    event e = {.kind = event::LOCAL, .number = dice_.any(LOCAL_IDS), .flags = KX_IPC_FLAG_NOTIFICATION};
    if (dice_.one_in(40)) {
        e.number = dice_.one_in(2) ? dice_.below(256) : edge();
    }
    e.data = payload(e.number);
    const bool request = e.number == KX_MSG_ID_LOG_CFG_GET || e.number == KX_MSG_ID_CLIENT_TBL_DUMP;
    if (request != dice_.one_in(50)) {
        e.flags = KX_IPC_FLAG_REQUEST;
    }
    if (dice_.one_in(60)) {
        e.flags = edge();
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
        case KX_MSG_ID_CLIENT_ASSOCIATION:
        case KX_MSG_ID_CLIENT_DISASSOCIATION:
            return joined({noise(16), mac(), bssid(), ip()});
        case KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION:
        case KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION:
            return joined({noise(16), mac(), bssid(), bssid(), ip()});
        case KX_MSG_ID_CLIENT_IP: {
            const bytes front = joined({mac(), noise(2), ip()});
            const std::string name = dice_.any(SERVING);
            return front + padded(name, name.size() + 1);
        }
        case KX_MSG_ID_CLIENT_MGR_PMK_INFO: {
            const uint32_t sub_type = dice_.one_in(16) ? edge() : HOSTAPD_PMK_FETCH + dice_.below(2);
            return joined({big32(sub_type), bssid(), bssid(), mac(), noise(32)});
        }
        case KX_MSG_ID_MAC_ACL_AUTH: {
            const bytes who = joined({mac(), bssid()});
            uint32_t length = 0;
            const bytes data = acl_data(length);
            return joined({who, big32(length), data});
        }
        case KX_MSG_ID_VAP_UPDATE:
            return padded("ath" + std::to_string(dice_.below(20)), 12);
        default:
            return noise(dice_.below(40));
    }
}

bytes event_source::acl_data(uint32_t &length) {
    bytes data = noise(dice_.one_in(8) ? dice_.below(300) : dice_.below(8));
    length = static_cast<uint32_t>(data.size());
    if (dice_.one_in(20)) {
        length = edge();
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
    // One byte of the header is random.
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
        length = static_cast<uint16_t>(edge());
    }
    const uint8_t header_length = dice_.one_in(100) ? dice_.byte() : uint8_t{4};
    return bytes{type, header_length} + big16(length) + body;
}

bytes event_source::record_body(uint8_t type) {
    switch (type) {
        case CLIENT_MGR_CLIENT_MOVE_NOTIFY: {
            const uint8_t kind = dice_.one_in(20) ? dice_.byte() : static_cast<uint8_t>(1 + dice_.below(2));
            const uint8_t vlan = dice_.one_in(2) ? uint8_t{100} : dice_.byte();
            return joined({bytes{kind}, mac(), bssid(), bssid(), bytes{vlan}});
        }
        case ROAMING_MGR_CLIENT_BULK_INFO:
        case CLIENT_MGR_PMK_FETCH_SUCCESS:
        case CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS:
        case CLIENT_MGR_REMOVE_CLIENT_BULK_INFO:
        case CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC: {
            uint32_t count = dice_.below(5);
            bytes list;
            for (uint32_t i = 0; i < count; i++) {
                list = list + client_entry();
            }
            if (dice_.one_in(60)) {
                count = edge();
            }
            return big32(count) + list;
        }
        case CLIENT_MGR_CLIENT_GUEST_AUTH:
            return mac();
        case CLIENT_MGR_CLIENT_ACL_AUTH_RESP: {
            const uint32_t verdict = dice_.one_in(20) ? edge() : dice_.below(2);
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
    const uint32_t vlan = dice_.one_in(40) ? edge() : dice_.any(vlans);
    entry = joined({entry, big32(vlan), ip(), noise(32)});
    return entry + big32(dice_.one_in(40) ? edge() : dice_.below(4));
}

// The controller hands over 2048 clients and usually removes them later.
void event_source::queue_full_table() {
    constexpr uint32_t per_message = 256;
    const bool same_bucket = dice_.one_in(2);
    const bytes rest = joined({bssid(), zeros(6), big32(100), ip(), zeros(32), zeros(4)});
    for (const uint8_t type : {ROAMING_MGR_CLIENT_BULK_INFO, CLIENT_MGR_REMOVE_CLIENT_BULK_INFO}) {
        for (uint32_t n = 0; n < 2048; n += per_message) {
            bytes body = big32(per_message);
            for (uint32_t i = n; i < n + per_message; i++) {
                body = body + (same_bucket ? mac_of_bucket_0(i) : mac_number(i)) + rest;
            }
            const bytes record = bytes{type, 4} + big16(static_cast<uint16_t>(4 + body.size())) + body;
            const bytes msg = hex("01 0e 00 0001 00") + big16(static_cast<uint16_t>(14 + record.size())) + zeros(6);
            queue_.push_back({.kind = event::CONTROLLER, .data = msg + record});
        }
        const uint32_t between = type == ROAMING_MGR_CLIENT_BULK_INFO ? 20 : 0;
        for (uint32_t i = 0; i < between; i++) {
            const event e = dice_.one_in(2) ? local() : controller();
            queue_.push_back(e);
        }
        if (dice_.one_in(8)) {
            return;
        }
    }
}

}  // namespace sim
