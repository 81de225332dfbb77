// Tests on the simulated platform.
//
//   SIM_TEST(association, drops_what_comes_too_early) {
//       sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, hex("..."));
//       sim.expect({log(3, "KX_MSG_ID_CLIENT_ASSOCIATION rcvd")});
//   }
//
// The body runs once at each log level from 4 to 0, on a fresh daemon, and what it expects is cut down to the level:
// a line that is logged at another level than the test says fails it. At its end nothing may be left unexpected, no
// fault rule unused, no contract breached, and both tables must be sound.
#ifndef TESTS_SIM_SIM_TEST_H
#define TESTS_SIM_SIM_TEST_H

#include <gtest/gtest.h>

#include <initializer_list>

#include "bytes.h"
#include "effects.h"
#include "platform.h"

namespace sim {

class site : public platform {
public:
    using platform::platform;

    // Expects these effects since the last call, in this order, and no others.
    void expect(std::initializer_list<steps> expected, const char *file = __builtin_FILE(),
                int line = __builtin_LINE());
    void expect_nothing(const char *file = __builtin_FILE(), int line = __builtin_LINE()) { expect({}, file, line); }
    // Drops the effects of events that only prepare the test.
    void forget() { take_effects(); }
    void check_end();
};

void at_every_log_level(void (*body)(site &));

}  // namespace sim

#define SIM_TEST(suite, name)                                        \
    static void suite##_##name([[maybe_unused]] ::sim::site &sim);   \
    TEST(suite, name) { ::sim::at_every_log_level(suite##_##name); } \
    static void suite##_##name([[maybe_unused]] ::sim::site &sim)

#endif
