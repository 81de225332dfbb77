// Decoded records and the controller's own events, for people and as JSON.
#ifndef CONTROLLER_RENDER_H
#define CONTROLLER_RENDER_H

#include <nlohmann/json.hpp>
#include <string>

#include "controller/message.h"

namespace controller {

// {"ap": ..., "type": ..., "name": ..., and the record's fields}. Keys are shown as the start of their hash, absent
// ones and absent addresses are left out. An SSID that is no UTF-8 text has its bytes in "ssid_hex" too.
nlohmann::ordered_json to_json(const mac_address &ap, const record &one);

// {"ap": ... or null, "error": ..., "offset": ..., and the record's type when it is known}
nlohmann::ordered_json to_json(const std::optional<mac_address> &ap, const malformation &what);

// One line, without its end.
std::string to_line(const nlohmann::ordered_json &one);

// The same for people: a line, and one more for each entry of a list.
std::string to_text(const mac_address &ap, const record &one);
std::string to_text(const std::optional<mac_address> &ap, const malformation &what);

std::string format_ipv4(std::uint32_t ip);

// The bytes with those that do not print as \xNN.
std::string printable(std::span<const std::uint8_t> text);

}  // namespace controller

#endif
