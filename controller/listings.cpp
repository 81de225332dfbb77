#include "controller/listings.h"

#include <algorithm>

#include "common/ipv4.h"
#include "controller/render.h"
#include "tunnel/certificate_life.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;

const char *name_of(verdict decision) { return decision == verdict::allow ? "allow" : "deny"; }

const char *name_of(guest_state state) {
    switch (state) {
        case guest_state::none:
            return "none";
        case guest_state::waiting:
            return "waiting";
        case guest_state::approved:
            return "approved";
        case guest_state::unknown:
            return "unknown";
    }
    return "unknown";
}

std::string time_of(const std::optional<kx::wall_time> &time) { return time ? kx::format_utc(*time) : "unknown"; }

void add_link(listing &to, const access_point_link &link) {
    json &one = to.json.emplace_back(json{{"ap", nullptr}, {"up", true}});
    if (link.ap) {
        one["ap"] = kx::format_mac(*link.ap);
    }
    const std::string end = time_of(link.other.certificate_end);
    one.update(json{{"peer", link.other.name},
                    {"address", link.other.address},
                    {"records", link.records},
                    {"certificate_expires", end}});
    to.text += (link.ap ? kx::format_mac(*link.ap) : "(not known yet)  ") + "  " + printable(link.other.name) + "  " +
               link.other.address + "  " + std::to_string(link.records) + " records  certificate ends " + end;
}

void add_site_state(listing &to, const site &of, const mac_address &ap) {
    const access_point &state = *of.tables().find_ap(ap);
    json &one = to.json.back();
    one["stations"] = state.clients;
    one["vaps"] = json::array();
    to.text += "  " + std::to_string(state.clients) + " stations";
    for (const auto &[bssid, config] : state.vaps) {
        const std::string name = ssid_of(config.ssid);
        one["vaps"].push_back({{"bssid", kx::format_mac(bssid)}, {"ssid", name}, {"vlan", config.vlan}});
        to.text +=
            "\n    " + kx::format_mac(bssid) + "  VLAN " + std::to_string(config.vlan) + "  \"" + printable(name) + '"';
    }
}

json addresses(const mac_acl_list &list, verdict decision) {
    json found = json::array();
    for (const auto &[client, decided] : list.clients) {
        if (decided == decision) {
            found.push_back(kx::format_mac(client));
        }
    }
    return found;
}

}  // namespace

listing list_access_points(exchange &with) {
    listing made{json::array(), ""};
    const site *known = with.managed_site();
    for (const auto &[id, link] : with.aps().links()) {
        add_link(made, link);
        if (known != nullptr && link.ap) {
            add_site_state(made, *known, *link.ap);
        }
        made.text += '\n';
    }
    if (known == nullptr) {
        return made;
    }
    for (const auto &[ap, state] : known->tables().aps()) {
        if (!state->up) {
            made.json.push_back({{"ap", kx::format_mac(ap)}, {"up", false}});
            made.text += kx::format_mac(ap) + "  no tunnel";
            add_site_state(made, *known, ap);
            made.text += '\n';
        }
    }
    return made;
}

listing list_clients(const site &of) {
    listing made{json::array(), ""};
    for (const auto &[station, entry] : of.tables().stations()) {
        if (!entry->client) {
            continue;
        }
        const client &known = *entry->client;
        json &one = made.json.emplace_back(json{{"client", kx::format_mac(station)},
                                                {"ap", kx::format_mac(known.now.ap)},
                                                {"bssid", kx::format_mac(known.now.bssid)},
                                                {"home_ap", kx::format_mac(known.home.ap)},
                                                {"home_bssid", kx::format_mac(known.home.bssid)},
                                                {"home_vlan", nullptr},
                                                {"ip", kx::format_ipv4(known.ip)},
                                                {"guest", name_of(known.guest)},
                                                {"pmk", of.tables().pmk(station) != nullptr}});
        if (known.home_vlan) {
            one["home_vlan"] = *known.home_vlan;
        }
        made.text += kx::format_mac(station) + "  at " + kx::format_mac(known.now.bssid) + " of " +
                     kx::format_mac(known.now.ap) + "  home " + kx::format_mac(known.home.bssid) + "  VLAN " +
                     (known.home_vlan ? std::to_string(*known.home_vlan) : "?") + "  " + kx::format_ipv4(known.ip);
        made.text += known.guest == guest_state::none ? "" : std::string("  guest: ") + name_of(known.guest);
        made.text += '\n';
    }
    return made;
}

json losses_of(const exchange &with) {
    return {{"malformed", with.counts().malformed},
            {"frames_ignored", with.tunnel_losses().frames_ignored},
            {"messages_unsent", with.tunnel_losses().messages_unsent},
            {"tunnels_refused", with.refused()},
            {"connections_displaced", with.counts().displaced},
            {"accept_errors", with.counts().accept_errors},
            {"output_lines_dropped", with.dropped_lines()}};
}

listing list_stats(exchange &with) {
    listing made{{{"tunnels", with.aps().links().size()},
                  {"records", with.counts().records},
                  {"records_per_second", with.records_per_second()},
                  {"messages_sent", with.counts().sent},
                  {"certificate_expires", time_of(with.certificate_end())}},
                 ""};
    made.json.update(losses_of(with));
    if (const site *known = with.managed_site()) {
        made.json.update(json{{"clients", known->tables().clients()},
                              {"roams", known->roams()},
                              {"guests_waiting", known->tables().guests(guest_state::waiting)},
                              {"guests_approved", known->tables().guests(guest_state::approved)},
                              {"unsettled", known->unsettled()}});
    }
    for (const auto &[key, value] : made.json.items()) {
        made.text += key + ' ' + value.dump() + '\n';
    }
    return made;
}

listing list_mac_acl(const mac_acl &of) {
    listing made{{{"default", name_of(of.otherwise())}, {"lists", json::array()}}, ""};
    made.text = std::string("without a list: ") + name_of(of.otherwise()) + '\n';
    for (const auto &[index, list] : of.lists()) {
        made.json["lists"].push_back({{"mac_acl_index", index},
                                      {"default", name_of(list.otherwise)},
                                      {"allow", addresses(list, verdict::allow)},
                                      {"deny", addresses(list, verdict::deny)}});
        made.text += "list " + std::to_string(index) + ": " + name_of(list.otherwise) + '\n';
        for (const auto &[client, decided] : list.clients) {
            made.text += "    " + kx::format_mac(client) + ' ' + name_of(decided) + '\n';
        }
    }
    return made;
}

}  // namespace controller
