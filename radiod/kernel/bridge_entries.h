// Behind which ports the machine's bridges have heard stations.
#ifndef RADIOD_KERNEL_BRIDGE_ENTRIES_H
#define RADIOD_KERNEL_BRIDGE_ENTRIES_H

#include <linux/netlink.h>

#include <chrono>
#include <optional>
#include <vector>

#include "wire/mac_address.h"

namespace radiod {

struct bridge_entry {
    unsigned port = 0;  // an interface's index
    mac_address address{};
    std::chrono::milliseconds age{};  // since the bridge last heard it there

    bool operator==(const bridge_entry &) const = default;
};

// Of RTM_NEWNEIGH (linux/neighbour.h). None when the message is malformed, and for an entry that does not depend on
// what the bridge hears: an address of its own, or a sticky entry.
std::optional<bridge_entry> parse_bridge_entry(const nlmsghdr &message);

// The entries of all bridges and VLANs; none with an error. Waits for the kernel for 40 ms at most. Needs no privilege.
std::optional<std::vector<bridge_entry>> list_bridge_entries();

}  // namespace radiod

#endif
