// The kernel's bridge forwarding table, through route netlink. A call waits for the kernel at most 250 ms.
#ifndef KX_LINUX_BRIDGE_NETLINK_H
#define KX_LINUX_BRIDGE_NETLINK_H

#include <cstdint>

namespace kx {

// A forwarding entry's place. Interface 0: nowhere. VLAN 0: every VLAN of the interface.
struct bridge_place {
    int ifindex = 0;
    std::uint16_t vlan = 0;

    bool operator==(const bridge_place &) const = default;
};

// Where frames for a client on interface `ifname` and `vlan` belong: the VLAN counts only on a bridge that filters
// VLANs. Returns 0, or an errno: ENODEV for no such interface, ENOTCONN for one that is not a bridge's port.
int find_bridge_place(const char *ifname, std::uint16_t vlan, bridge_place &place);

// Enters `mac` as a static entry, which neither ages nor blocks a station that moves, or moves it there from another
// port. Returns 0 or an errno.
int add_bridge_entry(const std::uint8_t mac[6], const bridge_place &place);

// Returns 0 or an errno: ENOENT when the entry is not there or has moved.
int del_bridge_entry(const std::uint8_t mac[6], const bridge_place &place);

}  // namespace kx

#endif
