#include "services/eloop.h"

#include <sys/time.h>

#include <algorithm>
#include <ctime>

#include "client_mgr/tables/client_mgr_acl.h"
#include "inside.h"
#include "platform.h"
#include "services/names.h"

namespace sim {

void eloop_service::arm(int64_t delay_usecs, kx_eloop_timeout_handler handler, void *ctx1, void *ctx2) {
    timers_.push_back({mono_usecs + delay_usecs, handler, ctx1, ctx2});
}

void eloop_service::advance(unsigned secs) {
    const int64_t end_usecs = mono_usecs + int64_t{secs} * 1000000;
    const auto earlier = [](const timer &a, const timer &b) { return a.due < b.due; };
    while (!timers_.empty()) {
        const auto next = std::min_element(timers_.begin(), timers_.end(), earlier);
        if (next->due > end_usecs) {
            break;
        }
        const timer due = *next;
        timers_.erase(next);
        wall_usecs += due.due - mono_usecs;
        mono_usecs = due.due;
        const inside daemon;
        due.handler(due.ctx1, due.ctx2);
    }
    wall_usecs += end_usecs - mono_usecs;
    mono_usecs = end_usecs;
}

extern "C" {

int kx_eloop_init(void *ctx) {
    const outside daemon;
    return here().recorded("kx_eloop_init", "kx_eloop_init(" + name_of(ctx, ctx, "ctx") + ")", 0);
}

int kx_eloop_register_timeout(unsigned int secs, unsigned int usecs, kx_eloop_timeout_handler handler, void *ctx1,
                              void *ctx2) {
    const outside daemon;
    const int result =
        here().recorded("kx_eloop_register_timeout",
                        "kx_eloop_register_timeout(" + number(secs) + ", " + number(usecs) + ", " +
                            handler_name(handler, client_mgr_acl_cache_expire, "client_mgr_acl_cache_expire") + ", " +
                            name_of(ctx1, ctx1, "ctx1") + ", " + name_of(ctx2, ctx2, "ctx2") + ")",
                        0);
    if (result == 0) {
        here().arm(int64_t{secs} * 1000000 + usecs, handler, ctx1, ctx2);
    }
    return result;
}

void kx_eloop_run(void) {
    const outside daemon;
    here().record("kx_eloop_run()");
    if (here().running) {
        here().running();
    }
}

time_t __real_time(time_t *out);
int __real_clock_gettime(clockid_t clock, timespec *out);
int __real_gettimeofday(timeval *out, void *zone);

time_t __wrap_time(time_t *out) {
    if (platform::current == nullptr) {
        return __real_time(out);
    }
    const auto now = static_cast<time_t>(here().wall_secs());
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

int __wrap_clock_gettime(clockid_t clock, timespec *out) {
    if (platform::current == nullptr) {
        return __real_clock_gettime(clock, out);
    }
    const bool wall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    const int64_t usecs = wall ? here().wall_usecs : here().mono_usecs;
    out->tv_sec = static_cast<time_t>(usecs / 1000000);
    out->tv_nsec = static_cast<long>(usecs % 1000000 * 1000);
    return 0;
}

int __wrap_gettimeofday(timeval *out, void *zone) {
    if (platform::current == nullptr) {
        return __real_gettimeofday(out, zone);
    }
    out->tv_sec = static_cast<time_t>(here().wall_secs());
    out->tv_usec = static_cast<suseconds_t>(here().wall_usecs % 1000000);
    return 0;
}

}  // extern "C"

}  // namespace sim
