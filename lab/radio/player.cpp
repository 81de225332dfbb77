#include "lab/radio/player.h"

#include <algorithm>
#include <utility>

namespace radio {
namespace {

// Events handed out before the rest of the process gets its turn.
constexpr int events_per_step = 256;

}  // namespace

player::player(loop &on, event_source &source, const settings &how, std::function<void(const timed_event &)> play)
    : source_(source), how_(how), play_(std::move(play)), timer_(make_timer(on, [this] { step(); })) {}

void player::start() {
    if (std::exchange(started_, true)) {
        return;
    }
    start_ = std::chrono::steady_clock::now();
    if (how_.start_at) {
        start_ += std::chrono::duration_cast<std::chrono::steady_clock::duration>(*how_.start_at -
                                                                                  std::chrono::system_clock::now());
    }
    go_on();
}

void player::go_on() {
    if (started_ && !ended_) {
        timer_->add(lab_time::zero());
    }
}

lab_time player::now() const {
    if (!started_ || !how_.speed) {
        return latest_;
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start_;
    return std::chrono::duration_cast<lab_time>(passed * *how_.speed);
}

// True when the time has not come; the timer is set then.
bool player::wait_for(lab_time due) {
    if (!how_.speed) {
        return !may_go_on();
    }
    const lab_time left = due - now();
    if (left <= lab_time::zero()) {
        return false;
    }
    timer_->add(std::chrono::duration_cast<lab_time>(
        std::chrono::duration<double, std::micro>(static_cast<double>(left.count()) / *how_.speed + 1)));
    return true;
}

void player::step() {
    for (int events = 0; events < events_per_step; ++events) {
        if (!next_) {
            timed_event event;
            switch (source_.next(event)) {
                case event_source::step::event:
                    next_ = event;
                    break;
                case event_source::step::nothing_yet:
                    return timer_->add(lab_time::zero());
                case event_source::step::end:
                    ended_ = true;
                    return on_end();
            }
        }
        if (wait_for(next_->at)) {
            return;
        }
        latest_ = std::max(latest_, next_->at);
        play_(*std::exchange(next_, std::nullopt));
    }
    timer_->add(lab_time::zero());
}

}  // namespace radio
