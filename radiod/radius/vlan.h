// The VLAN of a station in an Access-Accept (RFC 3580, 3.31): a number in hostapd's vlan_file.
#ifndef RADIOD_RADIUS_VLAN_H
#define RADIOD_RADIUS_VLAN_H

#include <cstdint>
#include <functional>
#include <optional>

#include "common/mac_address.h"
#include "radiod/radius/packet.h"

namespace radiod::radius {

using kx::mac_address;

// Which VLAN a station gets that hostapd lets in by 802.1X; 0: none. Nothing when radiod does not choose: then what the
// server says stays.
using vlan_chooser = std::function<std::optional<std::uint16_t>(const mac_address &station, const mac_address &bssid)>;

void add_vlan(packet_builder &builder, std::uint16_t number);
// Whether the attribute is one of those that say the VLAN.
bool says_vlan(std::uint8_t attribute_type);

}  // namespace radiod::radius

#endif
