// Netlink requests about a bridge's ports and forwarding entries, and about the destinations of a VXLAN device.
// Layouts: linux/rtnetlink.h, linux/if_link.h, linux/if_bridge.h and linux/neighbour.h. What is removed may be missing.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_BRIDGE_REQUESTS_H
#define PLATFORM_LINUX_CLIENT_PATHS_BRIDGE_REQUESTS_H

#include <cstdint>

#include "platform/linux/route_netlink.h"
#include "wire/mac_address.h"

namespace kx {

struct forwarding_entry {
    mac_address mac{};
    int ifindex = 0;
    std::uint16_t vlan = 0;  // 0: the bridge does not filter VLANs
};

// A static entry does not age. Unless it is `fixed`, the bridge moves it to another port where it hears the address.
void add_forwarding(netlink_batch &batch, const forwarding_entry &entry, bool fixed);
void remove_forwarding(netlink_batch &batch, const forwarding_entry &entry);

// Where a VXLAN device sends frames for `mac` with that VNI. For the address zero there may be several destinations;
// they get the frames for groups.
struct tunnel_destination {
    mac_address mac{};
    int ifindex = 0;  // of the device
    std::uint32_t vni = 0;
    std::uint32_t peer = 0;  // an IPv4 address
};
void add_tunnel_destination(netlink_batch &batch, const tunnel_destination &destination);
void remove_tunnel_destination(netlink_batch &batch, const tunnel_destination &destination);

// `bridge` 0: the interface leaves its bridge.
void set_bridge(netlink_batch &batch, int ifindex, int bridge);
// A client's own interface: frames of the VLAN leave it untagged, and its untagged frames are of the VLAN. Frames for
// addresses that the bridge has not learnt do not leave by it.
void make_client_port(netlink_batch &batch, int ifindex, std::uint16_t vlan);
void unmake_client_port(netlink_batch &batch, int ifindex);
// The port of tun0: learns nothing, and gets group frames, but no frames for addresses that the bridge has not learnt.
// The VNI of what leaves it is that of its VLAN. Frames of one access point may leave it to another.
void make_tunnel_port(netlink_batch &batch, int ifindex);
void add_tunnel_vlan(netlink_batch &batch, int ifindex, std::uint16_t vlan, std::uint32_t vni);
void remove_vlans(netlink_batch &batch, int ifindex, std::uint16_t first, std::uint16_t last);

}  // namespace kx

#endif
