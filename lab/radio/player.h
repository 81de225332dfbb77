// Plays a source's events at their times.
#ifndef LAB_RADIO_PLAYER_H
#define LAB_RADIO_PLAYER_H

#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <optional>

#include "common/events.h"
#include "lab/radio/air_event.h"

namespace radio {

class player {
public:
    struct settings {
        std::optional<double> speed;  // lab seconds per second; none: as fast as may_go_on permits
        std::optional<std::chrono::system_clock::time_point> start_at;  // of lab time; none: at start()
    };

    player(event_base *base, event_source &source, const settings &how, std::function<void(const timed_event &)> play);

    std::function<bool()> may_go_on;  // called before each event when no speed is given
    std::function<void()> on_end;

    void start();
    // To be called when the result of may_go_on may have changed.
    void go_on();
    // Adds an event. It is skipped if the station is no longer on that BSSID at its time.
    void insert(const timed_event &event);
    bool has_started() const { return started_; }
    bool has_ended() const { return ended_; }
    // The present lab time; without a speed, the time of the last event.
    lab_time now() const;

private:
    enum class fetched : std::uint8_t { ready, not_yet, nothing_left };

    void step();
    fetched fetch();
    bool wait_for(lab_time due);
    bool has_inserted_next() const { return !inserted_.empty() && (!next_ || inserted_.front().at <= next_->at); }

    event_source &source_;
    settings how_;
    std::function<void(const timed_event &)> play_;
    kx::watch timer_;
    std::chrono::steady_clock::time_point start_;
    std::optional<timed_event> next_;   // of the source
    std::deque<timed_event> inserted_;  // in the order of their times
    lab_time latest_{};
    bool started_ = false, ended_ = false;
};

}  // namespace radio

#endif
