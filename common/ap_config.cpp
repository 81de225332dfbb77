#include "common/ap_config.h"

#include <arpa/inet.h>

#include <algorithm>
#include <climits>
#include <filesystem>
#include <stdexcept>
#include <string_view>

#include "common/permissions.h"

namespace kx {

namespace {

constexpr std::size_t max_size = std::size_t{64} * 1024;
constexpr std::size_t max_vaps = 255;
constexpr std::size_t max_text = 32;
constexpr std::size_t max_ifname = 12;

bool is_interface_name(std::string_view name) {
    auto permitted = [](char c) {
        return (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || (c >= '0' && c <= '9') || c == '.' || c == '_' ||
               c == '-';
    };
    return !name.empty() && name.size() <= max_ifname && name != "." && name != ".." && !name.starts_with('-') &&
           std::all_of(name.begin(), name.end(), permitted);
}

controller_config read_controller(const toml_table &from, const std::filesystem::path &directory) {
    from.allow_only({"address", "port", "ca", "certificate", "key"});
    auto file = [&](std::string_view key) {
        return (directory / from.text(key, 1, PATH_MAX, "a file name")).lexically_normal().string();
    };
    controller_config config;
    config.address = from.text("address", 1, 253, "a host name or address");
    config.port = static_cast<std::uint16_t>(from.integer("port", 1, 65535));
    config.ca = file("ca");
    config.certificate = file("certificate");
    config.key = file("key");
    return config;
}

// A client's IPv6 packets have 1,280 bytes at least (RFC 8200, 5), and 50 more in a tunnel.
constexpr int tunnel_mtu_min = 1330, tunnel_mtu_max = 9000;

tunnel_config read_tunnel(const toml_table &from) {
    from.allow_only({"enabled", "address", "mtu"});
    tunnel_config config{.enabled = from.boolean("enabled")};
    if (from.has("address")) {
        const std::string text = from.text("address", 1, INET_ADDRSTRLEN, "an IPv4 address");
        in_addr address{};
        if (inet_pton(AF_INET, text.c_str(), &address) != 1 || address.s_addr == 0) {
            from.fail("address", "expected an IPv4 address");
        }
        config.address = ntohl(address.s_addr);
    }
    if (from.has("mtu")) {
        config.mtu = static_cast<int>(from.integer("mtu", tunnel_mtu_min, tunnel_mtu_max));
    }
    return config;
}

metrics_config read_metrics(const toml_table &from) {
    from.allow_only({"address", "port"});
    metrics_config config;
    config.address = from.text("address", 1, INET6_ADDRSTRLEN, "an IPv4 or IPv6 address");
    in6_addr address{};
    if (inet_pton(AF_INET, config.address.c_str(), &address) != 1 &&
        inet_pton(AF_INET6, config.address.c_str(), &address) != 1) {
        from.fail("address", "expected an IPv4 or IPv6 address");
    }
    config.port = static_cast<std::uint16_t>(from.integer("port", 1, 65535));
    return config;
}

vap_config read_vap(const toml_table &from) {
    constexpr std::string_view name_expected =
        "an interface name of 1 to 12 characters of A-Z a-z 0-9 . _ -, not starting with -";
    from.allow_only({"ifname", "ssid", "vlan", "enabled", "guest", "captive", "radius_index", "mac_acl_index",
                     "radius_acl_type", "fetch_pmk", "bssid"});
    vap_config vap;
    vap.ifname = from.text("ifname", 1, max_ifname, name_expected);
    if (!is_interface_name(vap.ifname)) {
        from.fail("ifname", "expected " + std::string(name_expected));
    }
    vap.ssid = from.text("ssid", 0, max_text, "a text of at most 32 bytes");
    vap.vlan = static_cast<std::uint16_t>(from.integer("vlan", 0, 4094));
    vap.enabled = !from.has("enabled") || from.boolean("enabled");
    vap.vap_attr = from.has("guest") && from.boolean("guest") ? 1 : 0;
    if (from.has("captive")) {
        vap.captive = from.text("captive", 0, max_text, "a text of at most 32 bytes");
    }
    vap.radius_index = from.optional_u32("radius_index");
    vap.mac_acl_index = from.optional_u32("mac_acl_index");
    vap.radius_acl_type = from.optional_u32("radius_acl_type");
    vap.fetch_pmk = !from.has("fetch_pmk") || from.boolean("fetch_pmk");
    if (from.has("bssid")) {
        vap.bssid = from.mac("bssid");
    }
    return vap;
}

}  // namespace

std::vector<vap_config> read_vaps(const toml_table &from, std::string_view key, std::size_t most) {
    std::vector<vap_config> vaps;
    for (const toml_table &table : from.tables(key)) {
        if (vaps.size() == most) {
            table.fail("expected at most " + std::to_string(most) + " VAPs");
        }
        vap_config vap = read_vap(table);
        if (std::ranges::find(vaps, vap.ifname, &vap_config::ifname) != vaps.end()) {
            table.fail("ifname", "expected a name that no other VAP has, not \"" + vap.ifname + "\"");
        }
        vaps.push_back(std::move(vap));
    }
    return vaps;
}

ap_config load_ap_config(const std::string &file) {
    try {
        require_safe_configuration(file);
    } catch (const std::runtime_error &error) {
        throw config_error(error.what());
    }
    toml_table top = toml_table::read(file, "the access point's configuration", max_size);
    top.allow_only({"ap", "controller", "metrics", "radio", "tunnel", "vap"});
    toml_table ap = top.table("ap");
    ap.allow_only({"mac"});
    std::filesystem::path directory = std::filesystem::absolute(file).parent_path();

    ap_config config;
    config.mac = ap.mac("mac");
    config.controller = read_controller(top.table("controller"), directory);
    if (top.has("radio")) {
        config.radio = read_radio(top.table("radio"), directory);
    }
    if (top.has("metrics")) {
        config.metrics = read_metrics(top.table("metrics"));
    }
    if (top.has("tunnel")) {
        config.tunnel = read_tunnel(top.table("tunnel"));
    }
    config.vaps = read_vaps(top, "vap", max_vaps);
    return config;
}

}  // namespace kx
