// How many stations roamed in each of the last minutes.
#ifndef CONTROLLER_API_ROAM_HISTORY_H
#define CONTROLLER_API_ROAM_HISTORY_H

#include <cstdint>
#include <deque>

#include "controller/store/values.h"

namespace controller::api {

class roam_history {
public:
    static constexpr std::size_t minutes_max = 24 * 60;

    struct minute {
        wall_time start{};
        std::uint64_t roams = 0;
    };

    // `total` is the number of roams since the start. To be called about once a second.
    void sample(std::uint64_t total, wall_time at);
    // In the order of time; the last one is not over.
    const std::deque<minute> &minutes() const { return minutes_; }

private:
    std::deque<minute> minutes_;
    std::uint64_t total_ = 0;
};

}  // namespace controller::api

#endif
