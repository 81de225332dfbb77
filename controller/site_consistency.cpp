// Compares the indices of a site's tables with walks over the tables.
#include <algorithm>

#include "controller/site_tables.h"

namespace controller {

namespace {

std::string describe(const char *what, const mac_address &one) { return what + (" " + kx::format_mac(one)); }

}  // namespace

std::string site_tables::check_station(const station &of) const {
    if (is_empty(of)) {
        return describe("nothing is known of", of.mac);
    }
    for (const auto &[mac, ap] : aps_) {
        const auto held = ap->holds.find(of.mac);
        const bool holds = held != ap->holds.end() && held->second == holding::station;
        const bool lists = held != ap->holds.end() && held->second == holding::listed;
        if (std::ranges::count(of.holders, ap.get()) != (holds ? 1 : 0) ||
            std::ranges::count(of.listed_by, ap.get()) != (lists ? 1 : 0)) {
            return describe("wrong holders of", of.mac);
        }
        const bool checks = ap->checks.has_any(of.mac) && !holds;
        if (std::ranges::count(of.checked_by, ap.get()) != (checks ? 1 : 0)) {
            return describe("wrong index of checks of", of.mac);
        }
        if (of.client && of.client->now.ap == mac && !holds) {
            return describe("its access point does not hold", of.mac);
        }
        const bool without_vlan = of.client && of.client->home.ap == mac && !of.client->home_vlan;
        if (ap->without_vlan.contains(of.mac) != without_vlan) {
            return describe("wrong index of stations without a VLAN:", of.mac);
        }
    }
    return std::ranges::is_sorted(of.holders, {}, &access_point::mac) &&
                   std::ranges::is_sorted(of.listed_by, {}, &access_point::mac)
               ? ""
               : describe("unsorted holders of", of.mac);
}

std::string site_tables::check_access_point(const access_point &at) const {
    const auto served = std::ranges::count_if(
        stations_, [&](const auto &each) { return each.second->client && each.second->client->now.ap == at.mac; });
    if (at.clients != static_cast<std::size_t>(served)) {
        return describe("wrong number of clients at", at.mac);
    }
    const auto is_known = [this](const mac_address &each) { return find(each) != nullptr; };
    if (!std::ranges::all_of(at.without_vlan, is_known) ||
        !std::ranges::all_of(at.holds, [&](const auto &each) { return is_known(each.first); }) ||
        !std::ranges::all_of(at.checks.stations(), is_known)) {
        return describe("unknown stations at", at.mac);
    }
    for (const auto &[bssid, config] : at.vaps) {
        const auto first =
            std::ranges::find_if(aps_, [bssid = bssid](const auto &each) { return each.second->vaps.contains(bssid); });
        if (find_vap(bssid) != place{first->first, bssid}) {
            return describe("wrong access point of", bssid);
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
