// Where the bridge of an interface has last heard a station.
#ifndef RADIOD_KERNEL_BRIDGE_ENTRY_H
#define RADIOD_KERNEL_BRIDGE_ENTRY_H

#include <linux/netlink.h>

#include <optional>

#include "wire/mac_address.h"

namespace radiod {

// The port of an answer to RTM_GETNEIGH (linux/neighbour.h), an interface's index. None when the message is malformed,
// or about an address of the bridge itself.
std::optional<unsigned> parse_bridge_entry(const nlmsghdr &message);

// The port behind which the bridge of `port` has heard the station. None when it has not within its ageing time (300 s
// by default), when `port` is in no bridge, and with an error. Waits for the kernel for 40 ms at most.
std::optional<unsigned> find_bridge_port(unsigned port, const mac_address &station);

}  // namespace radiod

#endif
