// What the daemon's end of the controller channel (apcomm.cpp) and apd say to each other.
//
// Daemon to apd: a SOCK_SEQPACKET connection to endpoint_apcomm. Each packet is an apcomm_packet and a message of at
// most 16384 bytes for that peer of the controller. A packet to apcomm_destination_apd carries no message; it registers
// the daemon: apd then reports the tunnel's status, if it is up, and goes on reporting each change.
//
// apd to daemon: the payload of local message 123, either an apcomm_status or an apcomm_part and bytes of a message
// from the controller. A message that does not fit one local message travels in parts, in order, nothing between them.
#ifndef WIRE_APCOMM_CHANNEL_H
#define WIRE_APCOMM_CHANNEL_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"
#include "wire/local_ipc.h"

namespace kx {

inline constexpr std::size_t apcomm_message_max = 16384;
inline constexpr std::size_t apcomm_waiting_max = std::size_t{256} * 1024;  // of a packet_ring in the daemon
inline constexpr std::uint32_t apcomm_destination_apd = 0;
inline constexpr std::uint32_t apcomm_destination_client_mgr = 106;  // the client manager's peer on the controller

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
    be32 ctrl_ip;  // as a number; 0 when down
};

struct apcomm_part {
    be32 kind;
    be32 total;   // length of the message
    be32 offset;  // of this part in the message
    be32 length;  // of this part, which follows
};

inline constexpr std::size_t apcomm_part_max = ipc_message_max - ipc_header_size - sizeof(apcomm_part);

}  // namespace kx

#endif
