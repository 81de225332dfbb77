// libevent's loop and events as objects. A handler runs until its event is destroyed.
#ifndef LAB_RADIO_LOOP_H
#define LAB_RADIO_LOOP_H

#include <chrono>
#include <functional>
#include <memory>

#include "common/event_ptr.h"

namespace radio {

class loop {
public:
    loop();  // throws std::runtime_error

    void run();  // until stop()
    void stop();
    event_base *base() { return base_.get(); }

private:
    kx::event_base_ptr base_;
};

class loop_event {
public:
    loop_event(loop &on, int fd, short what, std::function<void(short)> handler);
    loop_event(const loop_event &) = delete;
    loop_event &operator=(const loop_event &) = delete;

    void add();
    void add(std::chrono::microseconds timeout);  // restarts a timer
    void remove();

private:
    std::function<void(short)> handler_;
    kx::event_ptr event_;
};

std::unique_ptr<loop_event> make_timer(loop &on, std::function<void()> handler);
std::unique_ptr<loop_event> make_reader(loop &on, int fd, std::function<void()> handler);      // already added
std::unique_ptr<loop_event> make_signal(loop &on, int number, std::function<void()> handler);  // already added

}  // namespace radio

#endif
