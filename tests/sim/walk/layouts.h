// Checks the layout of the messages that the daemon sends.
#ifndef TESTS_SIM_WALK_LAYOUTS_H
#define TESTS_SIM_WALK_LAYOUTS_H

#include <string>

namespace sim {

// Describes the fault in the message of this effect. Empty when there is none, or when the effect is no message.
std::string layout_fault(const std::string &effect);

}  // namespace sim

#endif
