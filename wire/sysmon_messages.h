// What a watched process sends to the system monitor, apd, as notifications to endpoint_sysmon.
#ifndef WIRE_SYSMON_MESSAGES_H
#define WIRE_SYSMON_MESSAGES_H

#include <cstdint>

#include "wire/big_endian.h"

namespace kx {

inline constexpr std::uint32_t sysmon_id_handshake = 1;
inline constexpr std::uint32_t sysmon_id_heartbeat = 2;

// The payload of both; a monitor that has just started learns of a running process by its first heartbeat.
struct sysmon_announcement {
    be32 pid;
    be32 period_secs;
};
static_assert(sizeof(sysmon_announcement) == 8);

}  // namespace kx

#endif
