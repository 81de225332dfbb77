// Whether a message that the daemon sends is laid out as its receiver reads it.
#ifndef TESTS_SIM_WALK_LAYOUTS_H
#define TESTS_SIM_WALK_LAYOUTS_H

#include <string>

namespace sim {

// A sentence that says what is wrong with the message that this effect sends; empty when nothing is, or when the effect
// is no message.
std::string layout_fault(const std::string &effect);

}  // namespace sim

#endif
