#include "tests/bench/event_kinds.h"

#include <algorithm>
#include <array>
#include <cstring>

#include "kx/apcomm.h"
#include "wire/apcomm_channel.h"
#include "wire/big_endian.h"
#include "wire/ctrlr_messages.h"
#include "wire/driver_records.h"
#include "wire/local_messages.h"

namespace bench {

namespace {

constexpr std::uint8_t bssid[6] = {0x02, 0, 0, 0, 0x10, 0x01};
constexpr std::uint8_t other_bssid[6] = {0x02, 0, 0, 0, 0x20, 0x01};

void copy_mac(std::uint8_t to[6], const std::uint8_t from[6]) { std::copy_n(from, 6, to); }

// One vendor's prefix, as on most networks.
void write_client(std::uint8_t to[6], std::size_t index) {
    const std::uint8_t mac[6] = {0x02,
                                 0xaa,
                                 0x17,
                                 static_cast<std::uint8_t>(index >> 16),
                                 static_cast<std::uint8_t>(index >> 8),
                                 static_cast<std::uint8_t>(index)};
    copy_mac(to, mac);
}

template <class Record>
bytes bytes_of(const Record &record) {
    bytes result;
    append(result, &record, sizeof(record));
    return result;
}

bytes about_client(std::uint32_t id, std::size_t client) {
    assoc_notification payload{};
    write_client(payload.event.client.bytes, client);
    copy_mac(payload.event.bssid.bytes, bssid);
    return local_message(id, bytes_of(payload));
}

bytes foreign_association(std::size_t client) {
    foreign_assoc_notification payload{};
    write_client(payload.event.client.bytes, client);
    copy_mac(payload.event.bssid.bytes, bssid);
    copy_mac(payload.event.last_bssid.bytes, other_bssid);
    return local_message(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, bytes_of(payload));
}

bytes client_address(std::size_t client, unsigned round) {
    client_ip_notification payload{};
    write_client(payload.client.bytes, client);
    payload.ip = 0x0a000000u + ((round % 250 + 1) << 16) + static_cast<std::uint32_t>(client);
    bytes body = bytes_of(payload);
    append(body, "wlan0", sizeof("wlan0"));
    return local_message(KX_MSG_ID_CLIENT_IP, body);
}

bytes pmk(std::uint32_t sub_type, std::size_t client) {
    pmk_info_message payload{};
    payload.sub_type = sub_type;
    copy_mac(payload.bssid.bytes, bssid);
    write_client(payload.client.bytes, client);
    if (sub_type == HOSTAPD_PMK_ADD) {
        std::fill(std::begin(payload.pmk), std::end(payload.pmk), static_cast<std::uint8_t>(client | 1));
    }
    return local_message(KX_MSG_ID_CLIENT_MGR_PMK_INFO, bytes_of(payload));
}

bytes acl_request(std::size_t client) {
    acl_auth_request payload{};
    write_client(payload.client.bytes, client);
    copy_mac(payload.bssid.bytes, bssid);
    payload.data_len = 64;
    bytes body = bytes_of(payload);
    body.resize(body.size() + 64, 0x5a);
    return local_message(KX_MSG_ID_MAC_ACL_AUTH, body);
}

std::vector<bytes> carry(const bytes &message) {
    std::vector<bytes> parts;
    for (std::size_t offset = 0; offset < message.size(); offset += kx::apcomm_part_max) {
        std::size_t length = std::min(message.size() - offset, kx::apcomm_part_max);
        kx::apcomm_part head{};
        head.kind = kx::apcomm_kind_part;
        head.total = static_cast<std::uint32_t>(message.size());
        head.offset = static_cast<std::uint32_t>(offset);
        head.length = static_cast<std::uint32_t>(length);
        bytes payload = bytes_of(head);
        append(payload, message.data() + offset, length);
        parts.push_back(local_message(KX_MSG_ID_APCOMM_MSG, payload));
    }
    return parts;
}

bytes controller_message(std::uint8_t type, const bytes &body) {
    ctrlr_msg_hdr header{};
    header.version = 1;
    header.hdr_len = sizeof(header);
    header.recs = 1;
    header.tot_len = static_cast<std::uint16_t>(sizeof(header) + sizeof(ctrlr_rec_hdr) + body.size());
    ctrlr_rec_hdr record{};
    record.rec_type = type;
    record.rec_hdr_len = sizeof(record);
    record.rec_len = static_cast<std::uint16_t>(sizeof(record) + body.size());
    bytes message = bytes_of(header);
    append(message, &record, sizeof(record));
    append(message, body.data(), body.size());
    return message;
}

bytes acl_verdict(std::size_t client) {
    acl_auth_body body{};
    body.verdict = 1;
    write_client(body.client.bytes, client);
    copy_mac(body.bssid.bytes, bssid);
    return controller_message(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, bytes_of(body));
}

client_messages each(bytes (*make)(std::size_t)) {
    return [make](std::size_t client, unsigned) { return std::vector<bytes>{make(client)}; };
}

}  // namespace

bytes association(std::size_t client) { return about_client(KX_MSG_ID_CLIENT_ASSOCIATION, client); }
bytes disassociation(std::size_t client) { return about_client(KX_MSG_ID_CLIENT_DISASSOCIATION, client); }

std::vector<bytes> client_list(std::size_t entries, unsigned round) {
    be32 count{};
    count = static_cast<std::uint32_t>(entries);
    bytes body = bytes_of(count);
    for (std::size_t i = 0; i < entries; i++) {
        client_entry entry{};
        write_client(entry.client.bytes, i);
        copy_mac(entry.home_bssid.bytes, other_bssid);
        entry.home_vlan = 10;
        entry.ip.bytes[3] = static_cast<std::uint8_t>(round);
        append(body, &entry, sizeof(entry));
    }
    return carry(controller_message(ROAMING_MGR_CLIENT_BULK_INFO, body));
}

std::vector<bytes> bulk_request() { return carry(controller_message(CLIENT_MGR_REQ_BULK_INFO, {})); }

bytes station_records(std::size_t stations) {
    bytes records;
    for (std::size_t i = 0; i < stations; i++) {
        driver_station station{};
        station.length = sizeof(station);
        write_client(station.mac.bytes, i);
        append(records, &station, sizeof(station));
    }
    return records;
}

std::vector<bytes> start_up_messages() {
    kx::apcomm_status up{};
    up.kind = kx::apcomm_kind_status;
    up.status = APCOMM_STATUS_UP;
    up.ctrl_ip = 0x7f000001;
    return {local_message(KX_MSG_ID_APCOMM_MSG, bytes_of(up)), local_message(KX_MSG_ID_SYS_READY),
            local_message(KX_MSG_ID_VAP_INIT)};
}

std::vector<event_kind> make_event_kinds() {
    constexpr std::size_t many = 2000, cached = 500;
    client_messages associate = each(association), leave = each(disassociation);
    return {
        {"association", nullptr, associate, leave, many},
        {"disassociation", associate, leave, nullptr, many},
        {"client address", associate,
         [](std::size_t client, unsigned round) { return std::vector<bytes>{client_address(client, round)}; }, leave,
         many},
        {"foreign association of a known client", associate, each(foreign_association), leave, many},
        {"PMK fetch answered here",
         [](std::size_t client, unsigned) {
             return std::vector<bytes>{association(client), pmk(HOSTAPD_PMK_ADD, client)};
         },
         [](std::size_t client, unsigned) { return std::vector<bytes>{pmk(HOSTAPD_PMK_FETCH, client)}; }, leave, many},
        {"MAC ACL answered from the cache",
         [](std::size_t client, unsigned) {
             std::vector<bytes> messages{acl_request(client)};
             for (bytes &part : carry(acl_verdict(client))) {
                 messages.push_back(std::move(part));
             }
             return messages;
         },
         each(acl_request), nullptr, cached},
        {"controller message of 260 clients", nullptr,
         [](std::size_t, unsigned round) {
             static unsigned made = 0;
             static std::vector<bytes> messages;
             if (messages.empty() || made != round) {
                 messages = client_list(260, round);
                 made = round;
             }
             return messages;
         },
         nullptr, 64},
    };
}

}  // namespace bench
