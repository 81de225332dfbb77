// Parts of what apctl prints.
#ifndef APCTL_TEXTS_H
#define APCTL_TEXTS_H

#include <cstdint>
#include <ctime>
#include <string>

#include "apctl/output.h"
#include "apctl/view_reader.h"

namespace apctl {

std::string local_time(std::time_t time);  // "2026-11-22 10:00:00", of this machine's time zone
std::string utc_time(std::time_t time);    // "2026-11-22T10:00:00Z"

std::string ssid_of(const kx::view_vap &vap);    // any bytes
std::string ifname_of(const kx::view_vap &vap);  // printable

// The VAP of this access point that the client is on; null when it is on another one.
const kx::view_vap *vap_of(const shown &daemon, const kx::view_client &client);

// "home", "foreign" (the home is another access point), "tunnelled" (carried to its home VLAN), "guest" (has not passed
// the portal) or "elsewhere" (on a VAP of another access point).
const char *state_of(const shown &daemon, const kx::view_client &client);

// Adds `ssid`, and `ssid_hex` when it is not UTF-8.
void add_ssid(json &to, const std::string &ssid);

}  // namespace apctl

#endif
