// An effect's text without the differences between machines.
#ifndef TESTS_SIM_RANDOM_PORTABLE_TEXT_H
#define TESTS_SIM_RANDOM_PORTABLE_TEXT_H

#include <string>

namespace sim {

// Requests to the driver carry integers in the host's order and are shown as their fields. A dumped entry begins
// with its address in memory, which is left out. Every other effect is returned unchanged.
std::string portable_text(std::string effect);

}  // namespace sim

#endif
