// Local IPC: how a message looks on its way between two processes of an access point. A message is an ipc_hdr and its
// payload, one datagram.
#ifndef WIRE_LOCAL_IPC_H
#define WIRE_LOCAL_IPC_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"

struct ipc_hdr {
    be32 id;
    be32 len;    // bytes of the payload
    be32 flags;  // kx::ipc_flag_notification or kx::ipc_flag_request
};
static_assert(sizeof(ipc_hdr) == 12);

namespace kx {

inline constexpr std::uint32_t ipc_flag_notification = 1;
// The receiver sends exactly one response, with the id and the flags of the request.
inline constexpr std::uint32_t ipc_flag_request = 2;

inline constexpr std::size_t ipc_header_size = sizeof(ipc_hdr);
inline constexpr std::size_t ipc_message_max = 16384;  // bytes, header included

// The header of a message with `payload_size` bytes of payload.
constexpr ipc_hdr make_ipc_header(std::uint32_t id, std::size_t payload_size, std::uint32_t flags) {
    ipc_hdr header{};
    header.id = id;
    header.len = static_cast<std::uint32_t>(payload_size);
    header.flags = flags;
    return header;
}

}  // namespace kx

#endif
