// The entries of paths as netlink requests.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_PATH_RULES_H
#define PLATFORM_LINUX_CLIENT_PATHS_PATH_RULES_H

#include <cstdint>

#include "platform/linux/client_paths/path_entries.h"
#include "platform/linux/route_netlink.h"

namespace kx {

// The preferences of all filters on the interfaces of VAPs and clients, by which a later process recognises them.
inline constexpr std::uint16_t first_interface_preference = 27500, last_interface_preference = 27505;

// `tunnel`: the interface index of tun0.
void add_entry(netlink_batch &batch, const path_entry &entry, int tunnel);
void remove_entry(netlink_batch &batch, const path_entry &entry, int tunnel);

// What tun0 drops: tagged frames of clients, which would leave the tunnel in the VLAN of their tag, and all that no
// other filter takes.
void drop_the_rest(netlink_batch &batch, int tunnel);
// A filter with every match and every action that paths need, and its removal: fails where the kernel lacks one.
void add_trial(netlink_batch &batch, int tunnel);
void remove_trial(netlink_batch &batch, int tunnel);

}  // namespace kx

#endif
