#include "platform/linux/client_paths/bridge_requests.h"

#include <arpa/inet.h>
#include <linux/if_bridge.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <sys/socket.h>

#include <cerrno>

namespace kx {

namespace {

constexpr std::uint16_t last_vlan = 4094;
constexpr std::uint8_t multicast_router_always = 2;  // linux/if_bridge.h: MDB_RTR_TYPE_PERM

ndmsg *add_neighbour_request(netlink_batch &batch, std::uint16_t type, unsigned flags, const mac_address &mac,
                             int ifindex) {
    nlmsghdr *request =
        type == RTM_DELNEIGH ? batch.add(type, flags, {ENOENT, ENODEV, EINVAL}) : batch.add(type, flags);
    auto *body = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)));
    body->ndm_family = AF_BRIDGE;
    body->ndm_ifindex = ifindex;
    mnl_attr_put(request, NDA_LLADDR, sizeof(mac), &mac);
    return body;
}

nlmsghdr *request_of(ndmsg *body) {
    return reinterpret_cast<nlmsghdr *>(reinterpret_cast<char *>(body) - MNL_NLMSG_HDRLEN);
}

void put_forwarding(netlink_batch &batch, std::uint16_t type, unsigned flags, const forwarding_entry &entry,
                    std::uint8_t stickiness) {
    ndmsg *body = add_neighbour_request(batch, type, flags, entry.mac, entry.ifindex);
    body->ndm_state = NUD_NOARP;
    body->ndm_flags = static_cast<std::uint8_t>(NTF_MASTER | stickiness);
    if (entry.vlan != 0) {
        mnl_attr_put_u16(request_of(body), NDA_VLAN, entry.vlan);
    }
}

void put_destination(netlink_batch &batch, std::uint16_t type, unsigned flags, const tunnel_destination &destination) {
    ndmsg *body = add_neighbour_request(batch, type, flags, destination.mac, destination.ifindex);
    body->ndm_state = NUD_PERMANENT;
    body->ndm_flags = NTF_SELF;
    mnl_attr_put_u32(request_of(body), NDA_DST, htonl(destination.peer));
    mnl_attr_put_u32(request_of(body), NDA_SRC_VNI, destination.vni);
}

nlmsghdr *add_link_request(netlink_batch &batch, std::uint16_t type, std::uint8_t family, int ifindex,
                           std::array<int, 3> tolerated = {}) {
    nlmsghdr *request = batch.add(type, 0, tolerated);
    auto *body = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    body->ifi_family = family;
    body->ifi_index = ifindex;
    return request;
}

void put_vlan(nlmsghdr *request, std::uint16_t flags, std::uint16_t vlan) {
    const bridge_vlan_info info{.flags = flags, .vid = vlan};
    mnl_attr_put(request, IFLA_BRIDGE_VLAN_INFO, sizeof(info), &info);
}

void set_flood(netlink_batch &batch, int ifindex, bool floods, std::array<int, 3> tolerated = {}) {
    nlmsghdr *request = add_link_request(batch, RTM_SETLINK, AF_BRIDGE, ifindex, tolerated);
    nlattr *port = mnl_attr_nest_start(request, IFLA_PROTINFO);
    mnl_attr_put_u8(request, IFLA_BRPORT_UNICAST_FLOOD, floods ? 1 : 0);
    mnl_attr_nest_end(request, port);
}

}  // namespace

void add_forwarding(netlink_batch &batch, const forwarding_entry &entry, bool fixed) {
    put_forwarding(batch, RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, entry, fixed ? NTF_STICKY : 0);
}

void remove_forwarding(netlink_batch &batch, const forwarding_entry &entry) {
    put_forwarding(batch, RTM_DELNEIGH, 0, entry, 0);
}

void add_tunnel_destination(netlink_batch &batch, const tunnel_destination &destination) {
    const bool is_list = destination.mac == mac_address{};
    put_destination(batch, RTM_NEWNEIGH, NLM_F_CREATE | (is_list ? NLM_F_APPEND : NLM_F_REPLACE), destination);
}

