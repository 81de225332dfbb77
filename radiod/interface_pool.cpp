#include "radiod/interface_pool.h"

#include <charconv>

namespace radiod {

namespace {

constexpr std::uint16_t number_max = 4094;  // MAX_VLAN_ID of hostapd's src/common/defs.h

}  // namespace

void interface_pool::use(const std::set<std::uint16_t> &numbers) {
    numbers_ = numbers;
    std::erase_if(stations_, [this](const auto &each) { return !numbers_.contains(each.second.number); });
}

std::optional<std::uint16_t> interface_pool::take(const mac_address &station, time_point now) {
    if (const auto known = stations_.find(station); known != stations_.end()) {
        known->second.is_wanted = true;
        known->second.since = now;
        return known->second.number;
    }
    std::set<std::uint16_t> free = numbers_;
    auto oldest = stations_.end();
    for (auto each = stations_.begin(); each != stations_.end(); ++each) {
        const taken &its = each->second;
        free.erase(its.number);
        if (!its.is_here && its.since + kept <= now &&
            (oldest == stations_.end() || its.since < oldest->second.since)) {
            oldest = each;
        }
    }
    if (free.empty() && oldest == stations_.end()) {
        return std::nullopt;
    }
    const std::uint16_t number = free.empty() ? oldest->second.number : *free.begin();
    if (free.empty()) {
        stations_.erase(oldest);
    }
    stations_[station] = {.number = number, .is_wanted = true, .is_here = false, .since = now};
    return number;
}

std::uint16_t interface_pool::find(const mac_address &station) const {
    const auto known = stations_.find(station);
    return known == stations_.end() || !known->second.is_wanted ? 0 : known->second.number;
}

std::uint16_t interface_pool::find_kept(const mac_address &station) const {
    const auto known = stations_.find(station);
    return known == stations_.end() ? 0 : known->second.number;
}

void interface_pool::arrived(const mac_address &station, std::uint16_t number) {
    if (numbers_.contains(number)) {
        stations_[station] = {.number = number, .is_wanted = true, .is_here = true, .since = {}};
    }
}

void interface_pool::release(const mac_address &station, time_point now) {
    const auto known = stations_.find(station);
    if (known != stations_.end() && known->second.is_wanted) {
        known->second.is_wanted = known->second.is_here = false;
        known->second.since = now;
    }
}

std::optional<std::uint16_t> number_of_interface(std::string_view name, std::string_view ifname) {
    if (!name.starts_with(ifname) || name.size() < ifname.size() + 2 || name[ifname.size()] != '.') {
        return std::nullopt;
    }
    const std::string_view digits = name.substr(ifname.size() + 1);
    std::uint16_t number = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
    const bool whole = error == std::errc() && end == digits.data() + digits.size();
    return whole && number >= 1 && number <= number_max ? std::optional(number) : std::nullopt;
}

}  // namespace radiod
