// Two VAPs as the configuration lists them, and the lines about loading them.
#ifndef TESTS_SIM_VAP_TABLE_H
#define TESTS_SIM_VAP_TABLE_H

#include <cstring>
#include <string>

#include "arrange.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "daemon_steps.h"
#include "sim_test.h"

namespace sim {

inline const steps INITIALISING = log(3, "Initializing vap config");
inline const steps NOT_READY = log(1, "Not yet ready to talk to controller");

inline const bytes BSSID_0 = hex("0a 1b 2c 3d 4e 50");
inline const bytes BSSID_1 = hex("0a 1b 2c 3d 4e 61");

inline void have_two_vaps(site &sim) {
    ready_to_talk();
    sim.vaps = {apcfg_entry("ath0", "home", 10), apcfg_entry("ath1", "guest", 20)};
    sim.hwaddr = {{"ath0", BSSID_0}, {"ath1", BSSID_1}};
}

// The name in an entry of the VAP table.
inline std::string name_of(const vap_cfg &vap) { return {vap.ifname, strnlen(vap.ifname, sizeof(vap.ifname))}; }

}  // namespace sim

#endif
