// An event loop for tests that wait for effects.
#ifndef TESTS_UNIT_EVENT_RIG_H
#define TESTS_UNIT_EVENT_RIG_H

#include <event2/event.h>

#include <chrono>
#include <functional>

#include "common/event_ptr.h"

struct event_rig {
    kx::event_base_ptr base{event_base_new()};

    // Handles events until `done`. False when that takes longer than `limit`.
    bool run_until(const std::function<bool()> &done, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
        auto end = std::chrono::steady_clock::now() + limit;
        while (!done()) {
            if (std::chrono::steady_clock::now() >= end) {
                return false;
            }
            timeval tick{0, 5000};
            event_base_once(
                base.get(), -1, EV_TIMEOUT, [](int, short, void *) {}, nullptr, &tick);
            event_base_loop(base.get(), EVLOOP_ONCE);
        }
        return true;
    }

    // Handles events for `time`. True when `holds` was true all the time.
    bool holds_for(std::chrono::milliseconds time, const std::function<bool()> &holds) {
        return !run_until([&] { return !holds(); }, time);
    }

    // Handles the events that are ready now.
    void settle() {
        for (int i = 0; i < 10; i++) {
            event_base_loop(base.get(), EVLOOP_NONBLOCK);
        }
    }
};

#endif
