// The kernel's bridge forwarding table, through route netlink. A call waits for the kernel at most 250 ms.
#ifndef KX_LINUX_BRIDGE_NETLINK_H
#define KX_LINUX_BRIDGE_NETLINK_H

#include <cstdint>

#include "wire/mac_address.h"

namespace kx {

// The place of a forwarding entry.
struct bridge_place {
    int ifindex = 0;         // 0: no place
    std::uint16_t vlan = 0;  // 0: every VLAN of the interface

    bool operator==(const bridge_place &) const = default;
};

// Finds the place of a client on interface `ifname` and `vlan`. Its VLAN is 0 unless the bridge filters VLANs. Returns
// 0, or an errno: ENODEV when there is no such interface, ENOTCONN when it is not a port of a bridge.
int find_bridge_place(const char *ifname, std::uint16_t vlan, bridge_place &place);

// Adds a static entry for `mac`, or moves the entry there from another port of the bridge. A static entry does not age,
// and a station that moves replaces it. Returns 0 or an errno.
int add_bridge_entry(const mac_address &mac, const bridge_place &place);

// Deletes the entry. Returns 0 or an errno: ENOENT when the entry does not exist or has moved.
int del_bridge_entry(const mac_address &mac, const bridge_place &place);

}  // namespace kx

#endif
