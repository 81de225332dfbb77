#include "radiod/removals.h"

#include <algorithm>
#include <set>
#include <utility>

namespace radiod {

void removals::order(const mac_address &station, std::string how, time_point now) {
    removal &its = orders_[station];
    its = {.how = std::move(how), .number = ++last_number_, .since = now};
    send(station, its);
}

void removals::send(const mac_address &station, removal &its) {
    its.is = removal::state::in_flight;
    send_("DISASSOCIATE " + kx::format_mac(station) + ' ' + its.how,
          [this, station, number = its.number](bool taken) { replied(station, number, taken); });
}

void removals::replied(const mac_address &station, std::uint32_t number, bool taken) {
    const auto found = orders_.find(station);
    if (found == orders_.end() || found->second.number != number) {
        return;
    }
    removal &its = found->second;
    its.is = taken ? removal::state::taken : removal::state::open;
    if (taken && its.has_departed) {
        orders_.erase(found);
    }
}

bool removals::has_open() const {
    return std::ranges::any_of(orders_, [](const auto &each) { return each.second.is == removal::state::open; });
}

void removals::repeat(const std::optional<std::vector<kernel_station>> &listed, time_point now) {
    std::set<mac_address> there;
    for (const kernel_station &each : listed.value_or(std::vector<kernel_station>())) {
        if (is_to_go(each, now)) {
            there.insert(each.mac);
        }
    }
    for (auto each = orders_.begin(); each != orders_.end();) {
        const auto order = each++;
        if (order->second.is != removal::state::open) {
            continue;
        }
        if (listed && !there.contains(order->first)) {
            orders_.erase(order);
        } else {
            send(order->first, order->second);
        }
    }
}

// While hostapd does not answer, its stations depart, and it may have them again afterwards.
bool removals::departed(const mac_address &station) {
    const auto found = orders_.find(station);
    if (found == orders_.end()) {
        return false;
    }
    if (found->second.is == removal::state::taken) {
        orders_.erase(found);
        return true;
    }
    found->second.has_departed = true;
    return true;
}

// The kernel counts whole seconds.
bool removals::is_to_go(const kernel_station &station, time_point now) const {
    const auto found = orders_.find(station.mac);
    return found != orders_.end() && found->second.since + station.connected + std::chrono::seconds(1) > now;
}

std::vector<mac_address> removals::staying(std::span<const kernel_station> listed, time_point now) {
    std::vector<mac_address> stay;
    for (const kernel_station &each : listed) {
        if (each.authorized && !is_to_go(each, now)) {
            orders_.erase(each.mac);
            stay.push_back(each.mac);
        }
    }
    return stay;
}

void removals::expire() {
    for (auto &[station, its] : orders_) {
        its.age += its.is == removal::state::taken ? 1 : 0;
    }
    std::erase_if(orders_, [](const auto &each) { return each.second.age >= report_time; });
}

}  // namespace radiod
