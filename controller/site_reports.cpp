// What the site makes of bulk reports, and when it asks for them.
#include <algorithm>
#include <utility>

#include "controller/site.h"

namespace controller {

namespace {

// The driver's buffer has room for this many stations of a VAP.
constexpr std::size_t stations_max = 105;
// A message with less room than a VAP's list without stations takes may lack one.
constexpr std::size_t whole_report_max = message_size_max - 54;

}  // namespace

void site::ap_up(const mac_address &ap) {
    access_point &state = aps_[ap];
    state.up = true;
    state.caught_up = false;
    state.in_doubt.restart();
}

void site::ap_down(const mac_address &ap) { aps_[ap].up = false; }

outbox site::tick() {
    for (auto &[ap, state] : aps_) {
        state.in_doubt.tick();
        for (const auto &[station, old] : state.in_doubt.corrections()) {
            tell_anew(ap, station, old);
        }
        ask_for_report(ap);
    }
    return std::exchange(outbox_, {});
}

void site::ask_for_report(const mac_address &ap) {
    access_point &state = aps_[ap];
    if (state.up && state.in_doubt.asks_for_report()) {
        tell(ap, record(record_type::req_bulk_info));
    }
}

std::size_t site::unsettled() const {
    std::size_t number = 0;
    for (const auto &[ap, state] : aps_) {
        number += state.up ? state.in_doubt.open() + (state.caught_up ? 0 : 1) : 0;
    }
    return number;
}

site::report site::read_report(const message &from) {
    report read;
    read.whole = from.length <= whole_report_max;
    for (const item &each : from.items) {
        const auto *one = std::get_if<record>(&each);
        if (one == nullptr || one->type() != record_type::bulk_info) {
            read.whole = false;
            continue;
        }
        const mac_address bssid = one->body.mac("bssid");
        if (one->entries.size() >= stations_max) {
            read.cut.insert(bssid);
        }
        for (const values &entry : one->entries) {
            read.stations[entry.mac("client")] = {bssid, entry.number("ip")};
        }
    }
    return read;
}

presence site::look_up(const mac_address &ap, const report &read, const mac_address &station) const {
    if (read.stations.contains(station)) {
        return presence::present;
    }
    const auto known = clients_.find(station);
    const bool is_here = known != clients_.end() && known->second.now.ap == ap;
    // One that may just be coming can be on any of the VAPs.
    const bool cut = is_here ? read.cut.contains(known->second.now.bssid) : !read.cut.empty();
    return read.whole && !cut ? presence::absent : presence::unclear;
}

void site::take_report(const mac_address &ap, const report &read) {
    access_point &state = aps_[ap];
    if (!state.in_doubt.awaits_report()) {
        return;
    }
    const auto findings = state.in_doubt.settle([&](const mac_address &station) { return look_up(ap, read, station); });
    if (!state.caught_up) {
        state.caught_up = true;
        catch_up(ap, read);
        return;
    }
    for (const doubts::finding &each : findings) {
        take_finding(ap, read, each);
    }
}

void site::take_finding(const mac_address &ap, const report &read, const doubts::finding &found) {
    access_point &state = aps_[ap];
    const mac_address &station = found.station;
    const auto known = clients_.find(station);
    if (!found.present) {
        // It came, and was thrown out by the notice that crossed; or it is where it was believed to be.
        const bool came = !found.held_back.empty() && !found.maybe_stale;
        if (!found.held_back.empty()) {
            state.holds.erase(station);
        }
        if (came || (known != clients_.end() && known->second.now.ap == ap)) {
            forget(station);
        }
        return;
    }
    if (found.held_back.empty()) {
        return;
    }
    state.in_doubt.has_heard(station);
    for (const record &each : found.held_back) {
        take(ap, each);
    }
    // The driver has it; without an address the daemon's table may not.
    const auto reported = read.stations.find(station);
    const client &now = clients_.at(station);
    if (reported != read.stations.end() && reported->second.second == 0 && now.home.ap == ap) {
        tell_to_associate(ap, station, now.now.bssid);
    }
}

// The first report of a tunnel: much may have happened while there was none.
void site::catch_up(const mac_address &ap, const report &read) {
    for (const auto &[station, where] : read.stations) {
        take_station(ap, station, where.first, where.second);
    }
    for (const auto &[station, known] : clients_) {
        if (known.now.ap == ap && look_up(ap, read, station) == presence::absent) {
            aps_[ap].in_doubt.missed(station);
        }
    }
    correct_holdings(ap);
}

void site::take_station(const mac_address &ap, const mac_address &station, const mac_address &bssid, std::uint32_t ip) {
    const place here = {ap, bssid};
    const auto [at, added] = clients_.try_emplace(station);
    client &known = at->second;
    aps_[ap].holds[station] = holding::station;
    if (added) {
        known = {.home = here, .now = here, .home_vlan = vlan_of(here), .ip = ip, .guest = guest_state::unknown};
    }
    if (known.now.ap != ap) {
        return;
    }
    if (known.home == known.now) {
        known.home = here;
        known.home_vlan = vlan_of(here);
    }
    known.now = here;
    if (ip != 0) {
        known.ip = ip;
    } else {
        restore(ap, station);
    }
}

// What the access point should have been told while it had no tunnel.
void site::correct_holdings(const mac_address &ap) {
    const auto held = aps_[ap].holds;
    for (const auto &[station, why] : held) {
        const auto known = clients_.find(station);
        if (known == clients_.end()) {
            tell_to_remove(ap, station);
        } else if (known->second.now.ap == ap || why == holding::listed) {
            continue;
        } else if (known->second.home.ap == ap) {
            tell_moved_to_vlan(station, known->second);
        } else {
            tell_moved_away(ap, station, known->second);
        }
    }
}

}  // namespace controller
