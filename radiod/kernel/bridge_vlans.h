// On which VLAN the machine's bridges put the frames of their ports.
#ifndef RADIOD_KERNEL_BRIDGE_VLANS_H
#define RADIOD_KERNEL_BRIDGE_VLANS_H

#include <linux/netlink.h>

#include <cstdint>
#include <map>
#include <optional>

namespace radiod {

struct port_vlan {
    unsigned port = 0;       // an interface's index
    std::uint16_t pvid = 0;  // of untagged frames; 0: they are dropped

    bool operator==(const port_vlan &) const = default;
};

// Of RTM_NEWLINK (linux/if_bridge.h); none when the message is malformed or not a bridge's.
std::optional<port_vlan> parse_port_vlan(const nlmsghdr &message);

// The VLAN of each port of all bridges that filter VLANs; none with an error.
std::optional<std::map<unsigned, std::uint16_t>> list_port_vlans();

}  // namespace radiod

#endif
