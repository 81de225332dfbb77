// The driver service: how the daemon's driver requests (wire/driver_records.h) reach the process that owns a VAP's
// interface, when no driver in the kernel answers them. The client is the ioctl of the Linux port. The server is the
// lab's radio, or an access point's own radio daemon.
//
// Socket. The server listens on one AF_UNIX SOCK_SEQPACKET socket per interface, $KX_ROOT/kx/driver/<ifname>, in a
// directory for the owner alone, or for the owner and the daemon's group. It accepts connections of root, of its own
// user and of the daemon's, and closes others at once. An interface without such a socket belongs to the kernel. A
// server binds another name first and renames the socket once it listens, so a client never meets a socket that refuses
// it. It removes its sockets when it ends; a socket that refuses connections was left behind by a dead server, and the
// next server replaces it.
//
// Framing. A request is one packet: a driver_request and `length` bytes of data. The reply is one packet: a
// driver_reply and `length` bytes of data. All integers are in the host's order, as in an ioctl.
//
//   request                   data of the request   data of a reply without error
//   SIOCGIFHWADDR             none                  6 bytes: the BSSID
//   DRIVER_STATION_REQUEST    driver_station_op     none
//   DRIVER_STATION_LIST       none                  whole driver_station records, driver_data_max bytes at most
//   DRIVER_ACL_VERDICT        driver_acl_verdict    none
//
// Connections. A connection carries any number of requests, each sent after the reply to the one before. Either side
// may close it between two requests: a client that kept one connects again when it finds it closed, and repeats a
// request that was not read. A client that gives up waiting sends nothing more on the connection and closes it, so that
// a late reply cannot pass for the next one. The server closes a connection on which no request arrives for
// driver_idle_ms, and the least recently used one when it has too many.
//
// Deadlines. The client waits driver_wait_ms from the start of the ioctl, connecting included; the daemon does nothing
// else meanwhile. A server replies within a fraction of that: an operation that lasts longer is replied to once it has
// been started. After a request without a reply the client fails all requests to that server at once, with ETIMEDOUT,
// until the late reply comes or a second has passed, so a server that hangs costs the daemon one wait a second.
//
// Errors. `error` of the reply is the errno of the ioctl. A reply with an error has no data. From the server:
//
//   EINVAL       the request's length, interface name or fields are wrong
//   EOPNOTSUPP   the server does not have this request
//   ENOENT       DRIVER_STATION_REQUEST: the station is not on this VAP
//                DRIVER_ACL_VERDICT: no question is open to which the data belong
//   any other    the error that the server itself met
//
// From the client, for what never became a reply:
//
//   ENODEV       the server has died, or closed the connection without a reply
//   ETIMEDOUT    no reply within driver_wait_ms
//   EPROTO       the reply is malformed: wrong lengths or a negative error
//   EINVAL       the request has more than driver_data_max bytes of data
#ifndef WIRE_DRIVER_SERVICE_H
#define WIRE_DRIVER_SERVICE_H

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "wire/driver_records.h"

namespace kx {

inline constexpr std::string_view driver_directory = "/kx/driver";  // below $KX_ROOT

struct driver_request {
    std::uint32_t request;  // number of the ioctl
    std::uint32_t length;   // bytes of data that follow
    char ifname[16];        // NUL-padded; a name of 16 bytes has no terminator
};
static_assert(sizeof(driver_request) == 24);

struct driver_reply {
    std::int32_t error;    // 0, or the errno of the ioctl
    std::uint32_t length;  // bytes of data that follow; 0 with an error
};
static_assert(sizeof(driver_reply) == 8);

inline constexpr std::size_t driver_data_max = DRIVER_STATION_LIST_MAX;  // bytes, of a request and of a reply
inline constexpr unsigned driver_wait_ms = 250;
inline constexpr unsigned driver_idle_ms = 60'000;  // longer than the usual gap between two requests

}  // namespace kx

#endif
