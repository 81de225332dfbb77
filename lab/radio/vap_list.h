// The [[vap]] part of an access point's configuration (common/ap_config.h), written by the radio for the
// access points that it found in a capture or a scenario.
#ifndef LAB_RADIO_VAP_LIST_H
#define LAB_RADIO_VAP_LIST_H

#include <string>
#include <vector>

#include "common/ap_config.h"
#include "lab/radio/capture_source.h"

namespace radio {

inline constexpr std::size_t vaps_max = 16;  // as many as the daemon's table holds

// Reads the capture to its end: the access points that stations have asked or that have answered them, in the order
// of their appearance, as wlan0, wlan1 and so on. VAPs of one SSID share a VLAN: 10 for the first, 20 for the next.
std::vector<kx::vap_config> discover_vaps(capture_source &capture);

std::string to_toml(const std::vector<kx::vap_config> &vaps);

}  // namespace radio

#endif
