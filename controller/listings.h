// The controller's state as lists for the operator.
#ifndef CONTROLLER_LISTINGS_H
#define CONTROLLER_LISTINGS_H

#include <nlohmann/json.hpp>
#include <string>

#include "controller/exchange.h"

namespace controller {

struct listing {
    nlohmann::ordered_json json;
    std::string text;  // the same as lines of text
};

// [{"ap": MAC or null, "up": bool, "peer": name, "address": text, "records": N, "certificate_expires":
//   "2026-11-22T10:00:00Z", "stations": N, "vaps": [{"bssid": MAC, "ssid": text, "vlan": N}]}]. "peer", "address",
//   "records" and
// "certificate_expires" are left out when "up" is false. "ap" is null as long as the tunnel has carried no message.
listing list_access_points(exchange &with);

// [{"client": MAC, "ap": MAC, "bssid": MAC, "home_ap": MAC, "home_bssid": MAC, "home_vlan": N or null, "ip": address,
//   "guest": "none" | "waiting" | "approved" | "unknown", "pmk": bool}]
listing list_clients(const site &of);

// {"malformed", "frames_ignored", "messages_unsent", "tunnels_refused", "connections_displaced", "accept_errors",
// "output_lines_dropped"}, each a number since the start
nlohmann::ordered_json losses_of(const exchange &with);

// {"tunnels", "records", "records_per_second", "messages_sent", "certificate_expires"}, the losses and, unless the
// controller only listens,
// {"clients", "roams", "guests_waiting", "guests_approved", "unsettled"}
listing list_stats(exchange &with);

// {"default": verdict, "lists": [{"mac_acl_index": N, "default": verdict, "allow": [MAC], "deny": [MAC]}]}
listing list_mac_acl(const mac_acl &of);

}  // namespace controller

#endif
