#include "lab/radio/loop.h"

#include <stdexcept>
#include <utility>

namespace radio {

loop::loop() : base_(event_base_new()) {
    if (!base_) {
        throw std::runtime_error("cannot make an event loop");
    }
}

void loop::run() { event_base_loop(base_.get(), EVLOOP_NO_EXIT_ON_EMPTY); }

void loop::stop() { event_base_loopbreak(base_.get()); }

loop_event::loop_event(loop &on, int fd, short what, std::function<void(short)> handler)
    : handler_(std::move(handler)) {
    const auto call = [](evutil_socket_t, short happened, void *self) {
        static_cast<loop_event *>(self)->handler_(happened);
    };
    event_.reset(event_new(on.base(), fd, what, call, this));
    if (!event_) {
        throw std::bad_alloc();
    }
}

void loop_event::add() { event_add(event_.get(), nullptr); }

void loop_event::add(std::chrono::microseconds timeout) {
    const auto count = std::max<std::chrono::microseconds::rep>(timeout.count(), 0);
    timeval wait{};
    wait.tv_sec = static_cast<decltype(wait.tv_sec)>(count / 1000000);
    wait.tv_usec = static_cast<decltype(wait.tv_usec)>(count % 1000000);
    event_add(event_.get(), &wait);
}

void loop_event::remove() { event_del(event_.get()); }

std::unique_ptr<loop_event> make_timer(loop &on, std::function<void()> handler) {
    return std::make_unique<loop_event>(on, -1, 0, [run = std::move(handler)](short) { run(); });
}

std::unique_ptr<loop_event> make_reader(loop &on, int fd, std::function<void()> handler) {
    auto reader =
        std::make_unique<loop_event>(on, fd, EV_READ | EV_PERSIST, [run = std::move(handler)](short) { run(); });
    reader->add();
    return reader;
}

std::unique_ptr<loop_event> make_signal(loop &on, int number, std::function<void()> handler) {
    auto watcher =
        std::make_unique<loop_event>(on, number, EV_SIGNAL | EV_PERSIST, [run = std::move(handler)](short) { run(); });
    watcher->add();
    return watcher;
}

}  // namespace radio
