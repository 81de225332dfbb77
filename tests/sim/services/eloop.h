// The event loop, on virtual time, and the clocks.
#ifndef TESTS_SIM_SERVICES_ELOOP_H
#define TESTS_SIM_SERVICES_ELOOP_H

#include <cstdint>
#include <functional>
#include <vector>

#include "kx/kx_eloop.h"

namespace sim {

class eloop_service {
public:
    std::function<void()> running;  // runs inside kx_eloop_run, which then returns
    int64_t wall_usecs;
    int64_t mono_usecs = 5000000;

    int64_t wall_secs() const { return wall_usecs / 1000000; }
    void set_clock(int64_t secs, int msecs = 0) { wall_usecs = secs * 1000000 + int64_t{msecs} * 1000; }
    // Advances the time and runs the timers that are due.
    void advance(unsigned secs);
    // A timer that runs once.
    void arm(int64_t delay_usecs, kx_eloop_timeout_handler handler, void *ctx1, void *ctx2);

private:
    struct timer {
        int64_t due;
        kx_eloop_timeout_handler handler;
        void *ctx1;
        void *ctx2;
    };

    std::vector<timer> timers_;
};

}  // namespace sim

#endif
