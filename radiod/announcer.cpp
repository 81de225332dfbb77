#include "radiod/announcer.h"

#include <algorithm>

namespace radiod {

void announcer::arrived(const place &at, const mac_address &address, const std::optional<mac_address> &previous,
                        time_point now) {
    std::erase_if(held_, [&](const departure &each) {
        if (each.station == address && each.from.bssid != at.bssid) {
            settle(each.from, address, false);
        }
        return each.station == address;
    });
    std::erase_if(addresses_, [now](const auto &each) { return each.second.until <= now; });
    if (const auto known = addresses_.find(address); known != addresses_.end()) {
        known->second.until = time_point::max();
    }
    station &its = stations_[{at.bssid, address}];
    its = {.at = at, .previous = previous};
    send_arrival(address, its);
}

void announcer::send_arrival(const mac_address &address, station &its) {
    const mac_address &bssid = its.at.bssid;
    send_(its.previous ? kx::reassociation_notification(address, bssid, *its.previous)
                       : kx::association_notification(address, bssid));
    const auto known = addresses_.find(address);
    if (known != addresses_.end()) {
        send_address(address, its, known->second.ip);
    }
}

void announcer::send_address(const mac_address &address, station &its, std::uint32_t ip) const {
    its.ip = ip;
    send_(kx::address_notification(address, ip, its.at.ifname));
    if (on_address) {
        on_address(address, ip);
    }
}

std::optional<announcer::station> announcer::remove(const place &from, const mac_address &address, time_point now) {
    const auto found = stations_.find({from.bssid, address});
    if (found == stations_.end()) {
        return std::nullopt;
    }
    station its = std::move(found->second);
    stations_.erase(found);
    const auto used = addresses_.find(address);
    if (used != addresses_.end() && !is_present(address)) {
        used->second.until = now + address_time;
    }
    return its;
}

void announcer::departed(const place &from, const mac_address &address, time_point now) {
    const std::optional<station> its = remove(from, address, now);
    if (!its) {
        settle(from, address, false);
        return;
    }
    const departure gone{
        .from = from, .station = address, .roamed_in = its->previous.has_value(), .due = now + roam_time};
    if (holds_departures_) {
        held_.push_back(gone);
        on_held();
    } else {
        send_departure(gone);
    }
}

void announcer::departed_unseen(const place &from, const mac_address &address, bool roamed_in) {
    send_departure({.from = from, .station = address, .roamed_in = roamed_in, .due = {}});
}

void announcer::send_departure(const departure &gone) {
    if (sent_.size() == departures_max) {
        sent_.pop_front();
    }
    sent_.push_back(gone);
    send_(kx::departure_notification(gone.station, gone.from.bssid, gone.roamed_in));
    settle(gone.from, gone.station, true);
}

void announcer::settle(const place &from, const mac_address &address, bool announced) const {
    if (on_settled) {
        on_settled(from, address, announced);
    }
}

void announcer::sent_away(const place &from, const mac_address &address, time_point now) {
    remove(from, address, now);
    settle(from, address, false);
}

bool announcer::is_present(const mac_address &address) const {
    return std::ranges::any_of(stations_, [&](const auto &each) { return each.first.second == address; });
}

// VAPs of one bridge see the same broadcasts, in any order.
void announcer::has_address(const place &at, const mac_address &address, std::uint32_t ip, const mac_address &source,
                            time_point now) {
    if (source != address && is_present(source)) {
        return;
    }
    const auto here = stations_.find({at.bssid, address});
    const bool is_here = here != stations_.end();
    if (addresses_.contains(address) || make_room_for_address(is_here, now)) {
        addresses_[address] = {.ip = ip, .until = is_present(address) ? time_point::max() : now + address_time};
    }
    if (is_here && here->second.ip != ip) {
        send_address(address, here->second, ip);
    }
}

void announcer::remember_address(const mac_address &address, std::uint32_t ip, time_point now) {
    addresses_[address] = {.ip = ip, .until = now + address_time};
}

// Hosts behind the bridge are seen too, and do not displace a station.
bool announcer::make_room_for_address(bool is_here, time_point now) {
    if (addresses_.size() < addresses_max) {
        return true;
    }
    std::erase_if(addresses_, [now](const auto &each) { return each.second.until <= now; });
    if (addresses_.size() >= addresses_max && is_here) {
        addresses_.erase(addresses_.begin());
    }
    return addresses_.size() < addresses_max;
}

void announcer::all_again() {
    for (const departure &each : std::exchange(sent_, {})) {
        if (!stations_.contains({each.from.bssid, each.station})) {
            send_(kx::departure_notification(each.station, each.from.bssid, each.roamed_in));
        }
    }
    for (auto &[who, its] : stations_) {
        its.to_confirm = true;
        its.polls = 0;
    }
}

void announcer::visit_unconfirmed(const place &at, const std::function<bool(const mac_address &, station &)> &visit) {
    for (auto each = stations_.lower_bound({at.bssid, {}}); each != stations_.end() && each->first.first == at.bssid;
         ++each) {
        if (each->second.to_confirm && !visit(each->first.second, each->second)) {
            return;
        }
    }
}

std::vector<mac_address> announcer::ask_unconfirmed(const place &at, std::size_t most) {
    std::vector<mac_address> found;
    visit_unconfirmed(at, [&](const mac_address &address, station &its) {
        if (its.polls < polls_max || its.polls % slow_polls == 0) {
            found.push_back(address);
        }
        ++its.polls;
        return found.size() < most;
    });
    return found;
}

std::vector<mac_address> announcer::silent(const place &at) {
    std::vector<mac_address> found;
    visit_unconfirmed(at, [&](const mac_address &address, station &its) {
        if (its.polls >= polls_max) {
            found.push_back(address);
        }
        return true;
    });
    return found;
}

void announcer::confirmed(const place &at, const mac_address &address) {
    const auto found = stations_.find({at.bssid, address});
    if (found != stations_.end() && std::exchange(found->second.to_confirm, false)) {
        send_arrival(address, found->second);
    }
}

std::optional<announcer::time_point> announcer::next_deadline() const {
    return held_.empty() ? std::nullopt : std::optional(held_.front().due);
}

void announcer::expire(time_point now) {
    while (!held_.empty() && held_.front().due <= now) {
        const departure gone = held_.front();
        held_.pop_front();
        send_departure(gone);
    }
}

}  // namespace radiod
