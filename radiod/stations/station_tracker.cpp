#include "radiod/stations/station_tracker.h"

#include <algorithm>
#include <set>

namespace radiod {
namespace {

template <typename... Handlers>
struct overloaded : Handlers... {
    using Handlers::operator()...;
};
template <typename... Handlers>
overloaded(Handlers...) -> overloaded<Handlers...>;

bool is_bssid(const mac_address &address) { return (address[0] & 1U) == 0 && address != mac_address{}; }

}  // namespace

void station_tracker::handle(const hostapd_event &event, time now) {
    std::visit(overloaded{
                   [&](const frame_received &received) { receive(received.frame, now); },
                   [&](const station_connected &connected) {
                       entry *const known = find_or_add(connected.station);
                       if (known == nullptr) {
                           return;
                       }
                       grant_request(connected.station, *known, now);
                       if (!known->arrived) {
                           arrive(connected.station, *known, {});
                       }
                   },
                   [&](const handshake_completed &completed) {
                       if (entry *const known = find(completed.station)) {
                           grant_if_new(completed.station, *known, now);
                       }
                   },
                   [&](const station_disconnected &disconnected) {
                       if (entry *const known = find(disconnected.station)) {
                           depart(disconnected.station, *known);
                       }
                   },
                   [&](const ap_disabled &) { all_depart(); },
                   [&](const terminating &) { all_depart(); },
                   [](const ap_enabled &) {},
                   [](const station_polled &) {},
                   [](const station_heard &) {},
               },
               event);
}

void station_tracker::receive(const management_frame &frame, time now) {
    if (frame.bssid != bssid_) {
        return;
    }
    if (frame.kind == frame_kind::auth) {
        entry *const known = find(frame.station);
        if (known != nullptr && known->refused && frame.auth_algorithm == auth_sae) {
            known->refused->has_retried = true;
        }
    } else if (frame.kind == frame_kind::assoc_request || frame.kind == frame_kind::reassoc_request) {
        if (entry *const known = find_or_add(frame.station)) {
            receive_request(frame, *known, now);
        }
    }
}

void station_tracker::receive_request(const management_frame &frame, entry &known, time now) {
    std::optional<mac_address> previous = previous_of(frame);
    if (frame.kind == frame_kind::reassoc_request) {
        const bool may_be_refused = previous && frame.suite == akm::sae && !frame.pmkids.empty();
        known.refused = may_be_refused ? std::optional(refusal{*previous, now}) : std::nullopt;
    } else if (known.refused && known.refused->has_retried && now - known.refused->at <= refused_life) {
        previous = known.refused->previous_bssid;
    }
    known.waiting = request{{previous, frame.suite}, now};
}

std::optional<mac_address> station_tracker::previous_of(const management_frame &frame) const {
    if (frame.kind == frame_kind::assoc_request || frame.current_ap == bssid_ || !is_bssid(frame.current_ap)) {
        return std::nullopt;
    }
    return frame.current_ap;
}

void station_tracker::grant_request(const mac_address &station, entry &known, time now) {
    if (known.waiting && now - known.waiting->at <= request_life) {
        arrive(station, known, known.waiting->from);
    }
}

// A station that is present counts as new only after the kernel had removed it: until then its entry is that of the
// earlier association, its handshake may be for a new key, and its request may be refused or forged.
void station_tracker::grant_if_new(const mac_address &station, entry &known, time now) {
    if (!known.arrived || known.was_gone) {
        grant_request(station, known, now);
    }
}

void station_tracker::arrive(const mac_address &station, entry &known, const origin &from) {
    known = {.arrived = from, .waiting = {}, .refused = {}, .gone_since = {}, .was_gone = false};
    if (on_arrival) {
        on_arrival({station, known.arrived->previous_bssid, known.arrived->suite});
    }
}

// The request stays: the station may leave its old association by it.
void station_tracker::depart(const mac_address &station, entry &known, bool in_hostapd) {
    if (!known.arrived) {
        return;
    }
    const bool roamed_in = known.arrived->previous_bssid.has_value();
    known = {.arrived = {}, .waiting = known.waiting, .refused = known.refused, .gone_since = {}, .was_gone = false};
    if (on_departure) {
        on_departure({station, roamed_in, in_hostapd});
    }
}

void station_tracker::all_depart() {
    for (auto &[station, known] : stations_) {
        depart(station, known);
    }
}

void station_tracker::kernel_station(const mac_address &station, bool authorized, time now) {
    entry *const known = find(station);
    if (known == nullptr) {
        return;
    }
    known->gone_since.reset();
    if (authorized) {
        grant_if_new(station, *known, now);
    }
}

void station_tracker::kernel_gone(const mac_address &station, time now) {
    entry *const known = find(station);
    if (known != nullptr && known->arrived) {
        known->gone_since = known->gone_since.value_or(now);
        known->was_gone = true;
    }
}

void station_tracker::hostapd_lost(time now) {
    if (!away_since_) {
        away_since_ = now;
    }
}

void station_tracker::resync(std::span<const mac_address> authorized, time now) {
    away_since_.reset();
    const std::set<mac_address> here(authorized.begin(), authorized.end());
    for (auto &[station, known] : stations_) {
        if (!here.contains(station)) {
            depart(station, known);
        }
    }
    for (const mac_address &station : here) {
        entry *const known = find_or_add(station);
        if (known == nullptr) {
            return;
        }
        if (known->arrived) {
            arrive(station, *known, *known->arrived);
            continue;
        }
        grant_request(station, *known, now);
        if (!known->arrived) {
            arrive(station, *known, {});
        }
    }
}

void station_tracker::expire(time now) {
    if (away_since_ && now - *away_since_ > away_limit) {
        away_since_.reset();
        all_depart();
    }
    for (auto &[station, known] : stations_) {
        if (known.gone_since && now - *known.gone_since > gone_limit) {
            depart(station, known, true);
        }
        if (known.waiting && now - known.waiting->at > request_life) {
            known.waiting.reset();
        }
    }
    std::erase_if(stations_,
                  [](const table::value_type &each) { return !each.second.arrived && !each.second.waiting; });
}

bool station_tracker::has_open_return() const {
    return std::ranges::any_of(stations_, [](const table::value_type &each) {
        return each.second.was_gone && each.second.waiting.has_value();
    });
}

bool station_tracker::is_present(const mac_address &station) const {
    const auto found = stations_.find(station);
    return found != stations_.end() && found->second.arrived;
}

akm station_tracker::suite_of(const mac_address &station) const {
    const auto found = stations_.find(station);
    if (found == stations_.end()) {
        return akm::other;
    }
    const entry &known = found->second;
    if (known.waiting) {
        return known.waiting->from.suite;
    }
    return known.arrived ? known.arrived->suite : akm::other;
}

std::vector<mac_address> station_tracker::present() const {
    std::vector<mac_address> result;
    for (const auto &[station, known] : stations_) {
        if (known.arrived) {
            result.push_back(station);
        }
    }
    return result;
}

station_tracker::entry *station_tracker::find(const mac_address &station) {
    const auto found = stations_.find(station);
    return found == stations_.end() ? nullptr : &found->second;
}

// In a full table the station that has waited longest makes room. None when all are present.
station_tracker::entry *station_tracker::find_or_add(const mac_address &station) {
    if (entry *const known = find(station)) {
        return known;
    }
    if (stations_.size() >= stations_max) {
        const auto age = [](const table::value_type &each) {
            const entry &known = each.second;
            if (known.arrived) {
                return time::max();
            }
            return known.waiting ? known.waiting->at : time::min();
        };
        const auto oldest = std::ranges::min_element(stations_, {}, age);
        if (oldest->second.arrived) {
            return nullptr;
        }
        stations_.erase(oldest);
    }
    return &stations_[station];
}

}  // namespace radiod
