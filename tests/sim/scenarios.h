// Scenarios that together make every call of the platform.
#ifndef TESTS_SIM_SCENARIOS_H
#define TESTS_SIM_SCENARIOS_H

#include <iosfwd>
#include <vector>

#include "daemon_run.h"

namespace sim {

struct scenario {
    const char *name;
    void (*before)(daemon_run &run);  // events during which no call fails
    void (*events)(daemon_run &run);
};

// Prints the scenario's name in the names of tests.
void PrintTo(const scenario &s, std::ostream *out);

extern const std::vector<scenario> SCENARIOS;

}  // namespace sim

#endif
