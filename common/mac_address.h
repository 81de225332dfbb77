// MAC addresses from and to text.
#ifndef COMMON_MAC_ADDRESS_H
#define COMMON_MAC_ADDRESS_H

#include <optional>
#include <string>
#include <string_view>

#include "wire/mac_address.h"

namespace kx {

using ::mac_address;

// Reads twelve hexadecimal digits, in pairs that ':' may separate. None when `text` is anything else.
std::optional<mac_address> parse_mac(std::string_view text);
// "02:00:00:00:10:00"
std::string format_mac(const mac_address &mac);

}  // namespace kx

#endif
