// What holds after every event, whatever it was.
#ifndef TESTS_SIM_RANDOM_SOUNDNESS_H
#define TESTS_SIM_RANDOM_SOUNDNESS_H

#include <string>
#include <vector>

#include "platform.h"

namespace sim {

// One sentence per fault: of the tables, of the fields of what they hold, of g_cfg; and the platform's complaints.
std::vector<std::string> faults_of_daemon(const platform &sim);

}  // namespace sim

#endif
