#include "controller/site_tables.h"

#include <algorithm>
#include <iterator>

namespace controller {

namespace {

void insert(std::vector<access_point *> &into, access_point &one) {
    const auto at = std::ranges::lower_bound(into, one.mac, {}, &access_point::mac);
    if (at == into.end() || *at != &one) {
        into.insert(at, &one);
    }
}

}  // namespace

access_point &site_tables::ap(const mac_address &mac) {
    access_point *&found = ap_index_[mac];
    if (found == nullptr) {
        found = aps_.emplace(mac, std::make_unique<access_point>()).first->second.get();
        found->mac = mac;
    }
    return *found;
}

access_point *site_tables::find_ap(const mac_address &mac) const {
    const auto found = ap_index_.find(mac);
    return found == ap_index_.end() ? nullptr : found->second;
}

void site_tables::erase(access_point &gone) {
    for (const auto &[bssid, config] : gone.vaps) {
        const auto known = vaps_.find(bssid);
        std::erase(known->second, &gone);
        if (known->second.empty()) {
            vaps_.erase(known);
        }
    }
    const mac_address mac = gone.mac;
    ap_index_.erase(mac);
    aps_.erase(mac);
}

std::vector<mac_address> site_tables::configure(access_point &at, const mac_address &bssid, vap config) {
    const std::uint32_t vlan = config.vlan;
    if (vlan_of({at.mac, bssid}) != vlan) {
        changed_.insert(at.holds.begin(), at.holds.end());
    }
    at.vaps[bssid] = std::move(config);
    insert(vaps_[bssid], at);
    std::vector<mac_address> completed;
    std::erase_if(at.without_vlan, [&](const mac_address &station) {
        client &known = *find(station)->client;
        if (known.home.bssid != bssid) {
            return false;
        }
        known.home_vlan = vlan;
        completed.push_back(station);
        return true;
    });
    return completed;
}

std::optional<std::uint32_t> site_tables::vlan_of(const place &where) const {
    const access_point *const at = find_ap(where.ap);
    if (at == nullptr) {
        return std::nullopt;
    }
    const auto found = at->vaps.find(where.bssid);
    return found == at->vaps.end() ? std::nullopt : std::optional(found->second.vlan);
}

std::optional<place> site_tables::find_vap(const mac_address &bssid) const {
    const auto found = vaps_.find(bssid);
    return found == vaps_.end() ? std::nullopt : std::optional(place{found->second.front()->mac, bssid});
}

station &site_tables::get(const mac_address &mac) {
    std::unique_ptr<station> &found = stations_[mac];
    if (!found) {
        found = std::make_unique<station>();
        found->mac = mac;
        order_.insert(mac);
    }
    return *found;
}

station *site_tables::find(const mac_address &mac) const {
    const auto found = stations_.find(mac);
    return found == stations_.end() ? nullptr : found->second.get();
}

const client *site_tables::find_client(const mac_address &mac) const {
    const station *const found = find(mac);
    return found == nullptr || !found->client ? nullptr : &*found->client;
}

void site_tables::count(const client &state, std::size_t by) {
    clients_ += by;
    guests_[static_cast<std::size_t>(state.guest)] += by;
    ap(state.now.ap).clients += by;
}

void site_tables::set_client(station &of, const client &state) {
    leave_indices(of);
    of.client = state;
    changed_.insert(of.mac);
    count(state, 1);
    if (!state.home_vlan) {
        ap(state.home.ap).without_vlan.insert(of.mac);
    }
}

void site_tables::set_guest(station &of, guest_state state) {
    client changed = of.client.value();
    changed.guest = state;
    set_client(of, changed);
}

void site_tables::erase_client(station &of) {
    leave_indices(of);
    of.client.reset();
    changed_.insert(of.mac);
    emptied_.push_back(of.mac);
}

void site_tables::leave_indices(const station &of) {
    if (!of.client) {
        return;
    }
    count(*of.client, std::size_t(-1));
    if (!of.client->home_vlan) {
        ap(of.client->home.ap).without_vlan.erase(of.mac);
    }
}

void site_tables::hold(access_point &at, station &held, holding why) {
    const bool is_station = why == holding::station;
    if (!(is_station ? at.holds : at.listed).insert(held.mac)) {
        return;
    }
    if ((is_station ? at.listed : at.holds).erase(held.mac)) {
        std::erase(is_station ? held.listed_by : held.holders, &at);
    }
    insert(is_station ? held.holders : held.listed_by, at);
    if (is_station) {
        std::erase(held.checked_by, &at);
    }
}

void site_tables::release(access_point &at, station &held) {
    const bool held_it = at.holds.erase(held.mac);
    const bool listed_it = at.listed.erase(held.mac);
    if (held_it || listed_it) {
        std::erase(held.holders, &at);
        std::erase(held.listed_by, &at);
        emptied_.push_back(held.mac);
    }
    if (at.checks.has_any(held.mac)) {
        insert(held.checked_by, at);
    }
}

void site_tables::check_closed(const access_point &at, station &of) {
    if (std::erase(of.checked_by, &at) > 0) {
        emptied_.push_back(of.mac);
    }
}

std::vector<access_point *> site_tables::all_holders(const station &of) {
    std::vector<access_point *> all;
    std::ranges::merge(of.holders, of.listed_by, std::back_inserter(all), {}, &access_point::mac, &access_point::mac);
    return all;
}

const bytes *site_tables::pmk(const mac_address &station) const {
    const auto found = pmks_.find(station);
    return found == pmks_.end() ? nullptr : &found->second;
}

const std::string &site_tables::name_of(const mac_address &client) const {
    static const std::string no_name;
    const auto found = names_.find(client);
    return found == names_.end() ? no_name : found->second;
}

void site_tables::set_name(const mac_address &client, const std::string &name) {
    if (name.empty()) {
        names_.erase(client);
    } else {
        names_[client] = name;
    }
}

bool site_tables::is_empty(const station &of) {
    return !of.client && of.holders.empty() && of.listed_by.empty() && of.checked_by.empty();
}

void site_tables::purge() {
    for (const mac_address &each : emptied_) {
        if (const auto found = stations_.find(each); found != stations_.end() && is_empty(*found->second)) {
            stations_.erase(found);
            order_.erase(each);
        }
    }
    emptied_.clear();
}

}  // namespace controller