void remove_tunnel_destination(netlink_batch &batch, const tunnel_destination &destination) {
    put_destination(batch, RTM_DELNEIGH, 0, destination);
}

void set_bridge(netlink_batch &batch, int ifindex, int bridge) {
    nlmsghdr *request = add_link_request(batch, RTM_SETLINK, AF_UNSPEC, ifindex);
    mnl_attr_put_u32(request, IFLA_MASTER, static_cast<std::uint32_t>(bridge));
}

void make_client_port(netlink_batch &batch, int ifindex, std::uint16_t vlan) {
    set_flood(batch, ifindex, false);
    nlmsghdr *request = add_link_request(batch, RTM_SETLINK, AF_BRIDGE, ifindex);
    nlattr *vlans = mnl_attr_nest_start(request, IFLA_AF_SPEC);
    put_vlan(request, BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, vlan);
    mnl_attr_nest_end(request, vlans);
}

void unmake_client_port(netlink_batch &batch, int ifindex) {
    remove_vlans(batch, ifindex, 1, last_vlan);
    set_flood(batch, ifindex, true, {ENODEV, EINVAL, EOPNOTSUPP});
}

void make_tunnel_port(netlink_batch &batch, int ifindex) {
    remove_vlans(batch, ifindex, 1, last_vlan);  // the bridge's default VLAN
    nlmsghdr *request = add_link_request(batch, RTM_SETLINK, AF_BRIDGE, ifindex);
    nlattr *port = mnl_attr_nest_start(request, IFLA_PROTINFO);
    mnl_attr_put_u8(request, IFLA_BRPORT_LEARNING, 0);
    mnl_attr_put_u8(request, IFLA_BRPORT_UNICAST_FLOOD, 0);
    mnl_attr_put_u8(request, IFLA_BRPORT_MCAST_FLOOD, 1);
    mnl_attr_put_u8(request, IFLA_BRPORT_BCAST_FLOOD, 1);
    mnl_attr_put_u8(request, IFLA_BRPORT_MODE, 1);  // hairpin
    mnl_attr_put_u8(request, IFLA_BRPORT_VLAN_TUNNEL, 1);
    mnl_attr_put_u8(request, IFLA_BRPORT_MULTICAST_ROUTER, multicast_router_always);
    mnl_attr_nest_end(request, port);
}

void add_tunnel_vlan(netlink_batch &batch, int ifindex, std::uint16_t vlan, std::uint32_t vni) {
    nlmsghdr *request = add_link_request(batch, RTM_SETLINK, AF_BRIDGE, ifindex);
    nlattr *vlans = mnl_attr_nest_start(request, IFLA_AF_SPEC);
    put_vlan(request, 0, vlan);
    nlattr *tunnel = mnl_attr_nest_start(request, IFLA_BRIDGE_VLAN_TUNNEL_INFO);
    mnl_attr_put_u32(request, IFLA_BRIDGE_VLAN_TUNNEL_ID, vni);
    mnl_attr_put_u16(request, IFLA_BRIDGE_VLAN_TUNNEL_VID, vlan);
    mnl_attr_put_u16(request, IFLA_BRIDGE_VLAN_TUNNEL_FLAGS, 0);
    mnl_attr_nest_end(request, tunnel);
    mnl_attr_nest_end(request, vlans);
}

void remove_vlans(netlink_batch &batch, int ifindex, std::uint16_t first, std::uint16_t last) {
    nlmsghdr *request = add_link_request(batch, RTM_DELLINK, AF_BRIDGE, ifindex, {ENOENT, ENODEV, EOPNOTSUPP});
    nlattr *vlans = mnl_attr_nest_start(request, IFLA_AF_SPEC);
    put_vlan(request, first == last ? 0 : BRIDGE_VLAN_INFO_RANGE_BEGIN, first);
    if (first != last) {
        put_vlan(request, BRIDGE_VLAN_INFO_RANGE_END, last);
    }
    mnl_attr_nest_end(request, vlans);
}

}  // namespace kx
