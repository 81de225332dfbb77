// What the site makes of the access points' records.
#include "controller/site.h"

#include <utility>

namespace controller {

namespace {

bool is_none(const mac_address &mac) { return mac == mac_address{}; }

}  // namespace

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
            return &site::pmk_wanted;
        case record_type::client_info_fetch:
            return &site::client_wanted;
        case record_type::client_guest_assoc:
            return &site::guest_associated;
        case record_type::client_acl_auth_req:
            return &site::acl_asked;
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
            take(*from.ap, *one);
        }
    }
    if (reports_stations) {
        take_report(*from.ap, read_report(from));
    }
    ask_for_report(*from.ap);
    return std::exchange(outbox_, {});
}

void site::take(const mac_address &ap, const record &said) {
    const handler how = handler_of(said.type());
    if (how != nullptr && !is_old_news(ap, said) && !must_wait(ap, said)) {
        (this->*how)(ap, said);
    }
}

// A roam from a VAP to itself is what an answer makes of a client that was there already. One that is elsewhere by now
// has not moved because of it.
bool site::is_old_news(const mac_address &ap, const record &said) const {
    if (said.type() != record_type::foreign_client_assoc || said.body.mac("last_bssid") != said.body.mac("bssid")) {
        return false;
    }
    const auto known = clients_.find(said.body.mac("client"));
    return known != clients_.end() && known->second.now.ap != ap;
}

// An access point that was told to drop a client, and says that it associated, either drops it next or has it anew:
// until that is known nobody is told of it. What it says of the client then waits with it.
bool site::must_wait(const mac_address &ap, const record &said) {
    const bool association =
        said.type() == record_type::client_assoc || said.type() == record_type::foreign_client_assoc;
    const bool follows = said.type() == record_type::client_ip || said.type() == record_type::client_guest_assoc;
    if (!association && !follows) {
        return false;
    }
    access_point &state = aps_[ap];
    const mac_address station = said.body.mac("client");
    if (!state.in_doubt.holds_back(station) && !(association && state.in_doubt.told_last(station) == told::removal)) {
        return false;
    }
    state.holds[station] = holding::station;
    state.in_doubt.hold_back(station, said, association);
    return true;
}

// The client is here and nowhere else, unless what this access point was told last and had not heard yet spoils that:
// then it is told anew how things are.
void site::settle_at(const mac_address &ap, const mac_address &station, const record &said) {
    for (auto &[other, state] : aps_) {
        if (other != ap) {
            state.in_doubt.drop(station);
        }
    }
    doubts &in_doubt = aps_[ap].in_doubt;
    const bool newly_associated = said.type() == record_type::client_assoc;
    const bool lost_address = said.body.number("ip") == 0 && clients_.at(station).ip != 0;
    const auto last = in_doubt.told_last(station);
    if (last) {
        in_doubt.has_heard(station);
        in_doubt.confirm(station);
    }
    if (last == told::moved || (last == told::answer && newly_associated)) {
        in_doubt.correct(station, *last);
    } else if (lost_address && (last == told::association || !newly_associated)) {
        in_doubt.correct(station, told::association);
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
        known.guest = guest_state::none;  // a guest's record follows
    }
    const auto vlan = vlan_of(here);
    const std::uint32_t ip = update.body.number("ip");
    known.ip = ip != 0 || vlan != known.home_vlan ? ip : known.ip;  // an address belongs to its VLAN
    known.home = known.now = here;
    known.home_vlan = vlan;
    aps_[ap].holds[station] = holding::station;
    tell_former_holders(station, known);
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
    tell_former_holders(station, known);
    if (known.home.ap != ap) {
        tell_moved_to_vlan(station, known);
    }
    settle_at(ap, station, update);
}

// A client that nobody told of has its home where it says it comes from, if that is a VAP of the site.
client site::guess_origin(const place &here, const mac_address &last_bssid) const {
    const place origin = place_of(last_bssid).value_or(here);
    return {.home = origin, .now = origin, .home_vlan = vlan_of(origin), .ip = 0, .guest = guest_state::unknown};
}

// Only from where the client is, or has just come to: an access point that it left long ago may say so late.
void site::left(const mac_address &ap, const record &update) {
    const mac_address station = update.body.mac("client");
    const place here = {ap, update.body.mac("bssid")};
    access_point &state = aps_[ap];
    const auto known = clients_.find(station);
    const bool was_coming = state.in_doubt.holds_back(station);
    state.in_doubt.drop(station);
    if (was_coming || (known != clients_.end() && known->second.now == here)) {
        state.holds.erase(station);
        forget(station);
    } else if (known == clients_.end() || known->second.now.ap != ap) {
        state.holds.erase(station);
    }
}

// From where the client is, or is about to be: the address may overtake the use of an answer.
void site::got_address(const mac_address &ap, const record &update) {
    const mac_address station = update.body.mac("client");
    const auto known = clients_.find(station);
    if (known != clients_.end() &&
        (known->second.now.ap == ap || aps_[ap].in_doubt.told_last(station) == told::answer)) {
        known->second.ip = update.body.number("ip");
    }
}

// Whoever was approved need not wait again as long as it stays on the site.
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
    record approval(record_type::client_guest_auth);
    approval.body.set("client", station);
    tell(ap, std::move(approval));
}

void site::pmk_added(const mac_address &ap, const record &added) {
    const mac_address station = added.body.mac("client");
    const auto pmk = added.body.raw("pmk");
    pmks_[station] = bytes(pmk.begin(), pmk.end());
    aps_[ap].holds[station] = holding::station;
}

void site::pmk_wanted(const mac_address &ap, const record &wanted) {
    const mac_address station = wanted.body.mac("client");
    aps_[ap].holds[station] = holding::station;
    if (pmks_.contains(station)) {
        tell_list(ap, record_type::pmk_fetch_success, {entry_of(station, wanted.body.mac("bssid"))});
    }
}

// The answer to a fetch carries no guest state: a guest that waits for approval has to associate, so that it goes on
// waiting.
void site::client_wanted(const mac_address &ap, const record &wanted) {
    const mac_address station = wanted.body.mac("client");
    const mac_address bssid = wanted.body.mac("bssid");
    const auto known = clients_.find(station);
    aps_[ap].holds[station] = holding::station;
    aps_[ap].in_doubt.drop(station);  // it has no record of the client: whatever it said before is over
    if (known == clients_.end() || !known->second.home_vlan || known->second.guest == guest_state::waiting) {
        tell_to_associate(ap, station, bssid);
        return;
    }
    tell_entry(ap, station, bssid);
}

void site::acl_asked(const mac_address &ap, const record &request) {
    const verdict decision = acl_.decide(request.body.number("mac_acl_index"), request.body.mac("client"));
    record answer(*find_layout(static_cast<std::uint8_t>(record_type::client_acl_auth_resp)), request.body);
    answer.body.set("verdict", static_cast<std::uint32_t>(decision));
    tell(ap, std::move(answer));
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
    if (is_none(bssid)) {
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
