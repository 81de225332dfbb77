// hostapd's control endpoint, endpoint_hostapd: one command (hapdcfg.h) is the payload of one local message.
#ifndef WIRE_HOSTAPD_ENDPOINT_H
#define WIRE_HOSTAPD_ENDPOINT_H

#include <cstdint>

namespace kx {

// A notification; the payload is HOSTAPD_CONFIG_CMD_SIZE bytes.
inline constexpr std::uint32_t hostapd_command_message_id = 9;

}  // namespace kx

#endif
