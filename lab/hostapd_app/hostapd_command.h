// What hostapd is sent through its control service (kx/hapdcfg.h): a command with one client's PMK.
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
    kx::mac_address bssid{}, previous_bssid{}, client{};
    std::vector<std::uint8_t> pmk;
    std::vector<std::uint8_t> pmk_message;  // the 54 bytes behind the command code, as they came
};

// Throws std::runtime_error that says what is wrong with the message.
command decode(const kx::ipc_message &message);

// What became of the key.
enum class outcome { installed, no_radio, radio_busy };

// One line, without its end, for people or a JSON object: {"client": MAC, "bssid": MAC, "previous_bssid": MAC, "pmk":
// the start of its hash, "outcome": "installed" | "no_radio" | "radio_busy"}. previous_bssid is left out when it is
// zero.
std::string to_json(const command &what, outcome became);
std::string to_text(const command &what, outcome became);

// {"error": text}
std::string error_to_json(const std::string &text);

}  // namespace hostapd

#endif
