// libevent's events as objects: a handler runs on the loop until the object is gone.
#ifndef LAB_RADIO_LOOP_H
#define LAB_RADIO_LOOP_H

#include <chrono>
#include <functional>
#include <memory>

struct event_base;
struct event;

namespace radio {

class loop {
public:
    loop();  // throws std::runtime_error
    ~loop();
    loop(const loop &) = delete;
    loop &operator=(const loop &) = delete;

    void run();  // until stop()
    void stop();
    event_base *base() { return base_; }

private:
    event_base *base_;
};

class loop_event {
public:
    loop_event(loop &on, int fd, short what, std::function<void(short)> handler);
    ~loop_event();
    loop_event(const loop_event &) = delete;
    loop_event &operator=(const loop_event &) = delete;

    void add();
    void add(std::chrono::microseconds timeout);  // a timer is started again from now on
    void remove();

private:
    std::function<void(short)> handler_;
    event *event_;
};

std::unique_ptr<loop_event> make_timer(loop &on, std::function<void()> handler);
std::unique_ptr<loop_event> make_reader(loop &on, int fd, std::function<void()> handler);      // added already
std::unique_ptr<loop_event> make_signal(loop &on, int number, std::function<void()> handler);  // added already

}  // namespace radio

#endif
