#include "lab/radio/vap_list.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace radio {
namespace {

// An SSID has any bytes, a TOML file is UTF-8 without NULs: invalid bytes are left out. JSON's escapes are valid TOML.
std::string quote(std::string text) {
    using nlohmann::json;
    std::erase(text, '\0');
    std::string quoted = json(text).dump(-1, ' ', false, json::error_handler_t::ignore);
    for (std::size_t at = 0; (at = quoted.find('\x7f', at)) != std::string::npos;) {
        quoted.replace(at, 1, "\\u007f");
    }
    return quoted;
}

}  // namespace

std::vector<kx::vap_config> discover_vaps(capture_source &capture) {
    timed_event event;
    while (capture.next(event) != event_source::step::end) {
    }
    std::vector<kx::vap_config> vaps;
    std::vector<std::string> networks;
    for (const mac_address &bssid : capture.tracker().access_points()) {
        if (vaps.size() == vaps_max) {
            break;
        }
        kx::vap_config vap;
        vap.ifname = "wlan" + std::to_string(vaps.size());
        vap.ssid = capture.tracker().ssid(bssid);
        vap.bssid = bssid;
        auto network = std::ranges::find(networks, vap.ssid);
        if (network == networks.end()) {
            network = networks.insert(network, vap.ssid);
        }
        vap.vlan = static_cast<std::uint16_t>((network - networks.begin() + 1) * 10);
        vaps.push_back(vap);
    }
    return vaps;
}

std::string to_toml(const std::vector<kx::vap_config> &vaps) {
    std::string text;
    for (const kx::vap_config &vap : vaps) {
        text += "[[vap]]\nifname = " + quote(vap.ifname) + "\nssid = " + quote(vap.ssid) +
                "\nvlan = " + std::to_string(vap.vlan) + '\n';
        const auto number = [&text](const char *key, std::uint32_t value) {
            if (value != 0) {
                text += std::string(key) + " = " + std::to_string(value) + '\n';
            }
        };
        text += vap.enabled ? "" : "enabled = false\n";
        text += vap.vap_attr != 0 ? "guest = true\n" : "";
        text += vap.captive.empty() ? "" : "captive = " + quote(vap.captive) + '\n';
        number("radius_index", vap.radius_index);
        number("mac_acl_index", vap.mac_acl_index);
        number("radius_acl_type", vap.radius_acl_type);
        if (vap.bssid) {
            text += "bssid = \"" + kx::format_mac(*vap.bssid) + "\"\n";
        }
        text += '\n';
    }
    return text;
}

}  // namespace radio
