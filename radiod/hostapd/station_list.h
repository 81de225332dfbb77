// hostapd's own list of one VAP's stations.
#ifndef RADIOD_HOSTAPD_STATION_LIST_H
#define RADIOD_HOSTAPD_STATION_LIST_H

#include <functional>
#include <string_view>
#include <vector>

#include "radiod/hostapd/control.h"

namespace radiod {

// Asks for one station after the other. `done` is called with those that hostapd has as authorized. The list ends early
// when hostapd does not answer, when the station after which the next is asked for has gone, and after the first
// `most`.
void read_hostapd_stations(control &hostapd, std::size_t most, std::function<void(std::vector<mac_address>)> done);

}  // namespace radiod

#endif
