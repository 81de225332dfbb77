// Local IPC: datagrams between the processes of an access point, each a header and a payload. All integers are
// big-endian.
#ifndef WIRE_LOCAL_IPC_H
#define WIRE_LOCAL_IPC_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"

struct ipc_hdr {
    be32 id;
    be32 len;  // of the payload
    be32 flags;
};
static_assert(sizeof(ipc_hdr) == 12);

namespace kx {

inline constexpr std::size_t ipc_header_size = sizeof(ipc_hdr);
inline constexpr std::size_t ipc_message_max = 16384;  // header included

// Values of ipc_hdr::flags.
inline constexpr std::uint32_t ipc_flag_notification = 1;
inline constexpr std::uint32_t ipc_flag_request = 2;  // gets one response

}  // namespace kx

#endif
