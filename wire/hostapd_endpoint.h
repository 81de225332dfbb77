// hostapd's control endpoint, endpoint_hostapd. A local message carries one command, a hostapd_command
// (wire/local_messages.h).
#ifndef WIRE_HOSTAPD_ENDPOINT_H
#define WIRE_HOSTAPD_ENDPOINT_H

#include <cstdint>

namespace kx {

// Notification; the payload is a hostapd_command.
inline constexpr std::uint32_t hostapd_command_message_id = 9;

}  // namespace kx

#endif
