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

void site::send(const mac_address &ap, record one) {
    if (aps_[ap].up) {
        outbox_.push_back({ap, {std::move(one)}});
    }
}

void site::send_entries(const mac_address &ap, record_type type, std::vector<values> entries) {
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
    if (const auto known = clients_.find(station); known != clients_.end()) {
        entry.set("home_bssid", known->second.home.bssid);
        entry.set("home_vlan", known->second.home_vlan.value_or(0));
        entry.set("ip", known->second.ip);
    }
    if (const auto pmk = pmks_.find(station); pmk != pmks_.end()) {
        entry.set("pmk", std::span<const std::uint8_t>(pmk->second));
        entry.set("flags", entry_flag_pmk);
    }
    return entry;
}

// Makes every access point drop the client except the one that serves it and its home. An access point without a tunnel
// gets its notice when it is back (correct_holdings()).
void site::notify_former_holders(const mac_address &station, const client &current) {
    for (auto &[ap, state] : aps_) {
        const auto held = state.holds.find(station);
        if (state.up && held != state.holds.end() && held->second == holding::station && ap != current.now.ap &&
            ap != current.home.ap) {
            send_moved_away(ap, station, current);
        }
    }
}

void site::send_moved_away(const mac_address &ap, const mac_address &station, const client &current) {
    record move(record_type::client_move_notify);
    move.body.set("kind", kind_moved_away).set("client", station);
    move.body.set("new_bssid", current.now.bssid).set("new_vlan", vlan_of(current.now).value_or(0));
    send(ap, std::move(move));
    aps_[ap].holds.erase(station);
    aps_[ap].checks.add_notice(station, notice::removal);
}

// The record has one byte for the VLAN, so only the low byte of a larger number is sent.
void site::send_moved_to_vlan(const mac_address &station, const client &current) {
    const mac_address &home = current.home.ap;
    record move(record_type::client_move_notify);
    move.body.set("kind", kind_moved_to_vlan).set("client", station).set("bssid", current.home.bssid);
    move.body.set("new_bssid", current.now.bssid).set("new_vlan", vlan_of(current.now).value_or(0));
    send(home, std::move(move));
    aps_[home].holds[station] = holding::station;
    aps_[home].checks.add_notice(station, notice::move);
}

void site::send_removal(const mac_address &ap, const mac_address &station) {
    if (!aps_[ap].up) {
        return;
    }
    send_entries(ap, record_type::remove_client_bulk_info, {client_entry(station)});
    aps_[ap].holds.erase(station);
    aps_[ap].checks.add_notice(station, notice::removal);
}

void site::send_approval(const mac_address &ap, const mac_address &guest) {
    record approval(record_type::client_guest_auth);
    approval.body.set("client", guest);
    send(ap, std::move(approval));
}

void site::send_association(const mac_address &ap, const mac_address &station, const mac_address &bssid) {
    values entry = client_entry(station);
    entry.set("bssid", bssid);
    send_entries(ap, record_type::client_info_treat_as_assoc, {std::move(entry)});
    aps_[ap].checks.add_notice(station, notice::association);
}

void site::send_answer(const mac_address &ap, const mac_address &station, const mac_address &bssid) {
    send_entries(ap, record_type::client_info_fetch_success, {entry_of(station, bssid)});
    aps_[ap].checks.add_notice(station, notice::answer);
}

// Repeats the present state to the access point that serves the client. An answer would end the waiting of a guest, so
// a waiting guest is associated anew.
void site::send_correction(const mac_address &ap, const mac_address &station, notice old) {
    const auto known = clients_.find(station);
    if (known == clients_.end() || known->second.now.ap != ap) {
        return;
    }
    if (known->second.guest == guest_state::waiting || !known->second.home_vlan) {
        if (old != notice::association) {
            send_association(ap, station, known->second.now.bssid);
        }
    } else {
        send_answer(ap, station, known->second.now.bssid);
    }
}

// Returns a station to an access point that has lost its table, with the station's address when it is known.
void site::restore(const mac_address &ap, const mac_address &station) {
    const client &known = clients_.at(station);
    if (known.ip == 0 || !known.home_vlan || known.guest == guest_state::waiting) {
        if (known.home.ap == ap) {
            send_association(ap, station, known.now.bssid);
        }
        return;
    }
    send_entries(ap, record_type::client_bulk_info, {entry_of(station, {})});
    send_answer(ap, station, known.now.bssid);
}

// Keeps the checks of an access point that has reported an association meanwhile: its report decides.
void site::drop_client(const mac_address &station) {
    clients_.erase(station);
    for (auto &[ap, state] : aps_) {
        if (state.checks.has_deferred(station)) {
            continue;
        }
        state.checks.drop(station);
        if (state.holds.contains(station)) {
            send_removal(ap, station);
        }
    }
}

outbox site::approve(const mac_address &guest) {
    const auto known = clients_.find(guest);
    if (known == clients_.end()) {
        throw refused(kx::format_mac(guest) + " is not on the site");
    }
    if (known->second.guest != guest_state::waiting && known->second.guest != guest_state::unknown) {
        throw refused(kx::format_mac(guest) + " does not wait for approval");
    }
    if (!aps_[known->second.now.ap].up) {
        throw refused("the access point of " + kx::format_mac(guest) + " has no tunnel");
    }
    known->second.guest = guest_state::approved;
    send_approval(known->second.now.ap, guest);
    return std::exchange(outbox_, {});
}

outbox site::send_list(const mac_address &ap) {
    if (!aps_.contains(ap) || !aps_[ap].up) {
        throw refused(kx::format_mac(ap) + " has no tunnel");
    }
    std::vector<values> entries;
    for (const auto &[station, known] : clients_) {
        // An access point that finds its own station in a list disassociates it.
        if (known.now.ap == ap || known.home.ap == ap || !known.home_vlan) {
            continue;
        }
        values &entry = entries.emplace_back(entry_of(station, {}));
        if (known.guest == guest_state::waiting) {
            entry.set("flags", entry.number("flags") | entry_flag_guest);
        }
        aps_[ap].holds.try_emplace(station, holding::listed);
        aps_[ap].checks.add_notice(station, notice::removal);
    }
    send_entries(ap, record_type::client_bulk_info, std::move(entries));
    return std::exchange(outbox_, {});
}

outbox site::remove(const mac_address &client) {
    const bool known = clients_.contains(client);
    const bool had_pmk = pmks_.erase(client) > 0;
    if (!known && !had_pmk) {
        throw refused(kx::format_mac(client) + " is not on the site");
    }
    drop_client(client);
    return std::exchange(outbox_, {});
}

}  // namespace controller
