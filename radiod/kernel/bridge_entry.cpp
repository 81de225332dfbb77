#include "radiod/kernel/bridge_entry.h"

#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <array>
#include <chrono>

#include "radiod/kernel/generic_netlink.h"
#include "radiod/kernel/netlink_answer.h"

namespace radiod {

std::optional<unsigned> parse_bridge_entry(const nlmsghdr &message) {
    if (message.nlmsg_type != RTM_NEWNEIGH || mnl_nlmsg_get_payload_len(&message) < sizeof(ndmsg)) {
        return std::nullopt;
    }
    const auto &entry = *static_cast<const ndmsg *>(mnl_nlmsg_get_payload(&message));
    if (entry.ndm_family != AF_BRIDGE || entry.ndm_ifindex <= 0 || (entry.ndm_state & NUD_PERMANENT) != 0) {
        return std::nullopt;
    }
    return static_cast<unsigned>(entry.ndm_ifindex);
}

std::optional<unsigned> find_bridge_port(unsigned port, const mac_address &station) {
    constexpr std::chrono::milliseconds patience{40};
    constexpr std::uint32_t sequence = 1;
    const netlink_socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) != 0) {
        return std::nullopt;
    }
    alignas(nlmsghdr) std::array<std::uint8_t, 128> bytes{};
    nlmsghdr *head = mnl_nlmsg_put_header(bytes.data());
    head->nlmsg_type = RTM_GETNEIGH;
    head->nlmsg_flags = NLM_F_REQUEST | NLM_F_ACK;
    head->nlmsg_seq = sequence;
    auto *entry = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(head, sizeof(ndmsg)));
    entry->ndm_family = AF_BRIDGE;
    entry->ndm_ifindex = static_cast<int>(port);
    entry->ndm_flags = NTF_MASTER;
    mnl_attr_put(head, NDA_LLADDR, station.size(), station.data());
    std::optional<unsigned> found;
    netlink_answer answer(sequence, [&](const nlmsghdr &message) {
        found = parse_bridge_entry(message);
        return true;
    });
    const int error = exchange(mnl_socket_get_fd(socket.get()), *head, answer, patience);
    return error == 0 ? found : std::nullopt;
}

}  // namespace radiod
