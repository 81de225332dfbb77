#include "radiod/announcer.h"

#include <algorithm>
#include <vector>

namespace radiod {

void announcer::arrived(const place &at, const mac_address &address, const std::optional<mac_address> &previous) {
    station &its = stations_[{at.bssid, address}];
    its.at = at;
    its.previous = previous;
    its.arrival = ++last_arrival_;
    send_arrival(address, its);
}

void announcer::send_arrival(const mac_address &address, const station &its) {
    const mac_address &bssid = its.at.bssid;
    send_(its.previous ? kx::reassociation_notification(address, bssid, *its.previous)
                       : kx::association_notification(address, bssid));
    if (its.ip != 0) {
        send_(kx::address_notification(address, its.ip, its.at.ifname));
    }
}

std::optional<announcer::station> announcer::remove(const place &from, const mac_address &address) {
    const auto found = stations_.find({from.bssid, address});
    if (found == stations_.end()) {
        return std::nullopt;
    }
    station its = std::move(found->second);
    stations_.erase(found);
    return its;
}

void announcer::departed(const place &from, const mac_address &address) {
    if (const std::optional<station> its = remove(from, address)) {
        departed_unseen(from, address, its->previous.has_value());
    }
}

void announcer::departed_unseen(const place &from, const mac_address &address, bool roamed_in) {
    kx::notification message = kx::departure_notification(address, from.bssid, roamed_in);
    if (departures_.size() == departures_max) {
        departures_.pop_front();
    }
    departures_.emplace_back(key{from.bssid, address}, message);
    send_(std::move(message));
}

void announcer::sent_away(const place &from, const mac_address &address) { remove(from, address); }

void announcer::has_address(const place &at, const mac_address &address, std::uint32_t ip) {
    const auto found = stations_.find({at.bssid, address});
    if (found == stations_.end() || found->second.ip == ip) {
        return;
    }
    found->second.ip = ip;
    send_(kx::address_notification(address, ip, at.ifname));
}

void announcer::all_again(const std::function<bool(const place &, const mac_address &)> &is_heard) {
    for (auto &[who, message] : departures_) {
        if (!stations_.contains(who)) {
            send_(std::move(message));
        }
    }
    departures_.clear();

    std::vector<decltype(stations_)::const_pointer> in_order;
    for (const auto &each : stations_) {
        in_order.push_back(&each);
    }
    std::ranges::sort(in_order, {}, [](const auto *each) { return each->second.arrival; });
    for (const auto *each : in_order) {
        if (is_heard(each->second.at, each->first.second)) {
            send_arrival(each->first.second, each->second);
        }
    }
}

}  // namespace radiod
