// The [[vap]] tables of an access point's configuration (common/ap_config.h), generated for the access points of a
// capture or a scenario.
#ifndef LAB_RADIO_VAP_LIST_H
#define LAB_RADIO_VAP_LIST_H

#include <string>
#include <vector>

#include "common/ap_config.h"
#include "lab/radio/capture_source.h"

namespace radio {

inline constexpr std::size_t vaps_max = 16;  // size of the daemon's table

// Reads the capture to its end. Returns the access points that stations sent a request to, or that sent a response, in
// order of appearance, as wlan0, wlan1 and so on. VAPs of one SSID share a VLAN: 10 for the first, 20 for the next.
std::vector<kx::vap_config> discover_vaps(capture_source &capture);

std::string to_toml(const std::vector<kx::vap_config> &vaps);

}  // namespace radio

#endif
