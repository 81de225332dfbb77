// The access point's configuration.
#ifndef TESTS_SIM_SERVICES_APCFG_H
#define TESTS_SIM_SERVICES_APCFG_H

#include <string>
#include <vector>

#include "kx/apcfg.h"

namespace sim {

// One interface of the access point's configuration.
struct listed_vap {
    std::string ifname;  // as listed, up to 12 characters
    apcfg_vap record = {};
    bool readable = true;  // apcfg has a record of it
};

class apcfg_service {
public:
    std::string radio_mac = "a0:a1:a2:a3:a4:a5";
    std::vector<listed_vap> vaps;
};

}  // namespace sim

#endif
