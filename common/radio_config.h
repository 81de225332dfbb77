// The table of the radio service in the access point's configuration file:
//
//   [radio]                                   # optional, as is each of its keys
//   hostapd_directory = "/var/run/hostapd"    # hostapd's ctrl_interface
//   radius_port = 1812                        # of 127.0.0.1, where hostapd asks
//   radius_secret_file = "hostapd.secret"     # the secret shared with hostapd; without it hostapd cannot ask
//   hold_ms = 120                             # 20 to 1000: how long a station waits for a verdict and for its PMK
//   acl_fallback = "deny"                     # or "allow", when no verdict came in that time
//
//   [[radio.radius_server]]                   # at most 4, in the order in which they are asked
//   address = "10.0.0.1"                      # a numeric address
//   port = 1812                               # optional, 1812
//   secret_file = "server.secret"
#ifndef COMMON_RADIO_CONFIG_H
#define COMMON_RADIO_CONFIG_H

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "common/toml_table.h"

namespace kx {

struct radius_server_config {
    std::string address;
    std::uint16_t port = 1812;
    std::string secret_file;  // an absolute path

    bool operator==(const radius_server_config &) const = default;
};

struct radio_config {
    std::string hostapd_directory = "/var/run/hostapd";
    std::uint16_t radius_port = 1812;
    std::string radius_secret_file;  // an absolute path; empty: none
    std::chrono::milliseconds hold{120};
    bool allows_without_verdict = false;
    std::vector<radius_server_config> radius_servers;

    bool operator==(const radio_config &) const = default;
};

// File names are relative to `directory`. Throws config_error.
radio_config read_radio(const toml_table &from, const std::filesystem::path &directory);

}  // namespace kx

#endif
