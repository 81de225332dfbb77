#include "controller/api/roam_history.h"

#include <utility>

namespace controller::api {

void roam_history::sample(std::uint64_t total, wall_time at) {
    const std::uint64_t more = total - std::exchange(total_, total);
    const wall_time start = std::chrono::floor<std::chrono::minutes>(at);
    if (minutes_.empty() || minutes_.back().start < start) {
        minutes_.push_back({start, 0});
        if (minutes_.size() > minutes_max) {
            minutes_.pop_front();
        }
    }
    minutes_.back().roams += more;
}

}  // namespace controller::api
