#include "radiod/radius/mac_question.h"

#include <algorithm>

namespace radiod::radius {
namespace {

constexpr std::size_t mac_length = 17;  // "02-00-00-00-10-00"
constexpr std::size_t ssid_max = 32;

std::optional<mac_address> parse_address(bytes value) {
    if (value.size() > mac_length) {
        return std::nullopt;
    }
    std::string text(value.begin(), value.end());
    std::ranges::replace(text, '-', ':');
    return kx::parse_mac(text);
}

}  // namespace

std::optional<station_at_vap> read_station(const packet &request) {
    const auto calling = request.find(type::calling_station_id);
    const auto called = request.find(type::called_station_id);
    if (!calling || !called || called->size() <= mac_length || (*called)[mac_length] != ':') {
        return std::nullopt;
    }
    const auto station = parse_address(*calling);
    const auto bssid = parse_address(called->first(mac_length));
    const bytes ssid = called->subspan(mac_length + 1);
    if (!station || !bssid || ssid.size() > ssid_max) {
        return std::nullopt;
    }
    return station_at_vap{.station = *station, .bssid = *bssid, .ssid = {ssid.begin(), ssid.end()}};
}

bool is_mac_question(const packet &request, const mac_address &station) {
    const auto name = request.find(type::user_name);
    return !request.has(type::eap_message) && name && parse_address(*name) == station;
}

}  // namespace radiod::radius
