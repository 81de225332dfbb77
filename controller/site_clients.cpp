// Clients that come, roam and leave.
#include <utility>

#include "controller/site.h"

namespace controller {

void site::associated(access_point &ap, const record &update) {
    station &joined = tables_.get(update.body.mac("client"));
    const place here = {ap.mac, update.body.mac("bssid")};
    client state = joined.client.value_or(client{});
    const bool roams = joined.client && state.now.ap != ap.mac;
    roams_ += roams ? 1 : 0;
    if (state.guest != guest_state::approved) {
        state.guest = guest_state::none;  // a guest's own record follows
    }
    const auto vlan = tables_.vlan_of(here);
    const std::uint32_t ip = update.body.number("ip");
    state.ip = ip != 0 || vlan != state.home_vlan ? ip : state.ip;  // an address belongs to its VLAN
    state.home = state.now = here;
    state.home_vlan = vlan;
    move_to(ap, joined, state, update);
    note(joined, roams ? client_event::roamed : client_event::associated);
}

void site::roamed_in(access_point &ap, const record &update) {
    station &moved = tables_.get(update.body.mac("client"));
    const place here = {ap.mac, update.body.mac("bssid")};
    if (!moved.client) {
        const client origin = guess_origin(here, update.body.mac("last_bssid"));
        tables_.set_client(moved, origin);
        tables_.hold(tables_.ap(origin.home.ap), moved, holding::station);
    }
    client state = *moved.client;
    const auto vlan = tables_.vlan_of(here);
    roams_ += state.now.ap != ap.mac ? 1 : 0;
    state.now = here;
    if (!vlan || !state.home_vlan || *vlan == *state.home_vlan) {
        state.home = here;
        state.home_vlan = vlan ? vlan : state.home_vlan;
    }
    if (const std::uint32_t ip = update.body.number("ip"); ip != 0) {
        state.ip = ip;
    }
    move_to(ap, moved, state, update);
    note(moved, client_event::roamed);
}

// A client that is new to the site: its home is its last BSSID when that is a VAP of the site, otherwise `here`.
client site::guess_origin(const place &here, const mac_address &last_bssid) const {
    const auto last = last_bssid == mac_address{} ? std::nullopt : tables_.find_vap(last_bssid);
    const place origin = last.value_or(here);
    return {
        .home = origin, .now = origin, .home_vlan = tables_.vlan_of(origin), .ip = 0, .guest = guest_state::unknown};
}

// The station is at `ap` and nowhere else. Makes every access point drop it except that one and its home. An access
// point without a tunnel gets its notice when it is back (correct_holdings()).
//
// A notice that `ap` processes only after it sent `update` would undo that; a correction then repeats the present
// state.
void site::move_to(access_point &ap, station &moved, const client &state, const record &update) {
    tables_.set_client(moved, state);
    tables_.hold(ap, moved, holding::station);
    for (access_point *other : std::exchange(moved.checked_by, {})) {
        other->checks.drop(moved.mac);
    }
    for (access_point *other : std::vector(moved.holders)) {
        if (other == &ap) {
            continue;
        }
        other->checks.drop(moved.mac);
        if (other->up && other->mac != state.home.ap) {
            send_moved_away(*other, moved);
        }
    }
    if (state.home.ap != ap.mac) {
        send_moved_to_vlan(moved);
    }
    const bool newly_associated = update.type() == record_type::client_assoc;
    const bool lost_address = update.body.number("ip") == 0 && state.ip != 0;
    const auto last = ap.checks.last_notice(moved.mac);
    if (last) {
        ap.checks.clear_notice(moved.mac);
        ap.checks.confirm(moved.mac);
    }
    if (last == notice::move || (last == notice::answer && newly_associated)) {
        ap.checks.add_correction(moved.mac, *last);
    } else if (lost_address && (last == notice::association || !newly_associated)) {
        ap.checks.add_correction(moved.mac, notice::association);
    }
}

// Counts only from the VAP that serves the client or that the client is joining. A former access point may report late.
void site::left(access_point &ap, const record &update) {
    const mac_address mac = update.body.mac("client");
    const place here = {ap.mac, update.body.mac("bssid")};
    const bool was_joining = ap.checks.has_deferred(mac);
    ap.checks.drop(mac);
    station *const gone = tables_.find(mac);
    if (gone == nullptr) {
        return;
    }
    tables_.check_closed(ap, *gone);
    if (was_joining || (gone->client && gone->client->now == here)) {
        tables_.release(ap, *gone);
        drop_client(*gone);
    } else if (!gone->client || gone->client->now.ap != ap.mac) {
        tables_.release(ap, *gone);
    }
}

// Keeps the checks of an access point that has reported an association meanwhile: its report decides.
void site::drop_client(station &gone) {
    if (gone.client) {
        note(gone, client_event::left);
    }
    tables_.erase_client(gone);
    for (access_point *ap : site_tables::all_holders(gone)) {
        if (!ap->checks.has_deferred(gone.mac)) {
            ap->checks.drop(gone.mac);
            send_removal(*ap, gone);
        }
    }
}

// Counts only from the access point that serves the client, or that was just sent its entry: the address may arrive
// before the record of the roam.
void site::got_address(access_point &ap, const record &update) {
    const mac_address mac = update.body.mac("client");
    station *const known = tables_.find(mac);
    if (known != nullptr && known->client &&
        (known->client->now.ap == ap.mac || ap.checks.last_notice(mac) == notice::answer)) {
        const std::uint32_t former = std::exchange(known->client->ip, update.body.number("ip"));
        if (known->client->ip != former) {
            note(*known, client_event::address);
        }
    }
}

// An approval holds as long as the guest stays on the site.
void site::guest_associated(access_point &ap, const record &update) {
    station *const guest = tables_.find(update.body.mac("client"));
    if (guest == nullptr || !guest->client || guest->client->now.ap != ap.mac) {
        return;
    }
    if (guest->client->guest == guest_state::approved) {
        send_approval(ap, guest->mac);
    } else if (guest->client->guest != guest_state::waiting) {
        tables_.set_guest(*guest, guest_state::waiting);
        note(*guest, client_event::waiting);
    }
}

}  // namespace controller
