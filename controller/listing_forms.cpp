#include "controller/listing_forms.h"

#include "common/ipv4.h"
#include "controller/render.h"
#include "tunnel/certificate_life.h"

namespace controller {

namespace {

using json = nlohmann::ordered_json;

const char *name_of(verdict decision) { return decision == verdict::allow ? "allow" : "deny"; }

json text_or_null(const std::string &text) { return text.empty() ? json(nullptr) : json(text); }

template <class Value>
json value_or_null(const std::optional<Value> &value) {
    return value ? json(*value) : json(nullptr);
}

// "02:00:00:00:0a:0a "office" of 02:00:00:00:0a:00 (ap1)"
std::string to_text(const named_place &of) {
    std::string text = kx::format_mac(of.where.bssid);
    text += of.ssid.empty() ? "" : " \"" + printable(of.ssid) + '"';
    text += " of " + kx::format_mac(of.where.ap);
    return text + (of.ap_name.empty() ? "" : " (" + printable(of.ap_name) + ')');
}

std::string time_of(const std::optional<kx::wall_time> &time) { return time ? kx::format_utc(*time) : "unknown"; }

}  // namespace

json to_json(const client_row &row) {
    return {{"client", kx::format_mac(row.client)},
            {"name", text_or_null(row.name)},
            {"ap", kx::format_mac(row.now.where.ap)},
            {"ap_name", text_or_null(row.now.ap_name)},
            {"bssid", kx::format_mac(row.now.where.bssid)},
            {"ssid", text_or_null(row.now.ssid)},
            {"home_ap", kx::format_mac(row.home.where.ap)},
            {"home_ap_name", text_or_null(row.home.ap_name)},
            {"home_bssid", kx::format_mac(row.home.where.bssid)},
            {"home_ssid", text_or_null(row.home.ssid)},
            {"home_vlan", value_or_null(row.home_vlan)},
            {"ip", kx::format_ipv4(row.ip)},
            {"guest", name_of(row.guest)},
            {"pmk", row.has_pmk}};
}

json to_json(const ap_row &row) {
    const json lost = {{"malformed", row.lost.malformed},
                       {"frames_ignored", row.lost.frames_ignored},
                       {"messages_unsent", row.lost.messages_unsent}};
    json made = {{"ap", kx::format_mac(row.ap)},
                 {"name", text_or_null(row.name)},
                 {"state", name_of(row.state)},
                 {"enrolment", row.enrolled ? json(name_of(*row.enrolled)) : json(nullptr)},
                 {"address", nullptr},
                 {"records", nullptr},
                 {"certificate_expires", nullptr},
                 {"lost", lost},
                 {"stations", row.stations},
                 {"vaps", json::array()}};
    if (row.link) {
        made["address"] = row.link->other.address;
        made["records"] = row.link->records;
        made["certificate_expires"] = time_of(row.link->other.certificate_end);
    }
    for (const vap_row &each : row.vaps) {
        made["vaps"].push_back({{"bssid", kx::format_mac(each.where.where.bssid)},
                                {"ssid", text_or_null(each.where.ssid)},
                                {"vlan", each.vlan}});
    }
    return made;
}

json to_json(const vap_row &row) {
    return {{"ap", kx::format_mac(row.where.where.ap)},
            {"ap_name", text_or_null(row.where.ap_name)},
            {"bssid", kx::format_mac(row.where.where.bssid)},
            {"ssid", text_or_null(row.where.ssid)},
            {"vlan", row.vlan}};
}

json to_json(const acl_row &row) {
    return {{"mac_acl_index", value_or_null(row.index)},
            {"client", row.client ? json(kx::format_mac(*row.client)) : json(nullptr)},
            {"verdict", name_of(row.decision)}};
}

json to_json(const enrolment_row &row) {
    json made = {{"ap", kx::format_mac(row.ap)},      {"name", row.of.name},
                 {"site", text_or_null(row.of.site)}, {"serial", nullptr},
                 {"certificate_expires", nullptr},    {"state", name_of(row.of.state())},
                 {"link", name_of(row.link)}};
    if (!row.of.certificates.empty()) {
        made["serial"] = row.of.certificates.front().serial;
        made["certificate_expires"] = time_of(row.of.certificates.front().end);
    }
    return made;
}

std::string to_text(const enrolment_row &row) {
    std::string text = kx::format_mac(row.ap) + "  " + printable(row.of.name);
    text += row.of.site.empty() ? "" : "  at " + printable(row.of.site);
    text += "  " + std::string(name_of(row.of.state())) + "  " + std::string(name_of(row.link));
    if (!row.of.certificates.empty()) {
        const certificate_facts &newest = row.of.certificates.front();
        text += "  certificate " + newest.serial + " ends " + time_of(newest.end);
    }
    return text;
}

std::string to_text(const client_row &row) {
    std::string text = kx::format_mac(row.client);
    text += row.name.empty() ? "" : "  " + printable(row.name);
    text += "  at " + to_text(row.now) + "  home " + to_text(row.home);
    text += "  VLAN " + (row.home_vlan ? std::to_string(*row.home_vlan) : "?") + "  " + kx::format_ipv4(row.ip);
    return text + (row.guest == guest_state::none ? "" : "  guest: " + std::string(name_of(row.guest)));
}

std::string to_text(const ap_row &row) {
    std::string text = kx::format_mac(row.ap);
    text += row.name.empty() ? "" : "  " + printable(row.name);
    text += row.link ? "  " + std::string(name_of(row.state)) + "  " + row.link->other.address + "  " +
                           std::to_string(row.link->records) + " records  certificate ends " +
                           time_of(row.link->other.certificate_end)
                     : "  no tunnel";
    text += row.enrolled == enrolment_state::revoked ? "  revoked" : "";
    text += "  " + std::to_string(row.stations) + " stations";
    const std::uint64_t lost = row.lost.malformed + row.lost.frames_ignored + row.lost.messages_unsent;
    text += lost > 0 ? "  " + std::to_string(lost) + " lost" : "";
    for (const vap_row &each : row.vaps) {
        text += "\n    " + kx::format_mac(each.where.where.bssid) + "  VLAN " + std::to_string(each.vlan) + "  \"" +
                printable(each.where.ssid) + '"';
    }
    return text;
}

std::string to_text(const vap_row &row) { return to_text(row.where) + "  VLAN " + std::to_string(row.vlan); }

std::string to_text(const acl_row &row) {
    const std::string list = row.index ? "list " + std::to_string(*row.index) : "without a list";
    return list + "  " + (row.client ? kx::format_mac(*row.client) : "default") + "  " + name_of(row.decision);
}

}  // namespace controller
