// The channel between the daemon (its platform's apcomm service) and apd.
//
// Daemon to apd: a SOCK_SEQPACKET connection to endpoint_apcomm. A packet is an apcomm_packet and a message of at most
// 16384 bytes for that peer of the controller. A packet for apcomm_destination_apd has no message and registers the
// daemon: apd reports the tunnel's status at once if it is up, and every change from then on.
//
// apd to daemon: local message 123. Its payload is an apcomm_status, or an apcomm_part and the bytes of a message from
// the controller. A message that does not fit one local message is sent in parts, in order and without other parts in
// between.
#ifndef WIRE_APCOMM_CHANNEL_H
#define WIRE_APCOMM_CHANNEL_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"
#include "wire/local_ipc.h"

namespace kx {

inline constexpr std::size_t apcomm_message_max = 16384;                    // bytes
inline constexpr std::size_t apcomm_waiting_max = std::size_t{256} * 1024;  // bytes of the daemon's packet_ring

// Destinations: apd itself, and the client manager's peer on the controller.
inline constexpr std::uint32_t apcomm_destination_apd = 0;
inline constexpr std::uint32_t apcomm_destination_client_mgr = 106;

struct apcomm_packet {
    be32 destination;
};

inline constexpr std::uint32_t apcomm_kind_status = 1;
inline constexpr std::uint32_t apcomm_kind_part = 2;

inline constexpr std::uint32_t apcomm_status_down = 0;
inline constexpr std::uint32_t apcomm_status_up = 1;

struct apcomm_status {
    be32 kind;
    be32 status;   // apcomm_status_down or apcomm_status_up
    be32 ctrl_ip;  // IPv4 address of the controller as a number; 0 when the tunnel is down
};

struct apcomm_part {
    be32 kind;
    be32 total;   // bytes of the message
    be32 offset;  // of this part in the message
    be32 length;  // bytes of this part, which follow
};

inline constexpr std::size_t apcomm_part_max = ipc_message_max - ipc_header_size - sizeof(apcomm_part);

}  // namespace kx

#endif
