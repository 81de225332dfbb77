// Generates large scenarios from a seed.
#ifndef LAB_RADIO_SCENARIO_MAKER_H
#define LAB_RADIO_SCENARIO_MAKER_H

#include <cstdint>
#include <string>

namespace radio {

struct site_plan {
    unsigned access_points = 3;  // 1 to 250, in a row; the second half has other VLANs than the first
    unsigned stations = 40;      // 1 to 65000
    unsigned seconds = 60;       // of lab time, at least 20; the last five are quiet
    unsigned guests = 25;        // percentage of stations on the guest network, behind the captive portal
    unsigned restricted = 0;     // percentage of stations on a network with a MAC ACL; addresses 02:ac:...
    std::uint64_t seed = 1;
};

// The scenario as a TOML file. The same plan gives the same text on every machine.
std::string make_scenario(const site_plan &plan);

}  // namespace radio

#endif
