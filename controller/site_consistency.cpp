// Compares the indices of a site's tables with walks over the tables.
#include <algorithm>

#include "controller/site_tables.h"

namespace controller {

namespace {

std::string describe(const char *what, const mac_address &one) { return what + (" " + kx::format_mac(one)); }

bool is_strictly_sorted(const std::vector<access_point *> &all) {
    return std::ranges::adjacent_find(all, std::ranges::greater_equal{}, &access_point::mac) == all.end();
}

}  // namespace

// Together with check_access_point(), which looks from the other side.
std::string site_tables::check_station(const station &of) const {
    if (is_empty(of)) {
        return describe("nothing is known of", of.mac);
    }
    const auto holds = [&](const access_point *each) { return each->holds.contains(of.mac); };
    const auto lists = [&](const access_point *each) { return each->listed.contains(of.mac) && !holds(each); };
    const auto checks = [&](const access_point *each) { return each->checks.has_any(of.mac) && !holds(each); };
    if (!std::ranges::all_of(of.holders, holds) || !std::ranges::all_of(of.listed_by, lists)) {
        return describe("wrong holders of", of.mac);
    }
    if (!std::ranges::all_of(of.checked_by, checks)) {
        return describe("wrong index of checks of", of.mac);
    }
    if (!is_strictly_sorted(of.holders) || !is_strictly_sorted(of.listed_by) || !is_strictly_sorted(of.checked_by)) {
        return describe("unsorted holders of", of.mac);
    }
    if (of.client && !find_ap(of.client->now.ap)->holds.contains(of.mac)) {
        return describe("its access point does not hold", of.mac);
    }
    if (of.client && !of.client->home_vlan && !find_ap(of.client->home.ap)->without_vlan.contains(of.mac)) {
        return describe("wrong index of stations without a VLAN:", of.mac);
    }
    return "";
}

std::string site_tables::check_access_point(const access_point &at) const {
    std::size_t served = 0;
    for (const mac_address &each : at.holds) {
        const station *const held = find(each);
        if (held == nullptr || std::ranges::count(held->holders, &at) != 1) {
            return describe("wrong holders of", each);
        }
        served += held->client && held->client->now.ap == at.mac ? 1 : 0;
    }
    if (at.clients != served) {
        return describe("wrong number of clients at", at.mac);
    }
    for (const mac_address &each : at.listed) {
        if (find(each) == nullptr || std::ranges::count(find(each)->listed_by, &at) != 1) {
            return describe("wrong holders of", each);
        }
    }
    for (const mac_address &each : at.checks.stations()) {
        if (find(each) == nullptr ||
            (!at.holds.contains(each) && std::ranges::count(find(each)->checked_by, &at) != 1)) {
            return describe("wrong index of checks of", each);
        }
    }
    for (const mac_address &each : at.without_vlan) {
        const client *const known = find_client(each);
        if (known == nullptr || known->home_vlan || known->home.ap != at.mac) {
            return describe("wrong index of stations without a VLAN:", each);
        }
    }
    for (const auto &[bssid, config] : at.vaps) {
        const auto known = vaps_.find(bssid);
        if (known == vaps_.end() || std::ranges::count(known->second, &at) != 1 || !is_strictly_sorted(known->second)) {
            return describe("wrong access points of", bssid);
        }
    }
    return "";
}

std::string site_tables::check_counts() const {
    std::size_t clients = 0;
    std::array<std::size_t, guest_states> guests{};
    for (const auto &[mac, of] : stations_) {
        clients += of->client ? 1 : 0;
        if (of->client) {
            guests[static_cast<std::size_t>(of->client->guest)]++;
        }
    }
    if (clients != clients_ || guests != guests_) {
        return "wrong number of clients";
    }
    if (order_.size() != stations_.size() ||
        !std::ranges::all_of(stations_, [this](const auto &each) { return order_.contains(each.first); })) {
        return "wrong order of stations";
    }
    const bool is_lost = std::ranges::any_of(vaps_, [](const auto &each) { return each.second.empty(); });
    return is_lost ? "a BSSID without access point" : "";
}

std::string site_tables::find_inconsistency() const {
    for (const auto &[mac, of] : stations_) {
        if (auto wrong = check_station(*of); !wrong.empty()) {
            return wrong;
        }
    }
    for (const auto &[mac, at] : aps_) {
        if (auto wrong = check_access_point(*at); !wrong.empty()) {
            return wrong;
        }
    }
    return check_counts();
}

}  // namespace controller
