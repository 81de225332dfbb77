// The access points and their records.
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

void site::ap_up(const mac_address &ap) {
    access_point &state = tables_.ap(ap);
    state.up = true;
    state.caught_up = false;
    for (const mac_address &each : state.checks.stations()) {
        tables_.check_closed(state, tables_.get(each));
    }
    state.checks.restart();
    tables_.purge();
    peers_.ap_up(ap);
}

void site::ap_down(const mac_address &ap) {
    tables_.ap(ap).up = false;
    peers_.ap_down(ap);
}

outbox site::forget_ap(const mac_address &mac) {
    access_point *const gone = tables_.find_ap(mac);
    if (gone == nullptr || gone->up) {
        return {};
    }
    for (const mac_address &each : gone->checks.stations()) {
        tables_.check_closed(*gone, tables_.get(each));
    }
    gone->checks.restart();
    for (const mac_index &held : {mac_index(gone->holds), mac_index(gone->listed)}) {
        for (const mac_address &each : held) {
            tables_.release(*gone, tables_.get(each));
            lose_ap(mac, tables_.get(each));
        }
    }
    for (const mac_address &each : std::set(gone->without_vlan)) {
        lose_ap(mac, tables_.get(each));
    }
    correcting_.erase(mac);
    tables_.erase(*gone);
    return finish();
}

void site::lose_ap(const mac_address &gone, station &of) {
    if (!of.client) {
        return;
    }
    client state = *of.client;
    if (state.now.ap == gone) {
        drop_client(of);
    } else if (state.home.ap == gone) {
        state.home = state.now;
        state.home_vlan = tables_.vlan_of(state.now);
        tables_.set_client(of, state);
        note(of, client_event::corrected);
    }
}

outbox site::handle(const message &from) {
    if (!from.ap) {
        return {};
    }
    access_point &ap = tables_.ap(*from.ap);
    bool reports_stations = from.items.empty();
    for (const item &each : from.items) {
        if (const auto *one = std::get_if<record>(&each)) {
            reports_stations = reports_stations || one->type() == record_type::bulk_info;
            apply(ap, *one);
        }
    }
    if (reports_stations) {
        apply_report(ap, read_report(from));
    }
    request_report_if_due(ap);
    return finish();
}

outbox site::tick() {
    peers_.tick();
    for (const auto &[mac, ap] : tables_.aps()) {
        ap->checks.tick();
        for (const auto &[station, old] : ap->checks.extract_corrections()) {
            send_correction(*ap, station, old);
        }
        request_report_if_due(*ap);
    }
    correct_listed();
    return finish();
}

outbox site::finish() {
    send_statements();
    tables_.purge();
    return std::exchange(outbox_, {});
}

void site::apply(access_point &ap, const record &one) {
    const handler how = handler_of(one.type());
    if (how != nullptr && !is_stale(ap, one) && !defer_if_unclear(ap, one)) {
        (this->*how)(ap, one);
    }
}

// An access point that applies an answer to a client that it serves already reports a roam from a VAP to itself. The
// record is out of date when the client is elsewhere by now.
bool site::is_stale(const access_point &ap, const record &one) const {
    if (one.type() != record_type::foreign_client_assoc || one.body.mac("last_bssid") != one.body.mac("bssid")) {
        return false;
    }
    const client *known = tables_.find_client(one.body.mac("client"));
    return known != nullptr && known->now.ap != ap.mac;
}

// An access point that was sent a removal and then reports an association either drops the client next or serves it
// again. All its records about the client wait until a report shows which.
bool site::defer_if_unclear(access_point &ap, const record &one) {
    const bool association = one.type() == record_type::client_assoc || one.type() == record_type::foreign_client_assoc;
    const bool follows = one.type() == record_type::client_ip || one.type() == record_type::client_guest_assoc;
    if (!association && !follows) {
        return false;
    }
    const mac_address station = one.body.mac("client");
    if (!ap.checks.has_deferred(station) && !(association && ap.checks.last_notice(station) == notice::removal)) {
        return false;
    }
    tables_.hold(ap, tables_.get(station), holding::station);
    ap.checks.defer(station, one, association);
    return true;
}

void site::vap_configured(access_point &ap, const record &config) {
    const auto ssid = config.body.raw("ssid");
    const vap configured = {bytes(ssid.begin(), ssid.end()), config.body.number("vlan")};
    for (const mac_address &completed : tables_.configure(ap, config.body.mac("bssid"), configured)) {
        note(tables_.get(completed), client_event::corrected);
    }
}

}  // namespace controller
