#include "kx/kx_eloop.h"

#include <event2/event.h>
#include <event2/event_struct.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <ctime>

#include "common/event_ptr.h"
#include "platform/linux/event_base.h"

namespace {

constexpr std::int64_t nanoseconds_per_second = 1'000'000'000;

struct timer {
    event wakeup;
    kx_eloop_timeout_handler handler;  // null: the timer is free
    void *ctx1, *ctx2;
    std::int64_t due;  // nanoseconds of the monotonic clock
};

kx::event_base_ptr base;
std::array<timer, 32> timers{};

std::int64_t monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * nanoseconds_per_second + now.tv_nsec;
}

bool arm(timer &timer) {
    std::int64_t microseconds = (std::max<std::int64_t>(timer.due - monotonic_now(), 0) + 999) / 1000;
    timeval wait{microseconds / 1'000'000, microseconds % 1'000'000};
    return event_add(&timer.wakeup, &wait) == 0;
}

void timer_fired(evutil_socket_t, short, void *context) {
    timer &fired = *static_cast<timer *>(context);
    // libevent measures with a coarse clock, from the start of the round in which the timer was armed: it can be early.
    if (monotonic_now() < fired.due && arm(fired)) {
        return;
    }
    kx_eloop_timeout_handler handler = fired.handler;
    // Free before the call, so that a handler that registers itself again always finds a timer.
    fired.handler = nullptr;
    handler(fired.ctx1, fired.ctx2);
}

}  // namespace

event_base *kx::process_event_base() { return base.get(); }

int kx_eloop_init(void *) {
    base.reset(event_base_new());
    return base == nullptr ? -1 : 0;
}

int kx_eloop_register_timeout(unsigned int secs, unsigned int usecs, kx_eloop_timeout_handler handler, void *ctx1,
                              void *ctx2) {
    auto free = std::find_if(timers.begin(), timers.end(), [](const timer &each) { return each.handler == nullptr; });
    if (free == timers.end()) {
        return -1;
    }
    std::int64_t wait = secs * nanoseconds_per_second + std::int64_t{usecs} * 1000;
    *free = {{}, handler, ctx1, ctx2, monotonic_now() + wait};
    if (event_assign(&free->wakeup, base.get(), -1, 0, timer_fired, &*free) != 0 || !arm(*free)) {
        free->handler = nullptr;
        return -1;
    }
    return 0;
}

void kx_eloop_run(void) { event_base_dispatch(base.get()); }
