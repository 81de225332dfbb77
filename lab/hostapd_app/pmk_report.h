// What the lab's hostapd endpoint prints about a PMK that the daemon sends.
#ifndef LAB_HOSTAPD_APP_PMK_REPORT_H
#define LAB_HOSTAPD_APP_PMK_REPORT_H

#include <string>

#include "radio_service/hostapd_command.h"

namespace hostapd {

// The result of installing the key.
enum class outcome { installed, no_radio, radio_busy };

// One line without a line break, as text or as a JSON object: {"client": MAC, "bssid": MAC, "previous_bssid": MAC,
// "pmk": the start of its hash, "outcome": "installed" | "no_radio" | "radio_busy"}. previous_bssid is left out when it
// is zero.
std::string to_json(const kx::pmk_answer &what, outcome result);
std::string to_text(const kx::pmk_answer &what, outcome result);

// {"error": text}
std::string error_to_json(const std::string &text);

}  // namespace hostapd

#endif
