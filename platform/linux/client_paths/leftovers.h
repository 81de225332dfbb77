// What a former process left in the kernel.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_LEFTOVERS_H
#define PLATFORM_LINUX_CLIENT_PATHS_LEFTOVERS_H

namespace kx {

// Removes the filters, VLANs and static forwarding entries of a former process from the interfaces of VAPs and clients.
// Returns 0 or an errno.
int remove_leftovers();

// Whether the interface has filters that are not of this program.
bool has_filters_of_others(int ifindex);

}  // namespace kx

#endif
