// Rows of listings as JSON objects and as text for operators.
#ifndef CONTROLLER_LISTING_FORMS_H
#define CONTROLLER_LISTING_FORMS_H

#include <nlohmann/json.hpp>
#include <string>

#include "controller/listings.h"

namespace controller {

// {"client": MAC, "name", "ap": MAC, "ap_name", "bssid": MAC, "ssid", "home_ap": MAC, "home_ap_name", "home_bssid":
// MAC,
//  "home_ssid", "home_vlan": N or null, "ip": address, "guest": "none" | "waiting" | "approved" | "unknown",
//  "pmk": bool}. A name or SSID that is not known is null.
nlohmann::ordered_json to_json(const client_row &row);

// {"ap": MAC, "name": text or null, "state": "up" | "connecting" | "down", "enrolment": "enrolled" | "renewed" |
//  "revoked" or null, "address", "records": N, "certificate_expires": "2026-11-22T10:00:00Z", "lost": {"malformed": N,
//  "frames_ignored": N, "messages_unsent": N}, "stations": N, "vaps": [{"bssid": MAC, "ssid", "vlan": N}]}.
// "address", "records" and "certificate_expires" are null when it is down.
nlohmann::ordered_json to_json(const ap_row &row);

// {"ap": MAC, "ap_name", "bssid": MAC, "ssid", "vlan": N}
nlohmann::ordered_json to_json(const vap_row &row);

// {"mac_acl_index": N or null, "client": MAC or null, "verdict": "allow" | "deny"}
nlohmann::ordered_json to_json(const acl_row &row);

// {"ap": MAC, "name", "site": text or null, "serial": hexadecimal digits, "certificate_expires", "state": "enrolled" |
//  "renewed" | "revoked", "link": "up" | "connecting" | "down"}
nlohmann::ordered_json to_json(const enrolment_row &row);

// One line or, of an access point with VAPs, several; without the last line break.
std::string to_text(const client_row &row);
std::string to_text(const ap_row &row);
std::string to_text(const vap_row &row);
std::string to_text(const acl_row &row);
std::string to_text(const enrolment_row &row);

}  // namespace controller

#endif
