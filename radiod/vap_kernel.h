// What the kernel says of one VAP's stations.
#ifndef RADIOD_VAP_KERNEL_H
#define RADIOD_VAP_KERNEL_H

#include <optional>
#include <span>
#include <string>
#include <vector>

#include "radiod/kernel/nl80211.h"

namespace radiod {

// The stations are on the VAP's interface, and on those of hostapd's vlan_file.
class vap_kernel {
public:
    // `ifname` is for the log.
    vap_kernel(nl80211 &kernel, std::string ifname) : kernel_(kernel), ifname_(std::move(ifname)) {}

    void use(unsigned ifindex, const mac_address &bssid);
    unsigned ifindex() const { return ifindex_; }
    bool has_interface(unsigned ifindex) const;

    // All stations; none when the kernel does not list them within nl80211::patience, which is reported once. When one
    // of `expected` is missing, looks for further interfaces first.
    std::optional<std::vector<kernel_station>> list(std::span<const mac_address> expected);
    // Looks for the interfaces first.
    std::optional<std::vector<kernel_station>> list_anew();
    // One of an interface; none when it does not have it.
    std::optional<kernel_station> find(unsigned ifindex, const mac_address &station);

private:
    kernel_stations read_all(nl80211::time_point end);
    kernel_stations read_all_anew(nl80211::time_point end);
    std::optional<std::vector<kernel_station>> report(kernel_stations listed);

    nl80211 &kernel_;
    std::string ifname_;
    unsigned ifindex_ = 0;
    mac_address bssid_{};
    std::vector<unsigned> vlans_;
    bool has_failed_ = false;
};

}  // namespace radiod

#endif
