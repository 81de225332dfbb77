// Everything that can happen to the daemon in a walk: two stations, two VAPs of different VLANs, the second one for
// guests, another access point, the controller.
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
        CONFIGURED,    // the configuration lists `vap` VAPs from now on; the daemon is told
        SWEEP,         // the timer of the ACL cache; it may fire at any time
        BEFORE_LIMIT,  // time passes until one second before the next verdict changes its meaning
        AT_LIMIT,      // time passes until then
    };
    what_kind kind;
    std::string name;
    uint32_t id = 0;   // of a local message; the record type of one to a controller
    int station = -1;  // whom it is about; -1: both or none
    int vap = -1;
    bytes data = {};
    bytes ip = {};       // that a local message tells
    bool guest = false;  // a client that the controller names is a guest
};

const std::vector<step> &all_steps();

// Whether the step makes anything of a state happen at all.
bool is_possible(const step &s);
void take(const step &s, platform &sim);

// Configuration and driver list `count` VAPs.
void have_configured(platform &sim, int count);

}  // namespace sim

#endif
