// The messages that the site sends.
#include <algorithm>
#include <utility>

#include "controller/site.h"

namespace controller {

namespace {

constexpr std::uint32_t kind_moved_away = 1;
constexpr std::uint32_t kind_moved_to_vlan = 2;

constexpr std::uint32_t entry_flag_pmk = 1;
constexpr std::uint32_t entry_flag_guest = 2;

// Number of client entries that fit into one message.
constexpr std::size_t entries_max = (message_size_max - message_header_size - record_header_size - 4) / 62;

values client_entry(const mac_address &station) {
    values entry(layout_of(record_type::client_bulk_info).entry);
    entry.set("client", station);
    return entry;
}

}  // namespace

void site::send(const access_point &ap, record one) {
    if (ap.up) {
        outbox_.push_back({.ap = ap.mac, .records = {std::move(one)}, .frame = {}});
    }
}

void site::send_entries(const access_point &ap, record_type type, std::vector<values> entries) {
    for (std::size_t first = 0; first < entries.size(); first += entries_max) {
        record list(type);
        for (std::size_t i = first; i < std::min(entries.size(), first + entries_max); i++) {
            list.entries.push_back(std::move(entries[i]));
        }
        send(ap, std::move(list));
    }
}

values site::entry_of(const mac_address &station, const mac_address &bssid) const {
    values entry = client_entry(station);
    entry.set("bssid", bssid);
    if (const client *known = tables_.find_client(station)) {
        entry.set("home_bssid", known->home.bssid);
        entry.set("home_vlan", known->home_vlan.value_or(0));
        entry.set("ip", known->ip);
    }
    if (const bytes *pmk = tables_.pmk(station)) {
        entry.set("pmk", std::span<const std::uint8_t>(*pmk));
        entry.set("flags", entry_flag_pmk);
    }
    return entry;
}

// Of a list, whose clients need not be at the access point.
values site::list_entry_of(const mac_address &station) const {
    values entry = entry_of(station, {});
    if (tables_.find_client(station)->guest == guest_state::waiting) {
        entry.set("flags", entry.number("flags") | entry_flag_guest);
    }
    return entry;
}

void site::send_moved_away(access_point &ap, station &moved) {
    const place &now = moved.client->now;
    record move(record_type::client_move_notify);
    move.body.set("kind", kind_moved_away).set("client", moved.mac);
    move.body.set("new_bssid", now.bssid).set("new_vlan", tables_.vlan_of(now).value_or(0));
    send(ap, std::move(move));
    tables_.release(ap, moved);
    ap.checks.add_notice(moved.mac, notice::removal);
}

// The record has one byte for the VLAN, so only the low byte of a larger number is sent.
void site::send_moved_to_vlan(station &moved) {
    const client &current = *moved.client;
    access_point &home = tables_.ap(current.home.ap);
    record move(record_type::client_move_notify);
    move.body.set("kind", kind_moved_to_vlan).set("client", moved.mac).set("bssid", current.home.bssid);
    move.body.set("new_bssid", current.now.bssid).set("new_vlan", tables_.vlan_of(current.now).value_or(0));
    send(home, std::move(move));
    tables_.hold(home, moved, holding::station);
    home.checks.add_notice(moved.mac, notice::move);
}

void site::send_removal(access_point &ap, station &gone) {
    if (!ap.up) {
        return;
    }
    send_entries(ap, record_type::remove_client_bulk_info, {client_entry(gone.mac)});
    tables_.release(ap, gone);
    ap.checks.add_notice(gone.mac, notice::removal);
}

void site::send_approval(const access_point &ap, const mac_address &guest) {
    record approval(record_type::client_guest_auth);
    approval.body.set("client", guest);
    send(ap, std::move(approval));
}

void site::send_association(access_point &ap, const mac_address &station, const mac_address &bssid) {
    values entry = client_entry(station);
    entry.set("bssid", bssid);
    send_entries(ap, record_type::client_info_treat_as_assoc, {std::move(entry)});
    ap.checks.add_notice(station, notice::association);
}

void site::send_answer(access_point &ap, const mac_address &station, const mac_address &bssid) {
    send_entries(ap, record_type::client_info_fetch_success, {entry_of(station, bssid)});
    ap.checks.add_notice(station, notice::answer);
}

// Repeats the present state to the access point that serves the client. An answer would end the waiting of a guest, so
// a waiting guest is associated anew.
void site::send_correction(access_point &ap, const mac_address &station, notice old) {
    const client *known = tables_.find_client(station);
    if (known == nullptr || known->now.ap != ap.mac) {
        return;
    }
    if (known->guest == guest_state::waiting || !known->home_vlan) {
        if (old != notice::association) {
            send_association(ap, station, known->now.bssid);
        }
    } else {
        send_answer(ap, station, known->now.bssid);
    }
}

// Returns a station to an access point that has lost its table, with the station's address when it is known.
void site::restore(access_point &ap, const station &lost) {
    const client &known = lost.client.value();
    if (known.ip == 0 || !known.home_vlan || known.guest == guest_state::waiting) {
        if (known.home.ap == ap.mac) {
            send_association(ap, lost.mac, known.now.bssid);
        }
        return;
    }
    send_entries(ap, record_type::client_bulk_info, {entry_of(lost.mac, {})});
    send_answer(ap, lost.mac, known.now.bssid);
}

}  // namespace controller
