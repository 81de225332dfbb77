#include "lab/radio/player.h"

#include <algorithm>
#include <utility>

namespace radio {
namespace {

// Maximum number of events per step, so that the event loop is not blocked.
constexpr int events_per_step = 256;

}  // namespace

player::player(event_base *base, event_source &source, const settings &how,
               std::function<void(const timed_event &)> play)
    : source_(source), how_(how), play_(std::move(play)), timer_(base, -1, 0, [this] { step(); }) {}

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
        timer_.start(lab_time::zero());
    }
}

lab_time player::now() const {
    if (!started_ || !how_.speed) {
        return latest_;
    }
    const std::chrono::duration<double> passed = std::chrono::steady_clock::now() - start_;
    return std::chrono::duration_cast<lab_time>(passed * *how_.speed);
}

// True when the event is not due yet; the timer is then set.
bool player::wait_for(lab_time due) {
    if (!how_.speed) {
        return !may_go_on();
    }
    const lab_time left = due - now();
    if (left <= lab_time::zero()) {
        return false;
    }
    timer_.start(std::chrono::duration_cast<lab_time>(
        std::chrono::duration<double, std::micro>(static_cast<double>(left.count()) / *how_.speed + 1)));
    return true;
}

void player::insert(const timed_event &event) {
    inserted_.insert(std::ranges::upper_bound(inserted_, event.at, {}, &timed_event::at), event);
    ended_ = false;
    go_on();
}

player::fetched player::fetch() {
    if (next_) {
        return fetched::ready;
    }
    timed_event event;
    switch (source_.next(event)) {
        case event_source::step::event:
            next_ = event;
            return fetched::ready;
        case event_source::step::nothing_yet:
            return fetched::not_yet;
        case event_source::step::end:
            break;
    }
    return inserted_.empty() ? fetched::nothing_left : fetched::ready;
}

void player::step() {
    for (int events = 0; events < events_per_step; ++events) {
        const fetched found = fetch();
        if (found == fetched::not_yet) {
            break;
        }
        if (found == fetched::nothing_left) {
            ended_ = true;
            return on_end();
        }
        const bool inserted = has_inserted_next();
        const timed_event next = inserted ? inserted_.front() : *next_;
        if (wait_for(next.at)) {
            return;
        }
        latest_ = std::max(latest_, next.at);
        inserted ? inserted_.pop_front() : next_.reset();
        if (!inserted || source_.is_here(next.event.client, next.event.bssid, next.at)) {
            play_(next);
        }
    }
    timer_.start(lab_time::zero());
}

}  // namespace radio
