#include "radiod/acl_lists.h"

#include <algorithm>

namespace radiod {

// Forged addresses must not displace a station that is in a list.
acl_lists::entry *acl_lists::find_room(const mac_address &station) {
    if (entries_.size() >= stations_max && !entries_.contains(station)) {
        const auto spare = std::ranges::find(entries_, acl_list::none, [](const auto &each) { return each.second.in; });
        if (spare == entries_.end()) {
            return nullptr;
        }
        entries_.erase(spare);
    }
    return &entries_[station];
}

void acl_lists::put(const mac_address &station, entry &its, acl_list in) {
    its.in = in;
    const bool has_number = in == acl_list::accept && number_of_;
    entries_of_hostapd_.set(station, {.in = in, .number = has_number ? number_of_(station) : std::uint16_t{0}});
}

void acl_lists::answered(const mac_address &station, bool allowed, bool by_verdict, time_point now) {
    if (entry *its = find_room(station)) {
        put(station, *its, acl_list::none);
        its->allowed = allowed;
        its->by_verdict = by_verdict;
        its->answered = now;
        its->until = now + cache_time;
    }
}

bool acl_lists::was_asked(const mac_address &station, time_point now) const {
    const auto found = entries_.find(station);
    return found != entries_.end() && found->second.answered + association_time > now;
}

void acl_lists::changed(const mac_address &station, bool allowed, time_point now) {
    entry *its = find_room(station);
    if (its == nullptr) {
        return;
    }
    if (its->until > now && its->allowed == allowed) {
        if (its->in != acl_list::none) {
            its->until = std::max(its->until, now + cache_time);
        }
        return;
    }
    put(station, *its, allowed ? acl_list::accept : acl_list::deny);
    its->allowed = allowed;
    its->by_verdict = true;
    its->until = now + cache_time;
}

void acl_lists::interface_changed(const mac_address &station, time_point now) {
    if (entry *its = find_room(station)) {
        put(station, *its, acl_list::accept);
        its->allowed = true;
        its->until = now + cache_time;
    }
}

void acl_lists::associated(const mac_address &station, bool by_ft) {
    const auto found = entries_.find(station);
    if (found == entries_.end()) {
        return;
    }
    entry &its = found->second;
    const bool was_listed = its.in != acl_list::none;
    if (by_ft && its.allowed && its.by_verdict) {
        its.until = time_point::max();  // until it departs
        put(station, its, acl_list::accept);
    }
    if (was_listed) {
        entries_of_hostapd_.enter_again(station);
    }
}

void acl_lists::departed(const mac_address &station, time_point now) {
    const auto found = entries_.find(station);
    if (found != entries_.end() && found->second.until == time_point::max()) {
        found->second.until = now + fast_transition_time;
    }
}

void acl_lists::expire(time_point now) {
    for (auto each = entries_.begin(); each != entries_.end();) {
        const auto its = each++;
        if (its->second.until <= now) {
            put(its->first, its->second, acl_list::none);
            entries_.erase(its);
        }
    }
}

}  // namespace radiod
