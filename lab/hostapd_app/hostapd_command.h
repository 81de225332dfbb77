// A command to hostapd through its control service (kx/hapdcfg.h): one client's PMK.
//
//   offset  width  field
//   0       4      command code, big-endian: 9
//   4       4      sub-type, big-endian: 129, the answer to a fetch
//   8       6      BSSID of the VAP that the client is on
//   14      6      previous BSSID
//   20      6      client MAC address
//   26      32     PMK
//   58      1038   zero
#ifndef LAB_HOSTAPD_APP_HOSTAPD_COMMAND_H
#define LAB_HOSTAPD_APP_HOSTAPD_COMMAND_H

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "common/local_ipc.h"
#include "common/mac_address.h"

namespace hostapd {

struct command {
    mac_address bssid{}, previous_bssid{}, client{};
    std::vector<std::uint8_t> pmk;
    std::vector<std::uint8_t> pmk_message;  // the 54 bytes after the command code, unchanged
};

// Throws std::runtime_error with the error when the message is malformed.
command decode(const kx::ipc_message &message);

// The result of installing the key.
enum class outcome { installed, no_radio, radio_busy };

// One line without a line break, as text or as a JSON object: {"client": MAC, "bssid": MAC, "previous_bssid": MAC,
// "pmk": the start of its hash, "outcome": "installed" | "no_radio" | "radio_busy"}. previous_bssid is left out when it
// is zero.
std::string to_json(const command &what, outcome result);
std::string to_text(const command &what, outcome result);

// {"error": text}
std::string error_to_json(const std::string &text);

}  // namespace hostapd

#endif
