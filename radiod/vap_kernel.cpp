#include "radiod/vap_kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <utility>

#include "common/program_log.h"

namespace radiod {

void vap_kernel::use(unsigned ifindex, const mac_address &bssid) {
    ifindex_ = ifindex;
    bssid_ = bssid;
    vlans_.clear();
}

bool vap_kernel::has_interface(unsigned ifindex) const {
    return ifindex == ifindex_ || std::ranges::find(vlans_, ifindex) != vlans_.end();
}

// A station moves from the VAP's interface to another one, so those come later.
std::optional<std::vector<kernel_station>> vap_kernel::list() {
    kernel_stations listed = kernel_.stations(ifindex_);
    if (listed.error == 0) {
        kernel_interfaces vlans = kernel_.vlan_interfaces(bssid_);
        listed.error = vlans.error;
        vlans_ = std::move(vlans.indices);
    }
    for (const unsigned each : vlans_) {
        const kernel_stations more = kernel_.stations(each);
        // hostapd removes an interface after its last station.
        if (more.error != ENODEV) {
            listed.error = listed.error != 0 ? listed.error : more.error;
        }
        listed.stations.insert(listed.stations.end(), more.stations.begin(), more.stations.end());
    }
    if (listed.error == 0) {
        has_failed_ = false;
        return std::move(listed.stations);
    }
    if (!std::exchange(has_failed_, true)) {
        kx::report(ifname_ + ": the kernel does not list the stations: " + std::strerror(listed.error));
    }
    return std::nullopt;
}

std::optional<kernel_station> vap_kernel::find(unsigned ifindex, const mac_address &station) {
    const kernel_stations listed = kernel_.station(ifindex, station);
    return listed.error != 0 || listed.stations.empty() ? std::nullopt : std::optional(listed.stations.front());
}

}  // namespace radiod
