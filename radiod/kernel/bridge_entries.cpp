#include "radiod/kernel/bridge_entries.h"

#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>

#include "radiod/kernel/attribute.h"
#include "radiod/kernel/generic_netlink.h"
#include "radiod/kernel/netlink_answer.h"

namespace radiod {
namespace {

// The kernel counts in USER_HZ.
std::chrono::milliseconds age_of(const nda_cacheinfo &times) {
    static const auto ticks_each_second = static_cast<std::uint64_t>(sysconf(_SC_CLK_TCK));
    return std::chrono::milliseconds(std::uint64_t{times.ndm_updated} * 1000 / ticks_each_second);
}

}  // namespace

std::optional<bridge_entry> parse_bridge_entry(const nlmsghdr &message) {
    if (message.nlmsg_type != RTM_NEWNEIGH || mnl_nlmsg_get_payload_len(&message) < sizeof(ndmsg)) {
        return std::nullopt;
    }
    const auto &entry = *static_cast<const ndmsg *>(mnl_nlmsg_get_payload(&message));
    std::optional<mac_address> address;
    std::optional<nda_cacheinfo> times;
    bool is_of_bridge = false;
    for_each_attribute(message, sizeof(ndmsg), [&](const nlattr &each) {
        switch (mnl_attr_get_type(&each)) {
            case NDA_LLADDR:
                address = value_of<mac_address>(each);
                break;
            case NDA_CACHEINFO:
                times = value_of<nda_cacheinfo>(each);
                break;
            case NDA_MASTER:
                is_of_bridge = true;
                break;
            default:
                break;
        }
    });
    const bool is_heard = (entry.ndm_state & NUD_PERMANENT) == 0 && (entry.ndm_flags & NTF_STICKY) == 0;
    if (entry.ndm_family != AF_BRIDGE || entry.ndm_ifindex <= 0 || !is_heard || !is_of_bridge || !address || !times) {
        return std::nullopt;
    }
    return bridge_entry{.port = static_cast<unsigned>(entry.ndm_ifindex), .address = *address, .age = age_of(*times)};
}

std::optional<std::vector<bridge_entry>> list_bridge_entries() {
    constexpr std::chrono::milliseconds patience{40};
    constexpr std::uint32_t sequence = 1;
    const netlink_socket socket(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!socket || mnl_socket_bind(socket.get(), 0, MNL_SOCKET_AUTOPID) != 0) {
        return std::nullopt;
    }
    alignas(nlmsghdr) std::array<std::uint8_t, 64> bytes{};
    nlmsghdr *head = mnl_nlmsg_put_header(bytes.data());
    head->nlmsg_type = RTM_GETNEIGH;
    head->nlmsg_flags = NLM_F_REQUEST | NLM_F_DUMP;
    head->nlmsg_seq = sequence;
    static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(head, sizeof(ndmsg)))->ndm_family = AF_BRIDGE;
    std::vector<bridge_entry> found;
    netlink_answer answer(sequence, [&](const nlmsghdr &message) {
        if (const auto entry = parse_bridge_entry(message)) {
            found.push_back(*entry);
        }
        return true;
    });
    const int error = exchange(mnl_socket_get_fd(socket.get()), *head, answer, patience);
    return error == 0 ? std::optional(std::move(found)) : std::nullopt;
}

}  // namespace radiod
