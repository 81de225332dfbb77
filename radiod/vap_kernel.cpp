#include "radiod/vap_kernel.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <set>
#include <utility>

#include "common/program_log.h"

namespace radiod {
namespace {

nl80211::time_point patience_from_now() { return std::chrono::steady_clock::now() + nl80211::patience; }

}  // namespace

void vap_kernel::use(unsigned ifindex, const mac_address &bssid) {
    ifindex_ = ifindex;
    bssid_ = bssid;
    vlans_.clear();
}

bool vap_kernel::has_interface(unsigned ifindex) const {
    return ifindex == ifindex_ || std::ranges::find(vlans_, ifindex) != vlans_.end();
}

// A station moves from the VAP's interface to another one, so those come later.
kernel_stations vap_kernel::read_all(nl80211::time_point end) {
    kernel_stations all = kernel_.stations(ifindex_, end);
    for (const unsigned each : vlans_) {
        const kernel_stations more = kernel_.stations(each, end);
        // hostapd removes an interface after its last station.
        if (more.error != ENODEV && all.error == 0) {
            all.error = more.error;
        }
        all.stations.insert(all.stations.end(), more.stations.begin(), more.stations.end());
    }
    return all;
}

kernel_stations vap_kernel::read_all_anew(nl80211::time_point end) {
    kernel_interfaces found = kernel_.vlan_interfaces(bssid_, end);
    if (found.error != 0) {
        return {.error = found.error};
    }
    vlans_ = std::move(found.indices);
    return read_all(end);
}

std::optional<std::vector<kernel_station>> vap_kernel::list(std::span<const mac_address> expected) {
    const auto end = patience_from_now();
    kernel_stations listed = read_all(end);
    std::set<mac_address> there;
    for (const kernel_station &each : listed.stations) {
        there.insert(each.mac);
    }
    const auto is_missing = [&](const mac_address &station) { return !there.contains(station); };
    if (listed.error == 0 && std::ranges::any_of(expected, is_missing)) {
        listed = read_all_anew(end);
    }
    return report(std::move(listed));
}

std::optional<std::vector<kernel_station>> vap_kernel::list_anew() {
    return report(read_all_anew(patience_from_now()));
}

std::optional<std::vector<kernel_station>> vap_kernel::report(kernel_stations listed) {
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
