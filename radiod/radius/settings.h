// What the RADIUS service is configured with, and what it reports.
#ifndef RADIOD_RADIUS_SETTINGS_H
#define RADIOD_RADIUS_SETTINGS_H

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "common/mac_address.h"

namespace radiod::radius {

using kx::mac_address;

struct upstream_server {
    std::string address;  // IPv4 or IPv6, as a number
    std::uint16_t port;
    std::string secret;
};

struct radius_settings {
    std::uint16_t port = 1812;              // of 127.0.0.1, for hostapd; 0: any
    std::string secret;                     // shared with hostapd
    std::vector<upstream_server> upstream;  // in the order of preference; none: 802.1X is not answered
};

// hostapd asks whether the station may authenticate.
struct mac_question {
    std::uint32_t id;
    mac_address station;
    mac_address bssid;
    std::string ssid;  // any bytes
};

// The PMK of a station that a server accepted. Who keeps a copy erases it.
struct session_key {
    mac_address station;
    mac_address bssid;
    std::array<std::uint8_t, 32> pmk;
    std::optional<std::chrono::seconds> lifetime;  // the server's Session-Timeout
};

}  // namespace radiod::radius

#endif
