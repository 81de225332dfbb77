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

std::int64_t monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec * nanoseconds_per_second + now.tv_nsec;
}

class timer {
public:
    bool is_free() const { return handler_ == nullptr; }

    // `wait` in nanoseconds. False when the timer could not be armed.
    bool start(event_base *base, std::int64_t wait, kx_eloop_timeout_handler handler, void *ctx1, void *ctx2) {
        due_ = monotonic_now() + wait;
        ctx1_ = ctx1;
        ctx2_ = ctx2;
        auto fired = [](int, short, void *self) { static_cast<timer *>(self)->fire(); };
        if (event_assign(&wakeup_, base, -1, 0, fired, this) != 0 || !arm()) {
            return false;
        }
        handler_ = handler;
        return true;
    }

private:
    bool arm() {
        std::int64_t microseconds = (std::max<std::int64_t>(due_ - monotonic_now(), 0) + 999) / 1000;
        timeval wait{microseconds / 1'000'000, microseconds % 1'000'000};
        return event_add(&wakeup_, &wait) == 0;
    }

    void fire() {
        // libevent can be early: it measures with a coarse clock, from the start of the round in which the timer was
        // armed.
        if (monotonic_now() < due_ && arm()) {
            return;
        }
        kx_eloop_timeout_handler handler = handler_;
        // Free before the call, so that a handler that registers itself again always finds a timer.
        handler_ = nullptr;
        handler(ctx1_, ctx2_);
    }

    event wakeup_{};
    kx_eloop_timeout_handler handler_ = nullptr;  // null: the timer is free
    void *ctx1_ = nullptr, *ctx2_ = nullptr;
    std::int64_t due_ = 0;  // monotonic_now()
};

struct event_loop {
    kx::event_base_ptr base;
    std::array<timer, 32> timers;
};

constinit event_loop loop;

}  // namespace

event_base *kx::process_event_base() { return loop.base.get(); }

int kx_eloop_init(void *) {
    loop.base.reset(event_base_new());
    return loop.base == nullptr ? -1 : 0;
}

int kx_eloop_register_timeout(unsigned int secs, unsigned int usecs, kx_eloop_timeout_handler handler, void *ctx1,
                              void *ctx2) {
    auto free = std::ranges::find_if(loop.timers, &timer::is_free);
    std::int64_t wait = secs * nanoseconds_per_second + std::int64_t{usecs} * 1000;
    return free != loop.timers.end() && free->start(loop.base.get(), wait, handler, ctx1, ctx2) ? 0 : -1;
}

void kx_eloop_run(void) { event_base_dispatch(loop.base.get()); }
