// Compares the running hostapd and the kernel's bridges with the configuration of the access point.
#ifndef RADIOD_CHECK_CHECK_H
#define RADIOD_CHECK_CHECK_H

#include <cstdint>
#include <string>
#include <vector>

#include "common/ap_config.h"
#include "radiod/check/rules.h"

namespace radiod {

struct check_places {
    std::string hostapd_directory;  // hostapd's ctrl_interface
    std::uint16_t radius_port;      // of radiod
    std::string proc = "/proc", sys = "/sys", modules = "/lib/modules";
    bool carries_roamed = false;  // clients keep their home on another VLAN
};

// Asks the hostapd of each enabled VAP, and changes nothing. Takes some seconds when one does not answer.
check_result check(const check_places &places, const std::vector<kx::vap_config> &vaps);

}  // namespace radiod

#endif
