// The invariants after every event.
#ifndef TESTS_SIM_RANDOM_SOUNDNESS_H
#define TESTS_SIM_RANDOM_SOUNDNESS_H

#include <string>
#include <vector>

#include "platform.h"

namespace sim {

// One sentence for each fault in the tables, in the fields of their entries and in g_cfg, and the platform's
// complaints.
std::vector<std::string> faults_of_daemon(const platform &sim);

}  // namespace sim

#endif
