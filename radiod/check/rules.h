// What must hold between hostapd, the kernel's bridges and the configuration of the access point.
#ifndef RADIOD_CHECK_RULES_H
#define RADIOD_CHECK_RULES_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/ap_config.h"
#include "radiod/check/hostapd_conf.h"

namespace radiod {

// Lines for the operator, each with the VAP and the remedy, without control characters.
struct check_result {
    std::vector<std::string> faults;
    std::vector<std::string> unseen;  // what could not be checked
};

// A VAP's port in the kernel.
struct bridge_port {
    std::string bridge;            // empty: none
    bool separates_vlans = false;  // the bridge filters VLANs
    // Where it does: the VLAN of untagged frames, 0 when there is none; none when the kernel does not say it.
    std::optional<std::uint16_t> pvid{};
    // Where it does not: those of its ports that are interfaces of a VLAN.
    std::vector<unsigned> uplink_vlans{};
};

// What is known of one VAP.
struct vap_view {
    kx::vap_config wanted;
    // hostapd's replies to STATUS, GET_CONFIG and MIB; none when hostapd does not answer.
    struct replies {
        std::string status, config, mib;
    };
    std::optional<replies> hostapd;
    std::string no_replies_because;        // with the remedy
    std::optional<bss_settings> settings;  // of hostapd's configuration file, when it can be read
    bridge_port port;
    std::size_t interfaces = 0;  // of hostapd, for single stations
};

check_result check_vaps(const std::vector<vap_view> &vaps, std::uint16_t radius_port);

// An SSID as hostapd prints it: printable ASCII with escapes.
std::string printable_ssid(std::string_view ssid);

}  // namespace radiod

#endif
