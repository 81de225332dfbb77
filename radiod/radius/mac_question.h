// hostapd's question whether a station may authenticate (macaddr_acl=2).
#ifndef RADIOD_RADIUS_MAC_QUESTION_H
#define RADIOD_RADIUS_MAC_QUESTION_H

#include <string>

#include "common/mac_address.h"
#include "radiod/radius/packet.h"

namespace radiod::radius {

using kx::mac_address;

// The station and the VAP of an Access-Request (RFC 3580, 3.20 and 3.21).
struct station_at_vap {
    mac_address station;
    mac_address bssid;
    std::string ssid;
};

// None when Calling-Station-Id is no MAC address, or Called-Station-Id no BSSID with an SSID after it.
std::optional<station_at_vap> read_station(const packet &request);

// Whether the request is a question about the station alone: no EAP, and the station's address is the user's name.
bool is_mac_question(const packet &request, const mac_address &station);

}  // namespace radiod::radius

#endif
