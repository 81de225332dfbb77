#include "controller/store/json_lines.h"

#include <ctime>
#include <nlohmann/json.hpp>

#include "common/ipv4.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;

// Text from outside may be no UTF-8.
std::string line(const json &one) { return one.dump(-1, ' ', false, json::error_handler_t::replace) + '\n'; }

// "2026-11-22T10:00:00.250Z"
std::string format_time(wall_time at) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(at);
    const std::time_t whole = std::chrono::system_clock::to_time_t(seconds);
    std::tm parts{};
    gmtime_r(&whole, &parts);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &parts);
    const std::string fraction = std::to_string(1000 + (at - seconds).count());
    return std::string(text, length) + '.' + fraction.substr(1) + 'Z';
}

const char *name_of(guest_state state) {
    constexpr const char *names[guest_states] = {"none", "waiting", "approved", "unknown"};
    return names[static_cast<std::size_t>(state)];
}

const char *name_of(role of) {
    constexpr const char *names[] = {"viewer", "operator", "admin"};
    return names[static_cast<std::size_t>(of)];
}

const char *name_of(verdict of) { return of == verdict::allow ? "allow" : "deny"; }

json json_of(const stored_client &one) {
    const client &of = one.state;
    json made = {{"type", "client"},
                 {"client", kx::format_mac(one.mac)},
                 {"ap", kx::format_mac(of.now.ap)},
                 {"bssid", kx::format_mac(of.now.bssid)},
                 {"home_ap", kx::format_mac(of.home.ap)},
                 {"home_bssid", kx::format_mac(of.home.bssid)},
                 {"home_vlan", nullptr},
                 {"ip", kx::format_ipv4(of.ip)},
                 {"guest", name_of(of.guest)}};
    if (of.home_vlan) {
        made["home_vlan"] = *of.home_vlan;
    }
    return made;
}

json json_of(const client_name &one) {
    return {{"type", "client_name"}, {"client", kx::format_mac(one.mac)}, {"name", one.name}};
}

json json_of(const acl_default &one) {
    json made = {{"type", "acl_default"}, {"mac_acl_index", nullptr}, {"verdict", name_of(one.decision)}};
    if (one.index) {
        made["mac_acl_index"] = *one.index;
    }
    return made;
}

json json_of(const acl_entry &one) {
    return {{"type", "acl_entry"},
            {"mac_acl_index", one.index},
            {"client", kx::format_mac(one.client)},
            {"verdict", name_of(one.decision.value_or(verdict::deny))}};
}

json json_of(const enrolled_ap &one) {
    return {{"type", "access_point"}, {"ap", kx::format_mac(one.mac)}, {"name", one.name},
            {"site", one.site},       {"revoked", one.revoked},        {"certificate", one.certificate}};
}

json json_of(const operator_account &one) {
    return {{"type", "operator"}, {"name", one.name}, {"role", name_of(one.may)}};
}

json json_of(const api_token &one) {
    json made = {{"type", "token"},          {"id", one.id},     {"operator", one.operator_name},
                 {"role", name_of(one.may)}, {"note", one.note}, {"created", format_time(one.created)},
                 {"expires", nullptr}};
    if (one.expires) {
        made["expires"] = format_time(*one.expires);
    }
    return made;
}

template <typename T>
void add(std::vector<std::string> &to, const std::vector<T> &values) {
    for (const T &each : values) {
        to.push_back(line(json_of(each)));
    }
}

}  // namespace

const char *name_of(client_event what) {
    switch (what) {
        case client_event::corrected:
            return "corrected";
        case client_event::associated:
            return "associated";
        case client_event::roamed:
            return "roamed";
        case client_event::address:
            return "address";
        case client_event::waiting:
            return "waiting";
        case client_event::approved:
            return "approved";
        case client_event::left:
            return "left";
        case client_event::found:
            return "found";
    }
    return "unknown";
}

std::vector<std::string> json_lines(const contents &of) {
    std::vector<std::string> made;
    add(made, of.aps);
    add(made, of.acl_defaults);
    add(made, of.acl_entries);
    add(made, of.operators);
    add(made, of.tokens);
    add(made, of.names);
    add(made, of.clients);
    return made;
}

std::string json_line(const history_entry &one) {
    return line({{"type", "history"},
                 {"number", one.number},
                 {"at", format_time(one.at)},
                 {"client", kx::format_mac(one.mac)},
                 {"event", name_of(one.what)},
                 {"ap", kx::format_mac(one.now.ap)},
                 {"bssid", kx::format_mac(one.now.bssid)},
                 {"ip", kx::format_ipv4(one.ip)}});
}

std::string json_line(const audit_record &one) {
    return line({{"type", "audit"},
                 {"number", one.number},
                 {"at", format_time(one.at)},
                 {"operator", one.entry.who},
                 {"action", one.entry.what},
                 {"subject", one.entry.subject},
                 {"outcome", one.entry.outcome}});
}

}  // namespace controller
