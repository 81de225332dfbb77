// What a watched process sends to the system monitor, apd: notifications to endpoint_sysmon.
#ifndef WIRE_SYSMON_MESSAGES_H
#define WIRE_SYSMON_MESSAGES_H

#include <cstdint>

#include "wire/big_endian.h"

namespace kx {

// The process has started.
inline constexpr std::uint32_t sysmon_id_handshake = 1;
// Answers a heartbeat request. A monitor that started after the process takes its first heartbeat for a handshake.
inline constexpr std::uint32_t sysmon_id_heartbeat = 2;

// The payload of both.
struct sysmon_announcement {
    be32 pid;
    be32 period_secs;  // between two heartbeats
};
static_assert(sizeof(sysmon_announcement) == 8);

}  // namespace kx

#endif
