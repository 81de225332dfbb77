// Events of libevent as objects. A program that includes this is linked with libevent.
#ifndef COMMON_EVENTS_H
#define COMMON_EVENTS_H

#include <event2/event.h>

#include <chrono>
#include <functional>
#include <new>
#include <utility>

#include "common/event_ptr.h"

namespace kx {

// Waits for a timer, a signal or a file descriptor until it is destroyed. Its handler may destroy it.
class watch {
public:
    using handler = std::function<void()>;

    // `what` as for event_new. For a timer, fd is -1 and `what` is 0.
    watch(event_base *base, int fd, short what, handler call) : call_(std::move(call)) {
        event_.reset(event_new(base, fd, what, on_event, this));
        if (event_ == nullptr) {
            throw std::bad_alloc();
        }
    }
    watch(const watch &) = delete;
    watch &operator=(const watch &) = delete;

    void start() { event_add(event_.get(), nullptr); }
    void start(std::chrono::microseconds wait) {
        timeval time{wait.count() / 1'000'000, wait.count() % 1'000'000};
        event_add(event_.get(), &time);
    }
    void stop() { event_del(event_.get()); }
    bool waiting() const {
        return event_pending(event_.get(), EV_READ | EV_WRITE | EV_TIMEOUT | EV_SIGNAL, nullptr) != 0;
    }

private:
    static void on_event(int, short, void *self) {
        handler call = static_cast<watch *>(self)->call_;  // a copy, because the call may destroy the object
        call();
    }

    handler call_;
    event_ptr event_;
};

}  // namespace kx

#endif
