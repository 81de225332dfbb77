#include "radiod/acl_entries.h"

#include <string_view>
#include <utility>

namespace radiod {
namespace {

std::string command(const mac_address &station, acl_list which, std::string_view verb) {
    return (which == acl_list::accept ? "ACCEPT_ACL " : "DENY_ACL ") + std::string(verb) + kx::format_mac(station);
}

std::string add_command(const mac_address &station, const acl_entries::entry &wanted) {
    const bool has_number = wanted.in == acl_list::accept && wanted.number != 0;
    return command(station, wanted.in, "ADD_MAC ") +
           (has_number ? " VLAN_ID=" + std::to_string(wanted.number) : std::string());
}

}  // namespace

void acl_entries::set(const mac_address &station, entry wanted) {
    if (wanted.in == acl_list::none && !stations_.contains(station)) {
        return;
    }
    stations_[station].wanted = wanted;
    changed_.insert(station);
    work();
}

void acl_entries::enter_again(const mac_address &station) {
    const auto found = stations_.find(station);
    if (found == stations_.end()) {
        return;
    }
    found->second.held = {};
    changed_.insert(station);
    work();
}

void acl_entries::enter_all() {
    const auto nothing = [](bool) {};
    send_("ACCEPT_ACL CLEAR", nothing);
    send_("DENY_ACL CLEAR", nothing);
    changed_.clear();
    failed_.clear();
    for (auto &[station, its] : stations_) {
        its.held = {};
        left_.insert(station);
    }
    work();
}

void acl_entries::retry() {
    changed_.merge(std::exchange(failed_, {}));
    work();
}

void acl_entries::work() {
    if (std::exchange(is_working_, true)) {
        return;
    }
    while (in_flight_ < in_flight_max && !(changed_.empty() && left_.empty())) {
        std::set<mac_address> &first = changed_.empty() ? left_ : changed_;
        const mac_address station = first.extract(first.begin()).value();
        step(station);
    }
    is_working_ = false;
}

// An entry of the other list, or of another interface, has to go first.
void acl_entries::step(const mac_address &station) {
    const auto found = stations_.find(station);
    if (found == stations_.end() || found->second.in_flight) {
        return;  // replied() goes on
    }
    state &its = found->second;
    if (its.held == its.wanted) {
        if (its.wanted.in == acl_list::none) {
            stations_.erase(found);
        }
        return;
    }
    const bool removes = its.held.in != acl_list::none;
    its.in_flight = true;
    ++in_flight_;
    send_(removes ? command(station, its.held.in, "DEL_MAC ") : add_command(station, its.wanted),
          [this, station, becomes = removes ? entry{} : its.wanted](bool taken) { replied(station, becomes, taken); });
}

void acl_entries::replied(const mac_address &station, entry becomes, bool taken) {
    --in_flight_;
    state &its = stations_[station];
    its.in_flight = false;
    if (taken) {
        its.held = becomes;
        changed_.insert(station);
    } else {
        failed_.insert(station);
    }
    work();
}

}  // namespace radiod
