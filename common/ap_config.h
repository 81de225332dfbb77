// The access point's configuration file, TOML:
//
//   [ap]
//   mac = "02:00:00:00:10:00"          # radio 0
//
//   [controller]
//   address = "127.0.0.1"              # name or address
//   port = 7443
//   ca = "ca.pem"                      # file names are relative to the configuration file's directory
//   certificate = "ap.pem"
//   key = "ap.key"
//
//   [[vap]]
//   ifname = "wlan0"                   # 1 to 12 characters of A-Z a-z 0-9 . _ -
//   ssid = "office"                    # at most 32 bytes
//   vlan = 10                          # 0 to 4094
//   enabled = true                     # optional, true
//   guest = false                      # optional, false; true gives vap_attr 1
//   captive = ""                       # optional, at most 32 bytes: the captive portal's text
//   radius_index = 0                   # optional, 0 .. 2^32 - 1, like the two below
//   mac_acl_index = 0
//   radius_acl_type = 0
//   fetch_pmk = true                   # optional, true; only radiod reads it: fetch the PMKs of stations that come
//   bssid = "02:00:00:00:10:01"        # optional; only the lab's radio reads it: the BSSID of the VAP
//
//   [tunnel]
//   enabled = true                     # optional table; false without it: carry clients that roamed to another VLAN
//   address = "10.0.0.10"              # optional: where other access points reach this one
//   mtu = 1500                         # optional, 1330 .. 9000: of the network between access points
//
//   [metrics]
//   address = "127.0.0.1"              # optional table; only apctl reads it: where it serves metrics
//   port = 9465
//
// and the table of the radio service (common/radio_config.h).
#ifndef COMMON_AP_CONFIG_H
#define COMMON_AP_CONFIG_H

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "common/mac_address.h"
#include "common/radio_config.h"
#include "common/toml_table.h"

namespace kx {

struct controller_config {
    std::string address;
    std::uint16_t port = 0;
    std::string ca, certificate, key;  // absolute paths

    bool operator==(const controller_config &) const = default;
};

struct vap_config {
    std::string ifname;
    std::string ssid;
    std::uint16_t vlan = 0;
    bool enabled = true;
    std::uint32_t vap_attr = 0;
    std::string captive;
    std::uint32_t radius_index = 0, mac_acl_index = 0, radius_acl_type = 0;
    bool fetch_pmk = true;
    std::optional<mac_address> bssid;

    bool operator==(const vap_config &) const = default;
};

struct tunnel_config {
    bool enabled = false;
    std::uint32_t address = 0;  // IPv4, as a number; 0: the one that the controller sees
    int mtu = 1500;             // bytes of the largest IP packet that passes between access points

    bool operator==(const tunnel_config &) const = default;
};

struct metrics_config {
    std::string address;  // IPv4 or IPv6; empty: none
    std::uint16_t port = 0;

    bool operator==(const metrics_config &) const = default;
};

struct ap_config {
    mac_address mac{};
    controller_config controller;
    tunnel_config tunnel;
    metrics_config metrics;
    radio_config radio;
    std::vector<vap_config> vaps;  // at most 255, each with another interface name
};

// Reads an array of VAP tables, at most `most`. Its key is "vap" in the configuration file. Throws config_error.
std::vector<vap_config> read_vaps(const toml_table &from, std::string_view key, std::size_t most);

// Reads and checks the whole file. An unknown key is an error. Throws config_error.
ap_config load_ap_config(const std::string &file);

}  // namespace kx

#endif
