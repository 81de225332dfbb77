// What the site makes of bulk reports, and when it asks for them.
#include <algorithm>
#include <utility>

#include "lab/controller/site.h"

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
        if (state.up && state.in_doubt.tick()) {
            tell(ap, record(record_type::req_bulk_info));
        }
    }
    return std::exchange(outbox_, {});
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

presence site::look_up(const report &read, const mac_address &station) const {
    if (read.stations.contains(station)) {
        return presence::present;
    }
    const auto known = clients_.find(station);
    const bool cut = known != clients_.end() && read.cut.contains(known->second.now.bssid);
    return read.whole && !cut ? presence::absent : presence::unclear;
}

void site::take_report(const mac_address &ap, const report &read) {
    access_point &state = aps_[ap];
    if (!state.in_doubt.awaits_report()) {
        return;
    }
    const auto findings = state.in_doubt.settle([&](const mac_address &station) { return look_up(read, station); });
    if (!state.caught_up) {
        state.caught_up = true;
        catch_up(ap, read);
        return;
    }
    for (const doubts::finding &each : findings) {
        const auto known = clients_.find(each.station);
        if (known == clients_.end() || known->second.now.ap != ap) {
            continue;
        }
        if (!each.present) {
            state.holds.try_emplace(each.station, holding::station);
            forget(each.station);
        } else if (each.what == told::moved) {
            tell_to_associate(ap, each.station, known->second.now.bssid);
        }
    }
}

// The first report of a tunnel: much may have happened while there was none.
void site::catch_up(const mac_address &ap, const report &read) {
    for (const auto &[station, where] : read.stations) {
        take_station(ap, station, where.first, where.second);
    }
    for (const auto &[station, known] : clients_) {
        if (known.now.ap == ap && look_up(read, station) == presence::absent) {
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
