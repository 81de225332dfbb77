#include "lab/radio/association_tracker.h"

#include <algorithm>

#include "lab/radio/address_finder.h"

namespace radio {
namespace {

// Made-up addresses must not fill the memory: a memory this long forgets everything and starts anew.
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

std::optional<skip> association_tracker::hear(bytes data, bool padded, std::vector<air_event> &events) {
    const std::optional<frame> heard = parse_frame(data, padded);
    if (!heard) {
        return skip::malformed;
    }
    if (heard->type != frame_type::management && heard->type != frame_type::data) {
        return std::nullopt;
    }
    if (is_retransmission(*heard)) {
        ++duplicates_;
        return std::nullopt;
    }
    if (heard->type == frame_type::management) {
        return hear_management(*heard, events);
    }
    if (const std::optional<air_event> address = find_address(*heard)) {
        events.push_back(*address);
    }
    return std::nullopt;
}

bool association_tracker::is_retransmission(const frame &heard) {
    constexpr std::uint8_t management_queue = 16;
    constexpr std::uint8_t plain_data_queue = 17;
    const std::uint8_t queue =
        heard.type == frame_type::management ? management_queue : heard.tid.value_or(plain_data_queue);
    const std::pair key{pair_of{heard.transmitter, heard.receiver}, queue};
    const auto last = last_sequence_.find(key);
    if (heard.retry && last != last_sequence_.end() && last->second == heard.sequence) {
        return true;
    }
    remember(last_sequence_, key) = heard.sequence;
    return false;
}

std::optional<skip> association_tracker::hear_management(const frame &heard, std::vector<air_event> &events) {
    switch (static_cast<management>(heard.subtype)) {
        case management::beacon:
        case management::probe_response:
            return hear_announcement(heard);
        case management::association_request:
            return hear_request(heard, false);
        case management::reassociation_request:
            return hear_request(heard, true);
        case management::association_response:
            return hear_response(heard, false, events);
        case management::reassociation_response:
            return hear_response(heard, true, events);
        case management::disassociation:
        case management::deauthentication:
            return hear_departure(heard, events);
        default:
            return std::nullopt;
    }
}

// Time stamp, interval, capabilities (9.3.3.2, 9.3.3.10).
std::optional<skip> association_tracker::hear_announcement(const frame &heard) {
    const std::optional<network_body> body = parse_network_body(heard.body, 12);
    if (!body) {
        return skip::malformed;
    }
    if (!body->ssid.empty() && heard.transmitter == heard.address3) {
        remember(announced_, heard.address3) = body->ssid;
    }
    return std::nullopt;
}

// Capabilities, listen interval, of a reassociation also the current access point's address (9.3.3.5, 9.3.3.7).
std::optional<skip> association_tracker::hear_request(const frame &heard, bool again) {
    const std::optional<network_body> body = parse_network_body(heard.body, again ? 10 : 4);
    if (!body || is_group(heard.transmitter) || heard.receiver != heard.address3 || is_group(heard.receiver)) {
        return skip::malformed;
    }
    exchange &begun = remember(exchanges_, {heard.transmitter, heard.receiver});
    begun = {};
    if (again) {
        begun.current_ap = mac_at(body->fields, 4);
    }
    if (!body->ssid.empty()) {
        remember(asked_for_, heard.receiver) = body->ssid;
    }
    note_access_point(heard.receiver);
    return std::nullopt;
}

// Capabilities, status, association id (9.3.3.6, 9.3.3.8).
std::optional<skip> association_tracker::hear_response(const frame &heard, bool again, std::vector<air_event> &events) {
    const std::optional<network_body> body = parse_network_body(heard.body, 6);
    if (!body || is_group(heard.receiver) || heard.transmitter != heard.address3 || is_group(heard.transmitter)) {
        return skip::malformed;
    }
    const mac_address &client = heard.receiver;
    const mac_address &bssid = heard.transmitter;
    exchange &ended = remember(exchanges_, {client, bssid});
    if (ended.response == heard.sequence) {
        ++duplicates_;
        return std::nullopt;
    }
    ended.response = heard.sequence;
    note_access_point(bssid);

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

// The reason (9.3.3.4, 9.3.3.12), which management frame protection hides.
std::optional<skip> association_tracker::hear_departure(const frame &heard, std::vector<air_event> &events) {
    const bool by_access_point = heard.transmitter == heard.address3;
    const bool by_station = heard.receiver == heard.address3 && !by_access_point;
    if (heard.body.size() < 2 || is_group(heard.transmitter)) {
        return skip::malformed;
    }
    if (!by_access_point && !by_station) {
        return std::nullopt;  // between stations of a network without access point
    }
    events.push_back({.what = air::departure,
                      .client = by_station ? heard.transmitter : heard.receiver,
                      .bssid = heard.address3,
                      .code = heard.is_protected ? std::uint16_t{0} : little16(heard.body, 0),
                      .by_station = by_station});
    return std::nullopt;
}

void association_tracker::note_access_point(const mac_address &bssid) {
    constexpr std::size_t access_points_max = 1024;
    if (access_points_.size() < access_points_max && std::ranges::find(access_points_, bssid) == access_points_.end()) {
        access_points_.push_back(bssid);
    }
}

std::string association_tracker::ssid(const mac_address &bssid) const {
    const std::string announced = recall(announced_, bssid);
    return announced.empty() ? recall(asked_for_, bssid) : announced;
}

}  // namespace radio
