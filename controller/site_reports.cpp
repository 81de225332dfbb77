// Bulk reports: when the site requests them, and their effect.
#include "controller/site.h"

namespace controller {

namespace {

// The driver lists at most this many stations of a VAP.
constexpr std::size_t stations_max = 105;
// A longer message may lack a VAP: it has no room for another list, even one without stations.
constexpr std::size_t whole_report_max = message_size_max - 54;
// Listed clients that are looked through at once: about a millisecond of work.
constexpr std::size_t listed_of_a_tick = 4000;

}  // namespace

void site::request_report_if_due(access_point &ap) {
    if (ap.up && ap.checks.begin_report()) {
        send(ap, record(record_type::req_bulk_info));
    }
}

std::size_t site::unsettled() const {
    std::size_t number = correcting_.size();
    for (const auto &[mac, ap] : tables_.aps()) {
        number += ap->up ? ap->checks.size() + (ap->caught_up ? 0 : 1) : 0;
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

presence site::look_up(const access_point &ap, const report &read, const mac_address &station) const {
    if (read.stations.contains(station)) {
        return presence::present;
    }
    const client *known = tables_.find_client(station);
    const bool is_here = known != nullptr && known->now.ap == ap.mac;
    // A station that is just joining may be on any VAP.
    const bool cut = is_here ? read.cut.contains(known->now.bssid) : !read.cut.empty();
    return read.whole && !cut ? presence::absent : presence::unclear;
}

void site::apply_report(access_point &ap, const report &read) {
    if (!ap.checks.awaits_report()) {
        return;
    }
    const auto results = ap.checks.settle([&](const mac_address &station) { return look_up(ap, read, station); });
    if (!ap.caught_up) {
        ap.caught_up = true;
        for (const report_checks::result &each : results) {
            tables_.check_closed(ap, tables_.get(each.station));
        }
        catch_up(ap, read);
        return;
    }
    for (const report_checks::result &each : results) {
        apply_result(ap, read, each);
    }
}

void site::apply_result(access_point &ap, const report &read, const report_checks::result &found) {
    station &checked = tables_.get(found.station);
    tables_.check_closed(ap, checked);
    if (!found.present) {
        // It joined and the crossing removal dropped it, or it is no longer where the site has it.
        const bool joined = !found.deferred.empty() && !found.maybe_stale;
        if (!found.deferred.empty()) {
            tables_.release(ap, checked);
        }
        if (joined || (checked.client && checked.client->now.ap == ap.mac)) {
            drop_client(checked);
        }
        return;
    }
    if (found.deferred.empty()) {
        return;
    }
    ap.checks.clear_notice(checked.mac);
    for (const record &each : found.deferred) {
        apply(ap, each);
    }
    // The driver has the station. Without an address the daemon's table may lack it.
    const auto reported = read.stations.find(checked.mac);
    const client &now = checked.client.value();
    if (reported != read.stations.end() && reported->second.second == 0 && now.home.ap == ap.mac) {
        send_association(ap, checked.mac, now.now.bssid);
    }
}

// The first report through a new tunnel. Stations may have come and gone while there was none.
void site::catch_up(access_point &ap, const report &read) {
    for (const auto &[mac, where] : read.stations) {
        add_station(ap, tables_.get(mac), where.first, where.second);
    }
    for (const mac_address &mac : ap.holds) {
        const client *known = tables_.find_client(mac);
        if (known != nullptr && known->now.ap == ap.mac && look_up(ap, read, mac) == presence::absent) {
            ap.checks.add_absence(mac);
        }
    }
    correct_holdings(ap);
    peers_.ap_caught_up(ap.mac);
}

void site::add_station(access_point &ap, station &found, const mac_address &bssid, std::uint32_t ip) {
    const place here = {ap.mac, bssid};
    tables_.hold(ap, found, holding::station);
    const std::optional<client> former = found.client;
    if (!found.client) {
        const auto vlan = tables_.vlan_of(here);
        tables_.set_client(found,
                           {.home = here, .now = here, .home_vlan = vlan, .ip = ip, .guest = guest_state::unknown});
    }
    client state = *found.client;
    if (state.now.ap != ap.mac) {
        return;
    }
    if (state.home == state.now) {
        state.home = here;
        state.home_vlan = tables_.vlan_of(here);
    }
    state.now = here;
    state.ip = ip != 0 ? ip : state.ip;
    tables_.set_client(found, state);
    if (state != former) {
        note(found, former ? client_event::corrected : client_event::found);
    }
    if (ip == 0) {
        restore(ap, found);
    }
}

// Sends the notices that the access point missed while it had no tunnel.
void site::correct_holdings(access_point &ap) {
    for (const mac_address &mac : mac_index(ap.holds)) {
        station &each = tables_.get(mac);
        if (!each.client) {
            send_removal(ap, each);
        } else if (each.client->now.ap == ap.mac) {
            continue;
        } else if (each.client->home.ap == ap.mac) {
            send_moved_to_vlan(each);
        } else {
            send_moved_away(ap, each);
        }
    }
    correcting_[ap.mac] = {};
    correct_listed();
}

// Removes listed clients that have left the site meanwhile. A list may be as long as the site's, so only a part of it
// is looked through; the next tick goes on.
void site::correct_listed() {
    std::size_t left = listed_of_a_tick;
    while (left > 0 && !correcting_.empty()) {
        auto &[mac, reached] = *correcting_.begin();
        access_point &ap = tables_.ap(mac);
        std::vector<mac_address> gone;
        auto at = ap.up ? ap.listed.upper_bound(reached) : ap.listed.end();
        for (; at != ap.listed.end() && left > 0; ++at, left--) {
            reached = *at;
            if (tables_.find_client(*at) == nullptr) {
                gone.push_back(*at);
            }
        }
        const bool done = at == ap.listed.end();
        for (const mac_address &each : gone) {
            send_removal(ap, tables_.get(each));
        }
        if (done) {
            correcting_.erase(correcting_.begin());
        }
    }
}

}  // namespace controller
