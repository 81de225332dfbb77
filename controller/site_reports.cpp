// Bulk reports: when the site requests them, and their effect.
#include <algorithm>
#include <utility>

#include "controller/site.h"

namespace controller {

namespace {

// The driver lists at most this many stations of a VAP.
constexpr std::size_t stations_max = 105;
// A longer message may lack a VAP: it has no room for another list, even one without stations.
constexpr std::size_t whole_report_max = message_size_max - 54;

}  // namespace

void site::ap_up(const mac_address &ap) {
    access_point &state = aps_[ap];
    state.up = true;
    state.caught_up = false;
    state.checks.restart();
}

void site::ap_down(const mac_address &ap) { aps_[ap].up = false; }

outbox site::tick() {
    for (auto &[ap, state] : aps_) {
        state.checks.tick();
        for (const auto &[station, old] : state.checks.extract_corrections()) {
            send_correction(ap, station, old);
        }
        request_report_if_due(ap);
    }
    return std::exchange(outbox_, {});
}

void site::request_report_if_due(const mac_address &ap) {
    access_point &state = aps_[ap];
    if (state.up && state.checks.begin_report()) {
        send(ap, record(record_type::req_bulk_info));
    }
}

std::size_t site::unsettled() const {
    std::size_t number = 0;
    for (const auto &[ap, state] : aps_) {
        number += state.up ? state.checks.size() + (state.caught_up ? 0 : 1) : 0;
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
    // A station that is just joining may be on any VAP.
    const bool cut = is_here ? read.cut.contains(known->second.now.bssid) : !read.cut.empty();
    return read.whole && !cut ? presence::absent : presence::unclear;
}

void site::apply_report(const mac_address &ap, const report &read) {
    access_point &state = aps_[ap];
    if (!state.checks.awaits_report()) {
        return;
    }
    const auto results = state.checks.settle([&](const mac_address &station) { return look_up(ap, read, station); });
    if (!state.caught_up) {
        state.caught_up = true;
        catch_up(ap, read);
        return;
    }
    for (const pending_checks::result &each : results) {
        apply_result(ap, read, each);
    }
}

void site::apply_result(const mac_address &ap, const report &read, const pending_checks::result &found) {
    access_point &state = aps_[ap];
    const mac_address &station = found.station;
    const auto known = clients_.find(station);
    if (!found.present) {
        // It joined and the crossing removal dropped it, or it is no longer where the site has it.
        const bool joined = !found.deferred.empty() && !found.maybe_stale;
        if (!found.deferred.empty()) {
            state.holds.erase(station);
        }
        if (joined || (known != clients_.end() && known->second.now.ap == ap)) {
            drop_client(station);
        }
        return;
    }
    if (found.deferred.empty()) {
        return;
    }
    state.checks.clear_notice(station);
    for (const record &each : found.deferred) {
        apply(ap, each);
    }
    // The driver has the station. Without an address the daemon's table may lack it.
    const auto reported = read.stations.find(station);
    const client &now = clients_.at(station);
    if (reported != read.stations.end() && reported->second.second == 0 && now.home.ap == ap) {
        send_association(ap, station, now.now.bssid);
    }
}

// The first report through a new tunnel. Stations may have come and gone while there was none.
void site::catch_up(const mac_address &ap, const report &read) {
    for (const auto &[station, where] : read.stations) {
        add_station(ap, station, where.first, where.second);
    }
    for (const auto &[station, known] : clients_) {
        if (known.now.ap == ap && look_up(ap, read, station) == presence::absent) {
            aps_[ap].checks.add_absence(station);
        }
    }
    correct_holdings(ap);
}

void site::add_station(const mac_address &ap, const mac_address &station, const mac_address &bssid, std::uint32_t ip) {
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

// Sends the notices that the access point missed while it had no tunnel.
void site::correct_holdings(const mac_address &ap) {
    const auto held = aps_[ap].holds;
    for (const auto &[station, why] : held) {
        const auto known = clients_.find(station);
        if (known == clients_.end()) {
            send_removal(ap, station);
        } else if (known->second.now.ap == ap || why == holding::listed) {
            continue;
        } else if (known->second.home.ap == ap) {
            send_moved_to_vlan(station, known->second);
        } else {
            send_moved_away(ap, station, known->second);
        }
    }
}

}  // namespace controller
