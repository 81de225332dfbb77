#include "radiod/acl_lists.h"

#include <string_view>
#include <utility>

namespace radiod {

acl_lists::entry *acl_lists::find_room(const mac_address &station) {
    const auto found = entries_.find(station);
    if (found != entries_.end()) {
        return &found->second;
    }
    return entries_.size() < stations_max ? &entries_[station] : nullptr;
}

void acl_lists::put(const mac_address &station, entry &its, list in) {
    if (its.in == in) {
        return;
    }
    const auto command = [&](list which, std::string_view verb) {
        const std::string_view name = which == list::accept ? "ACCEPT_ACL " : "DENY_ACL ";
        send_(std::string(name).append(verb).append(kx::format_mac(station)));
    };
    if (its.in != list::none) {
        command(its.in, "DEL_MAC ");
    }
    if (in != list::none) {
        command(in, "ADD_MAC ");
    }
    its.in = in;
}

void acl_lists::answered(const mac_address &station, bool allowed, time_point now) {
    if (entry *its = find_room(station)) {
        put(station, *its, list::none);
        its->allowed = allowed;
        its->until = now + cache_time;
    }
}

void acl_lists::changed(const mac_address &station, bool allowed, time_point now) {
    entry *its = find_room(station);
    if (its == nullptr || (its->until > now && its->allowed == allowed)) {
        return;
    }
    put(station, *its, allowed ? list::accept : list::deny);
    its->allowed = allowed;
    its->until = now + cache_time;
}

void acl_lists::associated_by_ft(const mac_address &station, time_point now) {
    const auto found = entries_.find(station);
    if (found != entries_.end() && found->second.allowed) {
        put(station, found->second, list::accept);
        found->second.until = now + fast_transition_time;
    }
}

void acl_lists::reset() { entries_.clear(); }

void acl_lists::expire(time_point now) {
    for (auto each = entries_.begin(); each != entries_.end();) {
        const auto its = each++;
        if (its->second.until <= now) {
            put(its->first, its->second, list::none);
            entries_.erase(its);
        }
    }
}

}  // namespace radiod
