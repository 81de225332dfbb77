// The access points' records and their effect on the site.
#include "controller/site.h"

#include <utility>

namespace controller {

site::handler site::handler_of(record_type type) {
    switch (type) {
        case record_type::bulk_info:
        case record_type::bulk_vap_config:
            return &site::vap_configured;
        case record_type::client_assoc:
            return &site::associated;
        case record_type::client_disassoc:
        case record_type::foreign_client_disassoc:
            return &site::left;
        case record_type::client_ip:
            return &site::got_address;
        case record_type::foreign_client_assoc:
            return &site::roamed_in;
        case record_type::pmk_add:
            return &site::pmk_added;
        case record_type::pmk_fetch:
            return &site::pmk_requested;
        case record_type::client_info_fetch:
            return &site::client_requested;
        case record_type::client_guest_assoc:
            return &site::guest_associated;
        case record_type::client_acl_auth_req:
            return &site::verdict_requested;
        default:
            return nullptr;
    }
}

outbox site::handle(const message &from) {
    if (!from.ap) {
        return {};
    }
    bool reports_stations = from.items.empty();
    for (const item &each : from.items) {
        if (const auto *one = std::get_if<record>(&each)) {
            reports_stations = reports_stations || one->type() == record_type::bulk_info;
            apply(*from.ap, *one);
        }
    }
    if (reports_stations) {
        apply_report(*from.ap, read_report(from));
    }
    request_report_if_due(*from.ap);
    return std::exchange(outbox_, {});
}

void site::apply(const mac_address &ap, const record &one) {
    const handler how = handler_of(one.type());
    if (how != nullptr && !is_stale(ap, one) && !defer_if_unclear(ap, one)) {
        (this->*how)(ap, one);
    }
}

// An access point that applies an answer to a client that it serves already reports a roam from a VAP to itself. The
// record is out of date when the client is elsewhere by now.
bool site::is_stale(const mac_address &ap, const record &one) const {
    if (one.type() != record_type::foreign_client_assoc || one.body.mac("last_bssid") != one.body.mac("bssid")) {
        return false;
    }
    const auto known = clients_.find(one.body.mac("client"));
    return known != clients_.end() && known->second.now.ap != ap;
}

// An access point that was sent a removal and then reports an association either drops the client next or serves it
// again. All its records about the client wait until a report shows which.
bool site::defer_if_unclear(const mac_address &ap, const record &one) {
    const bool association = one.type() == record_type::client_assoc || one.type() == record_type::foreign_client_assoc;
    const bool follows = one.type() == record_type::client_ip || one.type() == record_type::client_guest_assoc;
    if (!association && !follows) {
        return false;
    }
    access_point &state = aps_[ap];
    const mac_address station = one.body.mac("client");
    if (!state.checks.has_deferred(station) && !(association && state.checks.last_notice(station) == notice::removal)) {
        return false;
    }
    state.holds[station] = holding::station;
    state.checks.defer(station, one, association);
    return true;
}

// The station is at `ap` and nowhere else. A notice that the access point processes only after it sent `update` would
// undo that; a correction then repeats the present state.
void site::settle_at(const mac_address &ap, const mac_address &station, const record &update) {
    for (auto &[other, state] : aps_) {
        if (other != ap) {
            state.checks.drop(station);
        }
    }
    pending_checks &checks = aps_[ap].checks;
    const bool newly_associated = update.type() == record_type::client_assoc;
    const bool lost_address = update.body.number("ip") == 0 && clients_.at(station).ip != 0;
    const auto last = checks.last_notice(station);
    if (last) {
        checks.clear_notice(station);
        checks.confirm(station);
    }
    if (last == notice::move || (last == notice::answer && newly_associated)) {
        checks.add_correction(station, *last);
    } else if (lost_address && (last == notice::association || !newly_associated)) {
        checks.add_correction(station, notice::association);
    }
}

void site::vap_configured(const mac_address &ap, const record &config) {
    const place where = {ap, config.body.mac("bssid")};
    const auto ssid = config.body.raw("ssid");
    const std::uint32_t vlan = config.body.number("vlan");
    aps_[ap].vaps[where.bssid] = {bytes(ssid.begin(), ssid.end()), vlan};
    for (auto &[station, known] : clients_) {
        if (known.home == where && !known.home_vlan) {
            known.home_vlan = vlan;
        }
    }
}

void site::associated(const mac_address &ap, const record &update) {
    const mac_address station = update.body.mac("client");
    const place here = {ap, update.body.mac("bssid")};
    const auto [at, added] = clients_.try_emplace(station);
    client &known = at->second;
    roams_ += !added && known.now.ap != ap ? 1 : 0;
    if (known.guest != guest_state::approved) {
        known.guest = guest_state::none;  // a guest's own record follows
    }
    const auto vlan = vlan_of(here);
    const std::uint32_t ip = update.body.number("ip");
    known.ip = ip != 0 || vlan != known.home_vlan ? ip : known.ip;  // an address belongs to its VLAN
    known.home = known.now = here;
    known.home_vlan = vlan;
    aps_[ap].holds[station] = holding::station;
    notify_former_holders(station, known);
    settle_at(ap, station, update);
}

void site::roamed_in(const mac_address &ap, const record &update) {
    const mac_address station = update.body.mac("client");
    const place here = {ap, update.body.mac("bssid")};
    const auto [at, added] = clients_.try_emplace(station);
    client &known = at->second;
    if (added) {
        known = guess_origin(here, update.body.mac("last_bssid"));
        aps_[known.home.ap].holds[station] = holding::station;
    }
    const auto vlan = vlan_of(here);
    roams_ += known.now.ap != ap ? 1 : 0;
    known.now = here;
    if (!vlan || !known.home_vlan || *vlan == *known.home_vlan) {
        known.home = here;
        known.home_vlan = vlan ? vlan : known.home_vlan;
    }
    if (const std::uint32_t ip = update.body.number("ip"); ip != 0) {
        known.ip = ip;
    }
    aps_[ap].holds[station] = holding::station;
    notify_former_holders(station, known);
    if (known.home.ap != ap) {
        send_moved_to_vlan(station, known);
    }
    settle_at(ap, station, update);
}

// A client that is new to the site: its home is its last BSSID when that is a VAP of the site, otherwise `here`.
client site::guess_origin(const place &here, const mac_address &last_bssid) const {
    const place origin = place_of(last_bssid).value_or(here);
    return {.home = origin, .now = origin, .home_vlan = vlan_of(origin), .ip = 0, .guest = guest_state::unknown};
}

// Counts only from the VAP that serves the client or that the client is joining. A former access point may report late.
void site::left(const mac_address &ap, const record &update) {
    const mac_address station = update.body.mac("client");
    const place here = {ap, update.body.mac("bssid")};
    access_point &state = aps_[ap];
    const auto known = clients_.find(station);
    const bool was_joining = state.checks.has_deferred(station);
    state.checks.drop(station);
    if (was_joining || (known != clients_.end() && known->second.now == here)) {
        state.holds.erase(station);
        drop_client(station);
    } else if (known == clients_.end() || known->second.now.ap != ap) {
        state.holds.erase(station);
    }
}

// Counts only from the access point that serves the client, or that was just sent its entry: the address may arrive
// before the record of the roam.
void site::got_address(const mac_address &ap, const record &update) {
    const mac_address station = update.body.mac("client");
    const auto known = clients_.find(station);
    if (known != clients_.end() &&
        (known->second.now.ap == ap || aps_[ap].checks.last_notice(station) == notice::answer)) {
        known->second.ip = update.body.number("ip");
    }
}

// An approval holds as long as the guest stays on the site.
void site::guest_associated(const mac_address &ap, const record &update) {
    const mac_address station = update.body.mac("client");
    const auto known = clients_.find(station);
    if (known == clients_.end() || known->second.now.ap != ap) {
        return;
    }
    if (known->second.guest != guest_state::approved) {
        known->second.guest = guest_state::waiting;
        return;
    }
    send_approval(ap, station);
}

void site::pmk_added(const mac_address &ap, const record &added) {
    const mac_address station = added.body.mac("client");
    const auto pmk = added.body.raw("pmk");
    pmks_[station] = bytes(pmk.begin(), pmk.end());
    aps_[ap].holds[station] = holding::station;
}

void site::pmk_requested(const mac_address &ap, const record &request) {
    const mac_address station = request.body.mac("client");
    aps_[ap].holds[station] = holding::station;
    if (pmks_.contains(station)) {
        send_entries(ap, record_type::pmk_fetch_success, {entry_of(station, request.body.mac("bssid"))});
    }
}

// The answer to a fetch carries no guest state. A guest that waits for approval is associated anew instead, so that it
// keeps waiting.
void site::client_requested(const mac_address &ap, const record &request) {
    const mac_address station = request.body.mac("client");
    const mac_address bssid = request.body.mac("bssid");
    const auto known = clients_.find(station);
    aps_[ap].holds[station] = holding::station;
    aps_[ap].checks.drop(station);  // its table lacks the client, so its earlier records are obsolete
    if (known == clients_.end() || !known->second.home_vlan || known->second.guest == guest_state::waiting) {
        send_association(ap, station, bssid);
        return;
    }
    send_answer(ap, station, bssid);
}

void site::verdict_requested(const mac_address &ap, const record &request) {
    const verdict decision = acl_.decide(request.body.number("mac_acl_index"), request.body.mac("client"));
    record answer(layout_of(record_type::client_acl_auth_resp), request.body);
    answer.body.set("verdict", static_cast<std::uint32_t>(decision));
    send(ap, std::move(answer));
}

std::optional<std::uint32_t> site::vlan_of(const place &where) const {
    const auto ap = aps_.find(where.ap);
    if (ap == aps_.end()) {
        return std::nullopt;
    }
    const auto found = ap->second.vaps.find(where.bssid);
    return found == ap->second.vaps.end() ? std::nullopt : std::optional(found->second.vlan);
}

std::optional<place> site::place_of(const mac_address &bssid) const {
    if (bssid == mac_address{}) {
        return std::nullopt;
    }
    for (const auto &[ap, state] : aps_) {
        if (state.vaps.contains(bssid)) {
            return place{ap, bssid};
        }
    }
    return std::nullopt;
}

}  // namespace controller
