// Lists of rtnetlink.
#ifndef RADIOD_KERNEL_ROUTE_NETLINK_H
#define RADIOD_KERNEL_ROUTE_NETLINK_H

#include <libmnl/libmnl.h>

#include <array>
#include <cstdint>
#include <functional>

namespace radiod {

// Of all objects of a kind (RTM_GET...). The caller adds the kind's header, and attributes, with libmnl.
struct route_request {
    explicit route_request(std::uint16_t type);

    nlmsghdr &head() { return *reinterpret_cast<nlmsghdr *>(bytes.data()); }

    alignas(nlmsghdr) std::array<std::uint8_t, 64> bytes{};
};

// Calls `each` for every object. Returns 0 or an errno; after an error the list may lack objects. Waits for the kernel
// for 40 ms at most. Needs no privilege.
int list_route(route_request &request, const std::function<void(const nlmsghdr &)> &each);

}  // namespace radiod

#endif
