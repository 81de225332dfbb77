// Counts the records between a fleet and its controller, and measures how long the notice of a roam takes.
#ifndef LAB_FLEET_TRAFFIC_H
#define LAB_FLEET_TRAFFIC_H

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <nlohmann/json.hpp>
#include <span>

#include "common/mac_address.h"

namespace fleet {

using kx::mac_address;

// A distribution of times, whose quantiles are at most 2 % too high.
class latency {
public:
    void add(std::chrono::nanoseconds time);
    std::uint64_t count() const { return count_; }
    // In microseconds; 0 without any time.
    double quantile(double share) const;

private:
    // Bucket i counts the times up to 1.02^i microseconds, to 49 days.
    std::array<std::uint64_t, 1500> buckets_{};
    std::uint64_t count_ = 0;
};

class traffic {
public:
    using clock = std::chrono::steady_clock;

    // Whole controller messages.
    void sent(std::span<const std::uint8_t> message, clock::time_point now);
    void received(std::span<const std::uint8_t> message, clock::time_point now);
    void lost() { lost_++; }

    std::uint64_t records_sent() const { return records_sent_; }
    std::uint64_t messages() const { return messages_; }  // of both directions
    // From the report of a roam to the first notice about the client at another access point.
    const latency &move_notices() const { return move_notices_; }
    nlohmann::ordered_json to_json() const;

private:
    struct counts {
        std::array<std::uint64_t, 256> of_type{};  // messages, by the type of their first record
    };

    std::uint64_t records_sent_ = 0;
    std::uint64_t messages_ = 0;
    std::uint64_t lost_ = 0;
    counts sent_, received_;
    std::map<mac_address, clock::time_point> roams_;  // whose notice has not come
    latency move_notices_;
};

}  // namespace fleet

#endif
