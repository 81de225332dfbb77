// Route netlink: requests to the kernel about links, bridges, neighbours and traffic control. A call waits for the
// kernel at most 250 ms.
#ifndef PLATFORM_LINUX_ROUTE_NETLINK_H
#define PLATFORM_LINUX_ROUTE_NETLINK_H

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

namespace kx {

// The socket, which the process has once. One call at a time.
class route_netlink {
public:
    // An empty request of that type, valid until the next one. The caller adds its body.
    nlmsghdr *make_request(std::uint16_t type, unsigned flags);
    // Sends the request and calls `callback` with the kernel's answer; an acknowledgement is not an answer. A dump has
    // many. Returns 0 or an errno.
    int call(nlmsghdr *request, mnl_cb_t callback, void *context);
    // Sends `count` requests that follow each other in `requests`, of which the last asks for an acknowledgement: the
    // kernel answers in order, and those that fail in any case. Writes to `errors` the errno of each that failed.
    // Returns 0 or the errno of the exchange itself.
    int exchange(std::span<char> requests, std::size_t count, std::span<int> errors);

private:
    bool open();

    mnl_socket *socket_ = nullptr;
    int error_ = 0;
    unsigned sequence_ = 0;
    alignas(nlmsghdr) std::array<char, 16384> buffer_{};  // a request, or a part of the answer
};

route_netlink &kernel_netlink();

// Requests that are sent together.
class netlink_batch {
public:
    // An empty request, valid until the next one. The caller adds its body, of at most message_max bytes. An error in
    // `tolerated` counts as success; 0 is none.
    nlmsghdr *add(std::uint16_t type, unsigned flags, std::array<int, 3> tolerated = {});
    // Sends the requests and forgets them. The kernel carries out each of them, whatever becomes of the others. Returns
    // 0 or the errno of the first that failed, ENOBUFS when there were too many.
    int send();

    static constexpr std::size_t messages_max = 64;
    static constexpr std::size_t message_max = 768;  // bytes

private:
    char *close_last();

    nlmsghdr *last_ = nullptr;
    std::size_t count_ = 0;
    bool overflow_ = false;
    std::array<std::array<int, 3>, messages_max> tolerated_{};
    alignas(nlmsghdr) std::array<char, messages_max * message_max> buffer_{};
};

// Of the process, empty between two uses.
netlink_batch &kernel_batch();

}  // namespace kx

#endif
