#include "radiod/kernel/bridge_vlans.h"

#include <libmnl/libmnl.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include "radiod/kernel/attribute.h"
#include "radiod/kernel/route_netlink.h"

namespace radiod {

std::optional<port_vlan> parse_port_vlan(const nlmsghdr &message) {
    if (message.nlmsg_type != RTM_NEWLINK || mnl_nlmsg_get_payload_len(&message) < sizeof(ifinfomsg)) {
        return std::nullopt;
    }
    const auto &link = *static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(&message));
    if (link.ifi_family != AF_BRIDGE || link.ifi_index <= 0) {
        return std::nullopt;
    }
    port_vlan found{.port = static_cast<unsigned>(link.ifi_index)};
    for_each_attribute(message, sizeof(ifinfomsg), [&](const nlattr &part) {
        if (mnl_attr_get_type(&part) != IFLA_AF_SPEC) {
            return;
        }
        for_each_attribute(part, [&](const nlattr &each) {
            const auto vlan = value_of<bridge_vlan_info>(each);
            if (mnl_attr_get_type(&each) == IFLA_BRIDGE_VLAN_INFO && vlan &&
                (vlan->flags & BRIDGE_VLAN_INFO_PVID) != 0) {
                found.pvid = vlan->vid;
            }
        });
    });
    return found;
}

std::optional<std::map<unsigned, std::uint16_t>> list_port_vlans() {
    route_request request(RTM_GETLINK);
    static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(&request.head(), sizeof(ifinfomsg)))->ifi_family = AF_BRIDGE;
    mnl_attr_put_u32(&request.head(), IFLA_EXT_MASK, RTEXT_FILTER_BRVLAN);
    std::map<unsigned, std::uint16_t> found;
    const int error = list_route(request, [&](const nlmsghdr &message) {
        if (const auto each = parse_port_vlan(message)) {
            found[each->port] = each->pvid;
        }
    });
    return error == 0 ? std::optional(std::move(found)) : std::nullopt;
}

}  // namespace radiod
