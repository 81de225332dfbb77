#include "apctl/changes.h"

#include <algorithm>
#include <cstring>
#include <set>

#include "apctl/listings.h"
#include "apctl/texts.h"
#include "common/ipv4.h"
#include "common/mac_address.h"
#include "common/printable.h"

namespace apctl {

namespace {

change of_client(const char *event, const shown &daemon, const kx::view_client &client) {
    json row = {{"event", event}};
    row.update(to_json(daemon, client));
    const kx::view_vap *const vap = vap_of(daemon, client);
    std::string text = std::string(event) + "  " + kx::format_mac(client.client) + "  ";
    text += vap == nullptr ? "-" : ifname_of(*vap) + " \"" + kx::printable(ssid_of(*vap)) + '"';
    text += "  " + (client.ip == 0 ? "-" : kx::format_ipv4(client.ip)) + "  " + state_of(daemon, client);
    return {row, text};
}

change of_vap(const char *event, const kx::view_vap &vap) {
    json row = {{"event", event}, {"vap", ifname_of(vap)}, {"bssid", kx::format_mac(vap.bssid)}};
    add_ssid(row, ssid_of(vap));
    return {row, std::string(event) + "  " + ifname_of(vap) + " \"" + kx::printable(ssid_of(vap)) + '"'};
}

// Null when nothing has changed.
const char *event_between(const shown &then, const kx::view_client &before, const shown &now,
                          const kx::view_client &after) {
    if (before.bssid != after.bssid) {
        return "moved";
    }
    if (before.ip != after.ip) {
        return "address";
    }
    return std::strcmp(state_of(then, before), state_of(now, after)) != 0 ? "state" : nullptr;
}

bool has_vap(const shown &daemon, const kx::view_vap &vap) {
    return std::ranges::find(daemon.vaps, vap.bssid, &kx::view_vap::bssid) != daemon.vaps.end();
}

}  // namespace

std::vector<change> changes_of_clients(const shown &before, const shown &now) {
    std::vector<change> found;
    for (const kx::view_vap &vap : before.vaps) {
        if (!has_vap(now, vap)) {
            found.push_back(of_vap("vap removed", vap));
        }
    }
    for (const kx::view_vap &vap : now.vaps) {
        if (!has_vap(before, vap)) {
            found.push_back(of_vap("vap added", vap));
        }
    }
    for (const auto &[mac, client] : before.clients) {
        if (!now.clients.contains(mac)) {
            found.push_back(of_client("left", before, client));
        }
    }
    for (const auto &[mac, client] : now.clients) {
        const auto old = before.clients.find(mac);
        const char *const event =
            old == before.clients.end() ? "joined" : event_between(before, old->second, now, client);
        if (event != nullptr) {
            found.push_back(of_client(event, now, client));
        }
    }
    return found;
}

std::vector<change> changes_of_tunnel(const shown &before, const shown &now) {
    std::vector<change> found;
    const bool up = now.number("tunnel.up") != 0;
    if (up != (before.number("tunnel.up") != 0)) {
        const std::string event = up ? "tunnel up" : "tunnel down";
        const std::string name = now.text("controller.name");
        found.push_back({{{"event", event}, {"controller_name", up ? json(name) : json(nullptr)}},
                         event + (up ? "  " + kx::printable(name) : "")});
    }
    const bool answers = now.number("client_mgr.answers") != 0;
    if (answers != (before.number("client_mgr.answers") != 0)) {
        const std::string event = answers ? "client_mgr answers" : "client_mgr does not answer";
        found.push_back({{{"event", event}}, event});
    }
    return found;
}

}  // namespace apctl
