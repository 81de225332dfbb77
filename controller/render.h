// Decoded records as text and as JSON.
#ifndef CONTROLLER_RENDER_H
#define CONTROLLER_RENDER_H

#include <nlohmann/json.hpp>
#include <string>

#include "controller/message.h"

namespace controller {

// A record gives {"ap": ..., "type": ..., "name": ..., and the record's fields}. A key is given as the start of its
// hash. Keys and addresses that are zero are left out. "ssid_hex" repeats an SSID that is not valid UTF-8. A
// malformation gives {"ap": ... or null, "error": ..., "offset": ..., and the record's type when it is known}. `ap` is
// none only beside a malformation.
nlohmann::ordered_json to_json(const std::optional<mac_address> &ap, const item &one);

// One line, without a line break.
std::string to_line(const nlohmann::ordered_json &one);

// One line as text, and one more for each entry of a list, without the last line break.
std::string to_text(const std::optional<mac_address> &ap, const item &one);

// The SSID without its padding; any bytes.
std::string ssid_of(std::span<const std::uint8_t> padded);

// Quotes, backslashes and bytes outside printable ASCII become \xNN.
std::string printable(std::string_view text);

// The text in quotes, printable and cut after 40 bytes.
std::string quote(std::string_view text);

}  // namespace controller

#endif
