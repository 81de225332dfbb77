#include "tunnel/roaming_frames.h"

namespace kx {

namespace {

constexpr std::uint16_t vlan_max = 4094;  // IEEE 802.1Q-2018, table 9-2

bool is_station(const mac_address &mac) { return mac != mac_address{} && (mac[0] & 1u) == 0; }

bool is_sound(const roaming_carrier &) { return true; }

bool is_sound(const roaming_peer &body) {
    switch (roaming_role(body.role)) {
        case roaming_role::begin:
        case roaming_role::end:
            return true;
        case roaming_role::gone:
            return is_station(body.client);
        case roaming_role::local:
            return is_station(body.client) && body.vlan >= 1 && body.vlan <= vlan_max;
        case roaming_role::home:
        case roaming_role::foreign:
            return is_station(body.client) && body.vlan >= 1 && body.vlan <= vlan_max && body.peer != 0;
    }
    return false;
}

bool is_sound(const home_question &body) { return is_station(body.station); }
bool is_sound(const home_answer &body) { return is_station(body.station) && body.vlan <= vlan_max; }

template <typename T>
bool is_sound_frame(std::span<const std::uint8_t> message) {
    const auto body = read_roaming_frame<T>(message);
    return body && is_sound(*body);
}

}  // namespace

bool is_roaming_frame(std::span<const std::uint8_t> message) {
    return is_sound_frame<roaming_carrier>(message) || is_sound_frame<roaming_peer>(message) ||
           is_sound_frame<home_question>(message) || is_sound_frame<home_answer>(message);
}

}  // namespace kx
