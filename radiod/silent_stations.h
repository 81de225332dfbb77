// What has become of stations that do not answer a poll.
#ifndef RADIOD_SILENT_STATIONS_H
#define RADIOD_SILENT_STATIONS_H

#include <functional>
#include <span>
#include <vector>

#include "radiod/kernel/bridge_entries.h"
#include "radiod/kernel/station_messages.h"

namespace radiod {

struct silent_stations {
    std::vector<mac_address> heard;        // since they were polled first
    std::vector<mac_address> roamed_away;  // unnoticed
};

// The access point to which a station comes sends a frame with the station's address into the network
// (cfg80211_send_layer2_update of the kernel), on whatever VLAN the station has there. A station has roamed away when a
// bridge has heard it behind another port after its last frame came here by radio. `silent` are those to be examined,
// for longer than a second; `listed` are the kernel's stations, and `is_here` is true of the VAP's ports.
silent_stations examine(std::span<const mac_address> silent, std::span<const kernel_station> listed,
                        std::span<const bridge_entry> entries, const std::function<bool(unsigned port)> &is_here);

}  // namespace radiod

#endif
