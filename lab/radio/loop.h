// libevent's loop as an object.
#ifndef LAB_RADIO_LOOP_H
#define LAB_RADIO_LOOP_H

#include <event2/event.h>

#include <stdexcept>

#include "common/event_ptr.h"

namespace radio {

class loop {
public:
    loop() : base_(event_base_new()) {
        if (!base_) {
            throw std::runtime_error("cannot make an event loop");
        }
    }

    void run() { event_base_loop(base_.get(), EVLOOP_NO_EXIT_ON_EMPTY); }  // until stop()
    void stop() { event_base_loopbreak(base_.get()); }
    event_base *base() { return base_.get(); }

private:
    kx::event_loop_ptr base_;
};

}  // namespace radio

#endif
