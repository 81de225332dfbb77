#include "radiod/kernel/bridge_entries.h"

#include <libmnl/libmnl.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>
#include <unistd.h>

#include "radiod/kernel/attribute.h"
#include "radiod/kernel/route_netlink.h"

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
    route_request request(RTM_GETNEIGH);
    static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(&request.head(), sizeof(ndmsg)))->ndm_family = AF_BRIDGE;
    std::vector<bridge_entry> found;
    const int error = list_route(request, [&](const nlmsghdr &message) {
        if (const auto entry = parse_bridge_entry(message)) {
            found.push_back(*entry);
        }
    });
    return error == 0 ? std::optional(std::move(found)) : std::nullopt;
}

}  // namespace radiod
