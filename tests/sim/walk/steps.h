// Everything that can happen to the daemon in a walk. There are two stations, two VAPs of different VLANs (the
// second for guests), another access point and the controller.
#ifndef TESTS_SIM_WALK_STEPS_H
#define TESTS_SIM_WALK_STEPS_H

#include <string>
#include <vector>

#include "bytes.h"
#include "platform.h"

namespace sim {

inline constexpr int STATIONS = 2;
inline constexpr int VAPS = 2;

bytes station_mac(int station);
bytes vap_bssid(int vap);
bytes ap_mac();

struct step {
    enum what_kind {
        LOCAL,       // a local message, `id` and `data`
        CONTROLLER,  // a message of the controller, `data`
        LINK_UP,
        LINK_DOWN,
        CONFIGURED,    // the configuration lists `vap` VAPs from now on, and the daemon reloads it
        SWEEP,         // the timer of the ACL cache; it may fire at any time
        BEFORE_LIMIT,  // time passes until one second before the next verdict changes its meaning
        AT_LIMIT,      // time passes until then
    };
    what_kind kind;
    std::string name;
    uint32_t id = 0;   // of a local message; the type of a controller's record
    int station = -1;  // -1: both or none
    int vap = -1;
    bytes data = {};
    bytes ip = {};       // the address in a local message
    bool guest = false;  // the controller marks the client as a guest
};

const std::vector<step> &all_steps();

// Whether the step is possible in the current state.
bool is_possible(const step &s);
void take(const step &s, platform &sim);

// Makes the configuration and the driver list `count` VAPs.
void have_configured(platform &sim, int count);

}  // namespace sim

#endif
