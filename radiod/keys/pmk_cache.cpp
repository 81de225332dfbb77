#include "radiod/keys/pmk_cache.h"

#include <algorithm>
#include <cstring>

namespace radiod {

using std::chrono::seconds;

namespace {

// A longer lifetime would overflow the clock.
constexpr seconds lifetime_max = std::chrono::hours(24 * 365);

}  // namespace

pmk_cache::entry::~entry() { explicit_bzero(key.data(), key.size()); }

void pmk_cache::remember(const mac_address &station, const pmk &key, const mac_address &origin, seconds lifetime,
                         time_point now) {
    forget(station);
    expire(now);
    if (lifetime <= seconds::zero()) {
        return;
    }
    if (entries_.size() == stations_max) {
        entries_.erase(std::ranges::min_element(entries_, {}, [](const auto &item) { return item.second.since; }));
    }
    entries_.try_emplace(station, key, origin, now, now + std::min(lifetime, lifetime_max));
}

std::optional<pmk_cache::found> pmk_cache::find(const mac_address &station, time_point now) {
    const auto at = entries_.find(station);
    if (at == entries_.end()) {
        return std::nullopt;
    }
    const entry &known = at->second;
    const auto left = std::chrono::floor<seconds>(known.until - now);
    if (left < seconds(1)) {
        entries_.erase(at);
        return std::nullopt;
    }
    return found{.key = known.key, .origin = known.origin, .left = left};
}

void pmk_cache::forget(const mac_address &station) { entries_.erase(station); }

void pmk_cache::expire(time_point now) {
    std::erase_if(entries_, [&](const auto &item) { return item.second.until <= now; });
}

}  // namespace radiod
