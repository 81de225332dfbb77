// How the frames of one client travel through this access point, and from what that follows.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_CLIENT_PATH_H
#define PLATFORM_LINUX_CLIENT_PATHS_CLIENT_PATH_H

#include <net/if.h>

#include <cstdint>

#include "platform/linux/bridge_ports.h"
#include "wire/client_tunnels.h"
#include "wire/mac_address.h"

namespace kx {

// What the daemon's call of the bridge service says.
struct bridge_call {
    enum class client : std::uint8_t {
        unknown,    // there was no call, or it was taken back
        here,       // on its home VLAN, on interface `ifname`
        tunnelled,  // on interface `ifname`, and its home VLAN is another one
        away,       // on another access point, and its home VLAN is ours
    };
    char ifname[IFNAMSIZ] = {};
    std::uint16_t vlan = 0;  // the home VLAN
    client where = client::unknown;
};

// What apd says: kind client_tunnel_home, client_tunnel_foreign, client_tunnel_local, or 0 for nothing.
struct peer_statement {
    std::uint32_t peer = 0;  // an IPv4 address as a number
    std::uint16_t vlan = 0;
    std::uint8_t kind = 0;
};

struct client_path {
    enum class kind : std::uint8_t {
        none,
        shared_port,  // through the bridge, by the interface of the VAP
        own_port,     // through the bridge, by the client's own interface as a port of its VLAN
        to_home,      // between the client's own interface and its home access point
        to_client,    // between the bridge and the access point that the client is on
    };
    kind how = kind::none;
    std::uint16_t vlan = 0;  // 0: the bridge does not filter VLANs
    int ifindex = 0;         // of the port or the client's own interface
    int through = 0;         // index of the VAP (own_port, to_home) or of the bridge (to_client)
    std::uint32_t peer = 0;  // of to_home and to_client

    bool operator==(const client_path &) const = default;
};

// All that has been said about a client.
struct client_account {
    bridge_call call;
    peer_statement peer;
    int ifindex = 0;  // what radiod says; 0: nothing
};

struct decision {
    enum class outlook : std::uint8_t {
        settled,     // the path is the one
        waiting,     // there is no path until more is said
        impossible,  // there is no path for what has been said
    };
    client_path path{};
    outlook is = outlook::settled;
    int error = 0;  // of a settled decision without a path: an errno
};

// `port`: of the interface that the call names. `home_bridge`: the bridge that filters the VLANs of this access point,
// 0 when there is none.
decision decide(const client_account &client, const bridge_port &port, int home_bridge);

}  // namespace kx

#endif
