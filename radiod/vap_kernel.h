// What the kernel says of one VAP's stations.
#ifndef RADIOD_VAP_KERNEL_H
#define RADIOD_VAP_KERNEL_H

#include <optional>
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

    // All stations; none when the kernel does not list them, which is reported once.
    std::optional<std::vector<kernel_station>> list();
    // One of an interface; none when it does not have it.
    std::optional<kernel_station> find(unsigned ifindex, const mac_address &station);

private:
    nl80211 &kernel_;
    std::string ifname_;
    unsigned ifindex_ = 0;
    mac_address bssid_{};
    std::vector<unsigned> vlans_;  // at the last list()
    bool has_failed_ = false;
};

}  // namespace radiod

#endif
