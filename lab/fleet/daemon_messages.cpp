// Messages to the controller and requests to the radio.
#include <algorithm>
#include <cstring>

#include "lab/fleet/daemon.h"
#include "wire/driver_records.h"

namespace fleet {

namespace {

constexpr std::size_t message_max = 16384;
constexpr std::uint32_t verdict_none_yet = 0xffffffff;

template <typename T>
std::span<const std::uint8_t> bytes_of(const T &object) {
    return {reinterpret_cast<const std::uint8_t *>(&object), sizeof(object)};
}

void fill_header(ctrlr_msg_hdr &header, const mac_address &ap, std::size_t records, std::size_t length) {
    header = {};
    header.version = 1;
    header.hdr_len = sizeof(header);
    header.recs = static_cast<std::uint16_t>(records);
    header.tot_len = static_cast<std::uint16_t>(length);
    header.ap_mac = ap;
}

template <typename T>
void append(std::vector<std::uint8_t> &to, const T &object) {
    const auto bytes = bytes_of(object);
    to.insert(to.end(), bytes.begin(), bytes.end());
}

}  // namespace

template <typename Message>
Message daemon::make_message(std::uint8_t type) const {
    Message made{};
    fill_header(made.hdr, ap_, 1, sizeof(made));
    made.rec.rec_type = type;
    made.rec.rec_hdr_len = sizeof(made.rec);
    made.rec.rec_len = static_cast<std::uint16_t>(sizeof(made) - sizeof(made.hdr));
    return made;
}

void daemon::send_update(const reassociation &event, std::uint8_t type) {
    auto message = make_message<client_update_message>(type);
    message.body = event;
    to_controller_(bytes_of(message));
}

void daemon::send_key_message(std::uint8_t type, const mac_address &station, const mac_address &bssid,
                              std::span<const std::uint8_t> pmk) {
    auto message = make_message<client_key_message>(type);
    message.client = station;
    message.bssid = bssid;
    std::ranges::copy(pmk, message.pmk);
    to_controller_(bytes_of(message));
}

void daemon::send_question(const question &asked, std::size_t vap) {
    const kx::vap_config &on = radio_.vaps()[vap];
    auto message = make_message<acl_auth_message>(CLIENT_MGR_CLIENT_ACL_AUTH_REQ);
    message.body.verdict = verdict_none_yet;
    message.body.client = asked.station;
    message.body.bssid = asked.bssid;
    message.body.ap_mac = ap_;
    message.body.vap_index = static_cast<std::uint32_t>(vap);
    message.body.radius_idx = on.radius_index;
    message.body.mac_acl_idx = on.mac_acl_index;
    message.body.radius_acl_type = on.radius_acl_type;
    message.body.data_len = static_cast<std::uint32_t>(asked.data.size());
    std::ranges::copy(asked.data.first(std::min<std::size_t>(asked.data.size(), ACL_AUTH_DATA_MAX)), message.data);
    to_controller_(bytes_of(message));
}

void daemon::fill(vap_record &record, std::uint8_t type, std::size_t length, const kx::vap_config &vap) const {
    record.rec.rec_type = type;
    record.rec.rec_hdr_len = sizeof(record.rec);
    record.rec.rec_len = static_cast<std::uint16_t>(length);
    record.bssid = vap.bssid.value();
    vap.ssid.copy(record.ssid, sizeof(record.ssid));
    record.vlan = vap.vlan;
}

void daemon::send_configuration() {
    if (!ready_) {
        return;
    }
    std::vector<std::uint8_t> message(sizeof(ctrlr_msg_hdr));
    for (const kx::vap_config &each : radio_.vaps()) {
        vap_record record{};
        fill(record, CLIENT_MGR_BULK_VAP_CONFIG, sizeof(record), each);
        append(message, record);
    }
    fill_header(*reinterpret_cast<ctrlr_msg_hdr *>(message.data()), ap_, radio_.vaps().size(), message.size());
    to_controller_(message);
}

// Leaves out the VAPs and stations for which the message has no room.
void daemon::send_report() {
    if (!ready_) {
        return;
    }
    std::vector<std::uint8_t> message(sizeof(ctrlr_msg_hdr));
    std::size_t records = 0;
    for (std::size_t vap = 0; vap < radio_.vaps().size(); vap++) {
        if (message_max - message.size() >= sizeof(vap_client_list_record)) {
            add_stations(message, vap);
            records++;
        }
    }
    fill_header(*reinterpret_cast<ctrlr_msg_hdr *>(message.data()), ap_, records, message.size());
    to_controller_(message);
}

void daemon::add_stations(std::vector<std::uint8_t> &message, std::size_t vap) const {
    const kx::driver_answer list = radio_.serve(vap, DRIVER_STATION_LIST, {}, radio::clock::now());
    const std::size_t room = message_max - message.size() - sizeof(vap_client_list_record);
    const std::size_t stations = std::min(list.data.size() / sizeof(driver_station), room / sizeof(station_entry));
    vap_client_list_record record{};
    fill(record.vap, CLIENT_MGR_BULK_INFO, sizeof(record) + stations * sizeof(station_entry), radio_.vaps()[vap]);
    record.stations = static_cast<std::uint16_t>(stations);
    append(message, record);
    for (std::size_t i = 0; i < stations; i++) {
        driver_station listed;
        std::memcpy(&listed, &list.data[i * sizeof(listed)], sizeof(listed));
        station_entry entry{};
        entry.mac = listed.mac;
        if (const client *known = find(listed.mac)) {
            entry.ip = known->ip;
        }
        append(message, entry);
    }
}

void daemon::send_away(const mac_address &station, std::size_t vap) {
    driver_station_op order{};
    order.op = DRIVER_OP_DISASSOC;
    order.reason = DRIVER_REASON_UNSPECIFIED;
    order.station = station;
    radio_.serve(vap, DRIVER_STATION_REQUEST, bytes_of(order), radio::clock::now());
}

void daemon::push_verdict(std::uint32_t decision, const mac_address &bssid, std::span<const std::uint8_t> data) {
    const auto vap = find_vap(bssid);
    if (!vap) {
        return;
    }
    driver_acl_verdict verdict_record{};
    verdict_record.verdict = decision;
    verdict_record.data_len = static_cast<std::uint32_t>(data.size());
    std::ranges::copy(data.first(std::min<std::size_t>(data.size(), DRIVER_ACL_DATA_MAX)), verdict_record.data);
    radio_.serve(*vap, DRIVER_ACL_VERDICT, bytes_of(verdict_record), radio::clock::now());
}

}  // namespace fleet
