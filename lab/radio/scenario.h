// A scenario: access points, stations and the stations' actions, as a TOML file.
//
//   come_back_ms = 200                   # optional: a station that the daemon disassociates associates again after
//                                        # this time; without it, it does not
//   [[ap]]
//   name = "ap1"
//   mac = "02:a0:00:00:01:00"
//   vaps = [                             # keys as in an access point's configuration; bssid is required
//     {ifname = "wlan0", ssid = "office", vlan = 10, bssid = "02:a0:00:00:01:01"},
//   ]
//
//   [[station]]
//   mac = "02:57:00:00:00:01"
//   events = [                           # in the order of their times, in seconds of lab time; one action each
//     {at = 0.5, associate = "ap1/wlan0"},
//     {at = 0.6, pmk = "00112233..."},   # 64 hexadecimal digits: hostapd has derived this key
//     {at = 0.7, address = "10.0.10.5"},
//     {at = 9, reassociate = "ap2/wlan0"},
//     {at = 9.01, fetch_pmk = true},     # hostapd has no key for the station
//     {at = 12, pass_portal = true},
//     {at = 20, leave = 8},              # the station leaves, with this reason code
//     {at = 30, associate = "ap1/wlan0"},
//     {at = 40, dropped = 4},            # its access point disassociates it, with this reason code
//   ]
#ifndef LAB_RADIO_SCENARIO_H
#define LAB_RADIO_SCENARIO_H

#include <chrono>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/ap_config.h"
#include "lab/radio/air_event.h"

namespace radio {

struct scenario_ap {
    std::string name;
    mac_address mac{};
    std::vector<kx::vap_config> vaps;  // each with its bssid; interface names all different, at most 16
};

struct scenario {
    std::vector<scenario_ap> aps;
    std::vector<timed_event> events;  // of all access points, in the order of their times
    std::optional<lab_time> come_back;

    const scenario_ap *find_ap(std::string_view name) const;
};

// Reads and checks the whole file. Throws kx::config_error (common/toml_table.h).
scenario load_scenario(const std::string &file);

}  // namespace radio

#endif
