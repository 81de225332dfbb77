#include "radiod/keys/pmk_cache.h"

#include <openssl/sha.h>

#include <algorithm>
#include <cstring>

namespace radiod {

using std::chrono::seconds;

namespace {

constexpr std::size_t marks_max = 2 * pmk_cache::stations_max;

// A longer lifetime would overflow the clock.
constexpr seconds lifetime_max = std::chrono::hours(24 * 365);

using digest = std::array<std::uint8_t, SHA256_DIGEST_LENGTH>;

digest digest_of(const pmk &key) {
    digest made{};
    SHA256(key.data(), key.size(), made.data());
    return made;
}

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
    const time_point until = now + std::min(lifetime, lifetime_max);
    entries_.try_emplace(station, key, origin, now, until);
    if (marks_.size() >= marks_max && !marks_.contains(station)) {
        marks_.erase(std::ranges::min_element(marks_, {}, [](const auto &item) { return item.second.until; }));
    }
    marks_[station] = {.digest = digest_of(key), .until = until};
}

seconds pmk_cache::remember_fetched(const mac_address &station, const pmk &key, const mac_address &origin,
                                    seconds lifetime, time_point now) {
    const auto known = marks_.find(station);
    if (known != marks_.end() && known->second.digest == digest_of(key)) {
        lifetime = std::clamp(std::chrono::floor<seconds>(known->second.until - now), seconds::zero(), lifetime);
    }
    remember(station, key, origin, lifetime, now);
    return lifetime;
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
