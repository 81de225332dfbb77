#include "lab/radio/association_tracker.h"

#include <algorithm>

#include "lab/radio/address_finder.h"

namespace radio {
namespace {

// Bounds the memory that forged addresses can use: a map of this size is emptied.
constexpr std::size_t memory_max = 65536;

template <typename Map>
auto &remember(Map &memory, const typename Map::key_type &key) {
    if (memory.size() >= memory_max && !memory.contains(key)) {
        memory.clear();
    }
    return memory[key];
}

template <typename Map>
typename Map::mapped_type recall(const Map &memory, const typename Map::key_type &key) {
    const auto found = memory.find(key);
    return found == memory.end() ? typename Map::mapped_type{} : found->second;
}

}  // namespace

std::optional<skip> association_tracker::receive(bytes data, bool padded, std::vector<air_event> &events) {
    const std::optional<frame> received = parse_frame(data, padded);
    if (!received) {
        return skip::malformed;
    }
    if (received->type != frame_type::management && received->type != frame_type::data) {
        return std::nullopt;
    }
    if (is_retransmission(*received)) {
        ++duplicates_;
        return std::nullopt;
    }
    if (received->type == frame_type::management) {
        return receive_management(*received, events);
    }
    if (const std::optional<air_event> address = find_address(*received)) {
        events.push_back(*address);
    }
    return std::nullopt;
}

bool association_tracker::is_retransmission(const frame &received) {
    constexpr std::uint8_t management_queue = 16;
    constexpr std::uint8_t plain_data_queue = 17;
    const std::uint8_t queue =
        received.type == frame_type::management ? management_queue : received.tid.value_or(plain_data_queue);
    const std::pair key{pair_of{received.transmitter, received.receiver}, queue};
    const auto last = last_sequence_.find(key);
    if (received.retry && last != last_sequence_.end() && last->second == received.sequence) {
        return true;
    }
    remember(last_sequence_, key) = received.sequence;
    return false;
}

std::optional<skip> association_tracker::receive_management(const frame &received, std::vector<air_event> &events) {
    switch (static_cast<management>(received.subtype)) {
        case management::beacon:
        case management::probe_response:
            return receive_announcement(received);
        case management::association_request:
            return receive_request(received, false);
        case management::reassociation_request:
            return receive_request(received, true);
        case management::association_response:
            return receive_response(received, false, events);
        case management::reassociation_response:
            return receive_response(received, true, events);
        case management::disassociation:
        case management::deauthentication:
            return receive_departure(received, events);
        default:
            return std::nullopt;
    }
}

// Time stamp, interval, capabilities (9.3.3.2, 9.3.3.10).
std::optional<skip> association_tracker::receive_announcement(const frame &received) {
    const std::optional<network_body> body = parse_network_body(received.body, 12);
    if (!body) {
        return skip::malformed;
    }
    if (!body->ssid.empty() && received.transmitter == received.address3) {
        remember(announced_, received.address3) = body->ssid;
    }
    return std::nullopt;
}

// Capabilities, listen interval, of a reassociation also the current access point's address (9.3.3.5, 9.3.3.7).
std::optional<skip> association_tracker::receive_request(const frame &received, bool again) {
    const std::optional<network_body> body = parse_network_body(received.body, again ? 10 : 4);
    if (!body || is_group(received.transmitter) || received.receiver != received.address3 ||
        is_group(received.receiver)) {
        return skip::malformed;
    }
    exchange &begun = remember(exchanges_, {received.transmitter, received.receiver});
    begun = {};
    if (again) {
        begun.current_ap = mac_at(body->fields, 4);
    }
    if (!body->ssid.empty()) {
        remember(requested_, received.receiver) = body->ssid;
    }
    add_access_point(received.receiver);
    return std::nullopt;
}

// Capabilities, status, association id (9.3.3.6, 9.3.3.8).
std::optional<skip> association_tracker::receive_response(const frame &received, bool again,
                                                          std::vector<air_event> &events) {
    const std::optional<network_body> body = parse_network_body(received.body, 6);
    if (!body || is_group(received.receiver) || received.transmitter != received.address3 ||
        is_group(received.transmitter)) {
        return skip::malformed;
    }
    const mac_address &client = received.receiver;
    const mac_address &bssid = received.transmitter;
    exchange &ended = remember(exchanges_, {client, bssid});
    if (ended.response == received.sequence) {
        ++duplicates_;
        return std::nullopt;
    }
    ended.response = received.sequence;
    add_access_point(bssid);

    air_event event{.client = client, .bssid = bssid, .code = little16(body->fields, 2)};
    if (event.code != 0) {
        event.what = air::refusal;
        events.push_back(event);
        return std::nullopt;
    }
    event.what = again ? air::reassociation : air::association;
    if (again) {
        event.last_bssid = ended.current_ap.value_or(recall(whereabouts_, client));
    }
    remember(whereabouts_, client) = bssid;
    events.push_back(event);
    return std::nullopt;
}

// The reason code (9.3.3.4, 9.3.3.12), which is encrypted under management frame protection.
std::optional<skip> association_tracker::receive_departure(const frame &received, std::vector<air_event> &events) {
    const bool by_access_point = received.transmitter == received.address3;
    const bool by_station = received.receiver == received.address3 && !by_access_point;
    if (received.body.size() < 2 || is_group(received.transmitter)) {
        return skip::malformed;
    }
    if (!by_access_point && !by_station) {
        return std::nullopt;  // between stations of an independent network
    }
    events.push_back({.what = air::departure,
                      .client = by_station ? received.transmitter : received.receiver,
                      .bssid = received.address3,
                      .code = received.is_protected ? std::uint16_t{0} : little16(received.body, 0),
                      .by_station = by_station});
    return std::nullopt;
}

void association_tracker::add_access_point(const mac_address &bssid) {
    constexpr std::size_t access_points_max = 1024;
    if (access_points_.size() < access_points_max && std::ranges::find(access_points_, bssid) == access_points_.end()) {
        access_points_.push_back(bssid);
    }
}

std::string association_tracker::ssid(const mac_address &bssid) const {
    const std::string announced = recall(announced_, bssid);
    return announced.empty() ? recall(requested_, bssid) : announced;
}

}  // namespace radio
