#include "common/radio_config.h"

#include <arpa/inet.h>
#include <netinet/in.h>

#include <climits>
#include <cstddef>
#include <string_view>

namespace kx {

namespace {

constexpr std::size_t max_servers = 4;

std::string read_file_name(const toml_table &from, std::string_view key, const std::filesystem::path &directory) {
    return (directory / from.text(key, 1, PATH_MAX, "a file name")).lexically_normal().string();
}

std::uint16_t read_port(const toml_table &from, std::string_view key, std::uint16_t otherwise) {
    return from.has(key) ? static_cast<std::uint16_t>(from.integer(key, 1, 65535)) : otherwise;
}

bool is_numeric_address(const std::string &text) {
    in6_addr room{};
    return inet_pton(AF_INET, text.c_str(), &room) == 1 || inet_pton(AF_INET6, text.c_str(), &room) == 1;
}

radius_server_config read_server(const toml_table &from, const std::filesystem::path &directory) {
    constexpr std::string_view address_expected = "a numeric IPv4 or IPv6 address";
    from.allow_only({"address", "port", "secret_file"});
    radius_server_config server;
    server.address = from.text("address", 1, INET6_ADDRSTRLEN, address_expected);
    if (!is_numeric_address(server.address)) {
        from.fail("address", "expected " + std::string(address_expected));
    }
    server.port = read_port(from, "port", server.port);
    server.secret_file = read_file_name(from, "secret_file", directory);
    return server;
}

bool read_fallback(const toml_table &from) {
    constexpr std::string_view expected = "\"deny\" or \"allow\"";
    const std::string choice = from.text("acl_fallback", 1, 5, expected);
    if (choice != "deny" && choice != "allow") {
        from.fail("acl_fallback", "expected " + std::string(expected));
    }
    return choice == "allow";
}

}  // namespace

radio_config read_radio(const toml_table &from, const std::filesystem::path &directory) {
    from.allow_only(
        {"hostapd_directory", "radius_port", "radius_secret_file", "hold_ms", "acl_fallback", "radius_server"});
    radio_config config;
    if (from.has("hostapd_directory")) {
        config.hostapd_directory = read_file_name(from, "hostapd_directory", directory);
    }
    config.radius_port = read_port(from, "radius_port", config.radius_port);
    if (from.has("radius_secret_file")) {
        config.radius_secret_file = read_file_name(from, "radius_secret_file", directory);
    }
    if (from.has("hold_ms")) {
        config.hold = std::chrono::milliseconds(from.integer("hold_ms", 20, 1000));
    }
    config.allows_without_verdict = from.has("acl_fallback") && read_fallback(from);
    for (const toml_table &server : from.tables("radius_server")) {
        if (config.radius_servers.size() == max_servers) {
            server.fail("expected at most " + std::to_string(max_servers) + " RADIUS servers");
        }
        config.radius_servers.push_back(read_server(server, directory));
    }
    return config;
}

}  // namespace kx
