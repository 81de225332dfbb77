#include "controller/listings.h"

#include <algorithm>
#include <cctype>
#include <utility>

#include "controller/render.h"
#include "controller/site.h"

namespace controller {

namespace {

// Entries that a page may pass over to find its rows, and VAPs that it may list beside access points: a millisecond or
// two of work.
constexpr std::size_t passed_max = 2000;
constexpr std::size_t vaps_max = 1600;

// Whether a page has room for more rows and work.
class budget {
public:
    explicit budget(std::size_t rows) : rows_(rows) {}
    bool spent() const { return rows_ == 0 || passed_ == 0 || vaps_ == 0; }
    void pass() { passed_--; }
    void add_row(std::size_t vaps = 0) {
        rows_--;
        vaps_ -= std::min(vaps_, vaps);
    }

private:
    std::size_t rows_;
    std::size_t passed_ = passed_max;
    std::size_t vaps_ = vaps_max;
};

std::optional<mac_address> mac_of_cursor(const std::string &cursor) {
    if (cursor.empty()) {
        return std::nullopt;
    }
    const auto mac = kx::parse_mac(cursor);
    if (!mac) {
        throw refused(quote(cursor) + " is not a cursor of this listing");
    }
    return mac;
}

// "02:00:00:00:0a:00/02:00:00:00:0a:0a"
std::optional<place> place_of_cursor(const std::string &cursor) {
    if (cursor.empty()) {
        return std::nullopt;
    }
    const std::size_t slash = cursor.find('/');
    const auto ap = kx::parse_mac(std::string_view(cursor).substr(0, slash));
    const auto bssid =
        slash == std::string::npos ? std::nullopt : kx::parse_mac(std::string_view(cursor).substr(slash + 1));
    if (!ap || !bssid) {
        throw refused(quote(cursor) + " is not a cursor of this listing");
    }
    return place{*ap, *bssid};
}

bool contains_in_either_case(std::string_view text, std::string_view part) {
    const auto same = [](char one, char other) {
        return std::tolower(static_cast<unsigned char>(one)) == std::tolower(static_cast<unsigned char>(other));
    };
    return std::search(text.begin(), text.end(), part.begin(), part.end(), same) != text.end() || part.empty();
}

const mac_address &key_of(const mac_address &entry) { return entry; }
const mac_address &key_of(const auto &entry) { return entry.first; }

// The entries of `from` within the range that follow the cursor, in the order of the listing or against it.
template <class Table>
auto rest_of(const Table &from, const mac_range &within, const page_wanted &wanted) {
    struct {
        decltype(from.begin()) first, end;
    } rest = {from.lower_bound(within.first), from.upper_bound(within.last)};
    const auto after = mac_of_cursor(wanted.cursor);
    if (!after) {
        return rest;
    }
    if (!wanted.from_end && *after >= within.first) {
        rest.first = *after < within.last ? from.upper_bound(*after) : rest.end;
    }
    if (wanted.from_end && *after <= within.last) {
        rest.end = *after > within.first ? from.lower_bound(*after) : rest.first;
    }
    return rest;
}

// Adds what `row_of` makes of the entries of a map by MAC address or an index, from the page's cursor on.
template <class Row, class Table, class Maker>
page<Row> list_map(const Table &from, const mac_range &within, const page_wanted &wanted, const Maker &row_of) {
    page<Row> made;
    budget left(wanted.limit);
    auto [first, end] = rest_of(from, within, wanted);
    mac_address passed{};
    while (first != end) {
        if (left.spent()) {
            made.next = kx::format_mac(passed);
            break;
        }
        const auto at = wanted.from_end ? --end : first++;
        left.pass();
        passed = key_of(*at);
        if (std::optional<Row> row = row_of(*at)) {
            if constexpr (requires { row->vaps; }) {
                left.add_row(row->vaps.size());
            } else {
                left.add_row();
            }
            made.rows.push_back(std::move(*row));
        }
    }
    return made;
}

const access_point &find_named_ap(const site_tables &in, const std::string &wanted) {
    if (const auto mac = kx::parse_mac(wanted)) {
        if (const access_point *found = in.find_ap(*mac)) {
            return *found;
        }
    }
    const auto found = std::ranges::find_if(in.aps(), [&](const auto &each) { return each.second->name == wanted; });
    if (found == in.aps().end()) {
        throw refused(quote(wanted) + " is no access point of the site");
    }
    return *found->second;
}

std::string ssid_at(const access_point &at, const mac_address &bssid) {
    const auto found = at.vaps.find(bssid);
    return found == at.vaps.end() ? "" : ssid_of(found->second.ssid);
}

client_row row_of(const site_tables &in, const mac_address &mac, const client &state) {
    return {.client = mac,
            .name = in.name_of(mac),
            .now = name_place(in, state.now),
            .home = name_place(in, state.home),
            .home_vlan = state.home_vlan,
            .ip = state.ip,
            .guest = state.guest,
            .has_pmk = in.pmk(mac) != nullptr};
}

bool is_wanted(const site_tables &in, const client &state, const access_point *ap, const client_query &wanted) {
    if ((ap != nullptr && state.now.ap != ap->mac) || (wanted.state && state.guest != *wanted.state)) {
        return false;
    }
    if (!wanted.ssid) {
        return true;
    }
    const access_point *const serving = in.find_ap(state.now.ap);
    return serving != nullptr && ssid_at(*serving, state.now.bssid) == *wanted.ssid;
}

link_state state_of(const access_point_link *link) {
    if (link == nullptr) {
        return link_state::down;
    }
    return link->ap ? link_state::up : link_state::connecting;
}

// Nothing but that a client had its home there, before the access point was removed.
bool is_only_a_home(const access_point &of) { return of.name.empty() && of.vaps.empty() && of.clients == 0; }

// `state` is null when the controller only listens.
std::optional<ap_row> wanted_row(const mac_address &ap, const access_point_link *link, const access_point *state,
                                 const ap_query &wanted) {
    if (link == nullptr && is_only_a_home(*state)) {
        return std::nullopt;
    }
    const std::string &name = state != nullptr ? state->name : link->other.name;
    const link_state now = state_of(link);
    if (!contains_in_either_case(name, wanted.name) || (wanted.state && now != *wanted.state)) {
        return std::nullopt;
    }
    ap_row row{.ap = ap, .name = name, .state = now, .enrolled = {}, .link = {}, .lost = {}, .vaps = {}};
    if (link != nullptr) {
        row.link = *link;
    }
    if (state != nullptr) {
        row.stations = state->clients;
        for (const auto &[bssid, config] : state->vaps) {
            row.vaps.push_back({{{ap, bssid}, name, ssid_of(config.ssid)}, config.vlan});
        }
    }
    return row;
}

}  // namespace

named_place name_place(const site_tables &in, const place &where) {
    const access_point *const ap = in.find_ap(where.ap);
    return ap == nullptr ? named_place{where, "", ""} : named_place{where, ap->name, ssid_at(*ap, where.bssid)};
}

page<client_row> list_clients(const site_tables &of, const client_query &wanted) {
    const access_point *const ap = wanted.ap.empty() ? nullptr : &find_named_ap(of, wanted.ap);
    const auto make = [&](const auto &entry) {
        const mac_address &mac = key_of(entry);
        const client *const state = of.find_client(mac);
        const bool fits = state != nullptr && contains_in_either_case(of.name_of(mac), wanted.name) &&
                          is_wanted(of, *state, ap, wanted);
        return fits ? std::optional(row_of(of, mac, *state)) : std::nullopt;
    };
    if (!wanted.name.empty()) {
        return list_map<client_row>(of.names(), wanted.mac, wanted.page, make);
    }
    return list_map<client_row>(ap != nullptr ? ap->holds : of.station_order(), wanted.mac, wanted.page, make);
}

std::optional<client_row> find_client_row(const site_tables &of, const mac_address &client) {
    const auto *const state = of.find_client(client);
    return state == nullptr ? std::nullopt : std::optional(row_of(of, client, *state));
}

page<vap_row> list_vaps(const site_tables &of, const vap_query &wanted) {
    page<vap_row> made;
    budget left(wanted.page.limit);
    mac_range range;
    if (!wanted.ap.empty()) {
        range.first = range.last = find_named_ap(of, wanted.ap).mac;
    }
    const auto cursor = place_of_cursor(wanted.page.cursor);
    std::optional<place> passed;
    for (auto ap = of.aps().lower_bound(std::max(range.first, cursor.value_or(place{}).ap));
         ap != of.aps().end() && ap->first <= range.last; ++ap) {
        const auto &vaps = ap->second->vaps;
        const bool is_rest = cursor && cursor->ap == ap->first;
        for (auto at = is_rest ? vaps.upper_bound(cursor->bssid) : vaps.begin(); at != vaps.end(); ++at) {
            if (left.spent()) {
                made.next = kx::format_mac(passed->ap) + '/' + kx::format_mac(passed->bssid);
                return made;
            }
            left.pass();
            passed = place{ap->first, at->first};
            std::string ssid = ssid_of(at->second.ssid);
            if (!wanted.ssid || ssid == *wanted.ssid) {
                left.add_row();
                made.rows.push_back({{*passed, ap->second->name, std::move(ssid)}, at->second.vlan});
            }
        }
    }
    return made;
}

page<ap_row> list_access_points(const access_points &links, const enrolments &enrolled, const site_tables *managed,
                                const ap_query &wanted) {
    const auto make = [&](const mac_address &ap, const access_point *state) {
        std::optional<ap_row> row = wanted_row(ap, links.find(ap), state, wanted);
        if (const enrolment *known = row ? enrolled.find(ap) : nullptr) {
            row->enrolled = known->state();
        }
        if (const ap_losses *lost = row ? links.losses_of(ap) : nullptr) {
            row->lost = *lost;
        }
        return row;
    };
    if (managed == nullptr) {
        return list_map<ap_row>(links.by_mac(), wanted.mac, wanted.page,
                                [&](const auto &entry) { return make(entry.first, nullptr); });
    }
    return list_map<ap_row>(managed->aps(), wanted.mac, wanted.page,
                            [&](const auto &entry) { return make(entry.first, entry.second.get()); });
}

page<enrolment_row> list_enrolments(const enrolments &of, const access_points &links, const enrolment_query &wanted) {
    const auto make = [&](const auto &entry) -> std::optional<enrolment_row> {
        const auto &[ap, each] = entry;
        if (!contains_in_either_case(each.name, wanted.name) || (wanted.state && each.state() != *wanted.state)) {
            return std::nullopt;
        }
        return enrolment_row{ap, each, state_of(links.find(ap))};
    };
    return list_map<enrolment_row>(of.all(), wanted.mac, wanted.page, make);
}

}  // namespace controller
