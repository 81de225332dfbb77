#include "apctl/listings.h"

#include <array>
#include <charconv>
#include <cstdio>

#include "apctl/texts.h"
#include "apctl/view_client.h"
#include "common/ipv4.h"
#include "common/mac_address.h"
#include "common/printable.h"

namespace apctl {

namespace {

std::time_t time_of(std::uint64_t seconds) { return static_cast<std::time_t>(seconds); }

json address_or_null(std::uint64_t ip) {
    return ip == 0 ? json(nullptr) : json(kx::format_ipv4(static_cast<std::uint32_t>(ip)));
}

// The counters with this prefix, without it.
json counters_of(const shown &from, const std::string &prefix) {
    json found = json::object();
    for (auto at = from.numbers.lower_bound(prefix); at != from.numbers.end() && at->first.starts_with(prefix); ++at) {
        found[at->first.substr(prefix.size())] = at->second;
    }
    return found;
}

// "no_tunnel 3, stranger 1"; "nothing"
std::string losses_of(const shown &from) {
    std::string text;
    const json losses = counters_of(from, "lost.");
    for (const auto &[reason, number] : losses.items()) {
        if (number != 0) {
            text += (text.empty() ? "" : ", ") + kx::printable(reason) + ' ' + number.dump();
        }
    }
    return text.empty() ? "nothing" : text;
}

void add_client_mgr(const shown &from, json &row, std::string &text) {
    const std::string level = from.text("log.level");
    row["controller"] = address_or_null(from.number("controller.up") != 0 ? from.number("controller.address") : 0);
    int level_number = 0;
    std::from_chars(level.data(), level.data() + level.size(), level_number);
    row["log_level"] = level_number;
    row["vaps"] = from.vaps.size();
    row["messages"] = counters_of(from, "messages.");
    text += "\n  controller   " + (row["controller"].is_null() ? "none" : row["controller"].get<std::string>()) +
            "\n  VAPs         " + std::to_string(from.vaps.size()) + "\n  log level    " + kx::printable(level);
}

void add_apd(const shown &from, json &row, std::string &text) {
    const bool up = from.number("tunnel.up") != 0;
    const std::time_t since = std::time(nullptr) - time_of(from.number("tunnel.seconds"));
    const std::time_t end = time_of(from.number("certificate.end"));
    const std::uint64_t missed = from.number("heartbeats.missed"), queue = from.number("tunnel.queue_bytes");
    row["tunnel"] = up ? "up" : "down";
    row["tunnel_since"] = up ? json(utc_time(since)) : json(nullptr);
    row["controller"] = address_or_null(from.number("controller.address"));
    row["controller_name"] = up ? json(from.text("controller.name")) : json(nullptr);
    row["certificate_ends"] = end != 0 ? json(utc_time(end)) : json(nullptr);
    row["queue_bytes"] = queue;
    row["heartbeats_missed"] = missed;
    row["connects"] = counters_of(from, "connects.");
    row["records"] = counters_of(from, "records.");
    text += "\n  tunnel       " +
            (up ? "up since " + local_time(since) + " to " + kx::printable(from.text("controller.name")) + " at " +
                      row["controller"].get<std::string>()
                : "down");
    text += "\n  certificate  " + (end != 0 ? "ends at " + local_time(end) : "cannot be used");
    text +=
        "\n  queue        " + std::to_string(queue) + " bytes\n  heartbeats   " + std::to_string(missed) + " missed";
}

std::string bssid_text(const mac_address &bssid) { return bssid == mac_address{} ? "-" : kx::format_mac(bssid); }

template <typename... Texts>
std::string columns(const char *form, Texts... texts) {
    std::array<char, 256> line{};
    std::snprintf(line.data(), line.size(), form, texts...);
    return line.data();
}

constexpr const char *client_columns = "%-17s  %-12s  %-17s  %5s  %-15s  %s";
constexpr const char *vap_columns = "%-12s  %-17s  %5s  %-5s  %s";

}  // namespace

daemon_answer try_ask(const std::string &daemon, std::string_view platform_path, std::string_view request) {
    try {
        return {daemon, ask(platform_path, request), ""};
    } catch (const unreachable &error) {
        return {daemon, std::nullopt, error.what()};
    }
}

void list_status(const daemon_answer &of, output &to) {
    json row = {{"daemon", of.daemon}, {"running", of.answer.has_value()}};
    if (!of.answer) {
        row["reason"] = of.unreachable;
        to.row(row, of.daemon + ": " + kx::printable(of.unreachable));
        return;
    }
    const shown &from = *of.answer;
    const std::time_t started = time_of(from.number("started"));
    row["process"] = from.number("process");
    row["since"] = utc_time(started);
    std::string text =
        of.daemon + ": process " + std::to_string(from.number("process")) + " since " + local_time(started);
    if (of.daemon == "client_mgr") {
        add_client_mgr(from, row, text);
    } else {
        add_apd(from, row, text);
    }
    row["lost"] = counters_of(from, "lost.");
    to.row(row, text + "\n  lost         " + losses_of(from));
}

void list_counters(const daemon_answer &of, output &to) {
    if (!of.answer) {
        return;
    }
    for (const char *group : {"messages.", "records.", "connects.", "heartbeats.", "lost."}) {
        const json counters = counters_of(*of.answer, group);
        for (const auto &[name, number] : counters.items()) {
            const std::string counter = group + name;
            to.row(
                {{"daemon", of.daemon}, {"counter", counter}, {"value", number}},
                columns("%-12s  %-36s  %s", of.daemon.c_str(), kx::printable(counter).c_str(), number.dump().c_str()));
        }
    }
}

void list_vaps(const shown &client_mgr, output &to) {
    to.heading(columns(vap_columns, "VAP", "BSSID", "VLAN", "GUEST", "SSID"));
    for (const kx::view_vap &vap : client_mgr.vaps) {
        json row = {{"vap", ifname_of(vap)}, {"bssid", kx::format_mac(vap.bssid)}};
        add_ssid(row, ssid_of(vap));
        row["vlan"] = std::uint32_t{vap.vlan};
        row["guest"] = vap.guest != 0;
        row["radius_index"] = std::uint32_t{vap.radius_index};
        row["mac_acl_index"] = std::uint32_t{vap.mac_acl_index};
        row["radius_acl_type"] = std::uint32_t{vap.radius_acl_type};
        to.row(row, columns(vap_columns, ifname_of(vap).c_str(), kx::format_mac(vap.bssid).c_str(),
                            std::to_string(vap.vlan).c_str(), vap.guest != 0 ? "yes" : "no",
                            kx::printable(ssid_of(vap)).c_str()));
    }
}

json to_json(const shown &client_mgr, const kx::view_client &client) {
    const kx::view_vap *const vap = vap_of(client_mgr, client);
    json row = {{"client", kx::format_mac(client.client)},
                {"state", state_of(client_mgr, client)},
                {"vap", vap == nullptr ? json(nullptr) : json(ifname_of(*vap))}};
    if (vap == nullptr) {
        row["ssid"] = nullptr;
    } else {
        add_ssid(row, ssid_of(*vap));
    }
    row["bssid"] = client.bssid == mac_address{} ? json(nullptr) : json(kx::format_mac(client.bssid));
    row["vlan"] = static_cast<std::int32_t>(std::uint32_t{client.vlan});
    row["home_bssid"] = client.home_bssid == mac_address{} ? json(nullptr) : json(kx::format_mac(client.home_bssid));
    row["home_vlan"] = static_cast<std::int32_t>(std::uint32_t{client.home_vlan});
    row["ip"] = address_or_null(client.ip);
    row["has_pmk"] = (client.flags & kx::view_flag_pmk) != 0;
    row["guest"] = (client.flags & kx::view_flag_guest) != 0;
    return row;
}

void list_clients(const shown &client_mgr, output &to) {
    to.heading(columns(client_columns, "CLIENT", "VAP", "BSSID", "VLAN", "ADDRESS", "STATE"));
    for (const auto &[mac, client] : client_mgr.clients) {
        const kx::view_vap *const vap = vap_of(client_mgr, client);
        to.row(to_json(client_mgr, client),
               columns(client_columns, kx::format_mac(mac).c_str(), vap == nullptr ? "-" : ifname_of(*vap).c_str(),
                       bssid_text(client.bssid).c_str(), std::to_string(client.vlan).c_str(),
                       client.ip == 0 ? "-" : kx::format_ipv4(client.ip).c_str(), state_of(client_mgr, client)));
    }
}

void show_client(const shown &client_mgr, const kx::view_client &client, output &to) {
    const json row = to_json(client_mgr, client);
    std::string text;
    for (const auto &[name, value] : row.items()) {
        const std::string plain = value.is_string() ? kx::printable(value.get<std::string>())
                                  : value.is_null() ? "-"
                                                    : value.dump();
        text += (text.empty() ? "" : "\n") + columns("%-12s", name.c_str()) + plain;
    }
    to.row(row, text);
}

}  // namespace apctl
