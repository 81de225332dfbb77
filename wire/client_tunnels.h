// Statements about clients that roamed to another VLAN, to the port inside the client manager's process. The port
// carries such a client between the access point that bridges its home VLAN and the one that it is on. The daemon
// itself never sees them.
//
// A statement is the payload of local message client_tunnel_message_id at endpoint_client_mgr, a notification. It holds
// until another one replaces it, its owner withdraws it, or the daemon's process ends: who states something states it
// again to a new process. Statements and the daemon's calls of the bridge service may come in any order; what is
// carried follows from all of them together.
//
// apd states where the other end of a client's tunnel is:
//
//   home       the client's home VLAN is bridged here, and the client is on access point `peer`
//   foreign    the client is here, and its home VLAN is bridged by access point `peer`
//   local      the client is here on a VAP of another VLAN, and its home VLAN is bridged here too
//   gone       none of these any more
//
// radiod states on which interface a client is:
//
//   interface      the interface `ifindex` is this client's alone (an AP_VLAN interface of hostapd), or the VAP's
//   no_interface   the client is on none any more
//
// Either may state everything anew: `begin`, then its statements, then `end`. What was not stated again in between is
// withdrawn at `end`. The kind of `end` is that of `begin` plus 1.
//
// Tunnels are VXLAN (RFC 7348) to client_tunnel_port. The VNI is the home VLAN on the way to the client, and
// client_tunnel_uplink_vni more on the way from it, so that an access point which is both ends for one VLAN can tell
// them apart.
#ifndef WIRE_CLIENT_TUNNELS_H
#define WIRE_CLIENT_TUNNELS_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"
#include "wire/mac_address.h"

namespace kx {

inline constexpr std::uint32_t client_tunnel_message_id = 2001;

inline constexpr std::uint16_t client_tunnel_port = 4789;  // RFC 7348, 5
inline constexpr std::uint32_t client_tunnel_uplink_vni = 4096;
inline constexpr int client_tunnel_overhead = 50;  // bytes: headers of IPv4, UDP, VXLAN and Ethernet

enum client_tunnel_kind : std::uint32_t {
    client_tunnel_home = 1,
    client_tunnel_foreign = 2,
    client_tunnel_local = 3,
    client_tunnel_gone = 4,
    client_tunnel_peers_begin = 5,
    client_tunnel_peers_end = 6,
    client_tunnel_interface = 7,
    client_tunnel_no_interface = 8,
    client_tunnel_interfaces_begin = 9,
    client_tunnel_interfaces_end = 10,
};

// What a kind does not need is zero.
struct client_tunnel_statement {
    be32 kind;
    mac_address client;  // a unicast address; of no begin and no end
    be16 vlan;           // 1 to 4094: the home VLAN; of home, foreign and local
    be32 peer;           // the IPv4 address that the other access point's frames come from; of home and foreign
    be32 ifindex;        // of interface: of this network namespace
};
static_assert(sizeof(client_tunnel_statement) == 20 && offsetof(client_tunnel_statement, peer) == 12);

}  // namespace kx

#endif
