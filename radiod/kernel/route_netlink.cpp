#include "radiod/kernel/route_netlink.h"

#include <linux/netlink.h>
#include <sys/socket.h>

#include <cerrno>
#include <chrono>

#include "radiod/kernel/generic_netlink.h"
#include "radiod/kernel/netlink_answer.h"

namespace radiod {
namespace {

constexpr std::uint32_t sequence = 1;

}  // namespace

route_request::route_request(std::uint16_t type) {
    nlmsghdr *head = mnl_nlmsg_put_header(bytes.data());
    head->nlmsg_type = type;
    head->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    head->nlmsg_seq = sequence;
}

int list_route(route_request &request, const std::function<void(const nlmsghdr &)> &each) {
    constexpr std::chrono::milliseconds patience{40};
    const netlink_socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) != 0) {
        return errno;
    }
    netlink_answer answer(sequence, [&](const nlmsghdr &message) {
        each(message);
        return true;
    });
    return exchange(mnl_socket_get_fd(socket.get()), request.head(), answer, patience);
}

}  // namespace radiod
