// Generic netlink: families, their multicast groups, and requests that are answered at once.
#ifndef RADIOD_KERNEL_GENERIC_NETLINK_H
#define RADIOD_KERNEL_GENERIC_NETLINK_H

#include <libmnl/libmnl.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "common/event_ptr.h"
#include "radiod/kernel/netlink_answer.h"

namespace radiod {

using netlink_socket = std::unique_ptr<mnl_socket, kx::release_with<mnl_socket_close>>;

// A non-blocking socket. Throws std::system_error.
netlink_socket open_generic_netlink();

// A request without a body. The caller adds attributes with libmnl.
struct generic_request {
    generic_request(std::uint16_t family, std::uint8_t command, std::uint16_t flags, std::uint32_t sequence);

    nlmsghdr &head() { return *reinterpret_cast<nlmsghdr *>(bytes.data()); }

    alignas(nlmsghdr) std::array<std::uint8_t, 256> bytes{};
};

// Sends a request, and receives until the answer is complete. Returns the answer's error, ETIMEDOUT when it is not
// complete within `patience`, or the errno of the socket.
int exchange(int fd, const nlmsghdr &request, netlink_answer &answer, std::chrono::milliseconds patience);

struct generic_family {
    std::uint16_t id = 0;
    std::map<std::string, std::uint32_t, std::less<>> groups;  // multicast groups by name
};

// CTRL_CMD_NEWFAMILY (linux/genetlink.h); none when it is malformed or lacks the id.
std::optional<generic_family> parse_family(const nlmsghdr &message);

// None when the kernel has no family of that name. Throws std::system_error on any other error.
std::optional<generic_family> find_family(std::string_view name);

}  // namespace radiod

#endif
