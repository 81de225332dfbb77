#include "platform/linux/client_paths/tc_filter.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/pkt_cls.h>
#include <linux/tc_act/tc_gact.h>
#include <linux/tc_act/tc_mirred.h>
#include <linux/tc_act/tc_pedit.h>
#include <linux/tc_act/tc_tunnel_key.h>
#include <linux/tc_act/tc_vlan.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include <array>
#include <cerrno>
#include <cstring>

namespace kx {

namespace {

constexpr mac_address all_bits{{0xff, 0xff, 0xff, 0xff, 0xff, 0xff}};
constexpr mac_address group_bit{{1, 0, 0, 0, 0, 0}};  // IEEE 802-2014, 8.2.2

nlmsghdr *add_request(netlink_batch &batch, std::uint16_t type, unsigned flags, int ifindex,
                      std::array<int, 3> tolerated) {
    nlmsghdr *request = batch.add(type, flags, tolerated);
    auto *body = static_cast<tcmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(tcmsg)));
    body->tcm_family = AF_UNSPEC;
    body->tcm_ifindex = ifindex;
    return request;
}

tcmsg &body_of(nlmsghdr *request) { return *static_cast<tcmsg *>(mnl_nlmsg_get_payload(request)); }

nlmsghdr *add_qdisc_request(netlink_batch &batch, std::uint16_t type, unsigned flags, int ifindex,
                            std::array<int, 3> tolerated) {
    nlmsghdr *request = add_request(batch, type, flags, ifindex, tolerated);
    body_of(request).tcm_parent = TC_H_CLSACT;
    body_of(request).tcm_handle = TC_H_MAKE(TC_H_CLSACT, 0);
    mnl_attr_put_strz(request, TCA_KIND, "clsact");
    return request;
}

nlmsghdr *add_filter_request(netlink_batch &batch, std::uint16_t type, unsigned flags, const tc_place &place,
                             std::array<int, 3> tolerated) {
    nlmsghdr *request = add_request(batch, type, flags, place.ifindex, tolerated);
    tcmsg &body = body_of(request);
    body.tcm_parent = TC_H_MAKE(TC_H_CLSACT, place.direction);
    body.tcm_handle = place.handle;
    const std::uint16_t ethertype = place.ethertype == 0 ? std::uint16_t{ETH_P_ALL} : place.ethertype;
    body.tcm_info = TC_H_MAKE(std::uint32_t{place.preference} << 16, htons(ethertype));
    mnl_attr_put_strz(request, TCA_KIND, "flower");
    return request;
}

void put_mac(nlmsghdr *request, std::uint16_t type, const mac_address &mac) {
    mnl_attr_put(request, type, sizeof(mac), &mac);
}

// A change of two words that sets an Ethernet frame's destination, the first six bytes of its header.
struct destination_edit {
    tc_pedit_sel head;
    std::array<tc_pedit_key, 2> keys;
};
static_assert(sizeof(destination_edit) == sizeof(tc_pedit_sel) + 2 * sizeof(tc_pedit_key));

destination_edit edit_destination(const mac_address &mac) {
    destination_edit edit{};
    edit.head.action = TC_ACT_PIPE;
    edit.head.nkeys = 2;
    std::memcpy(&edit.keys[0].val, mac.data(), 4);
    std::memcpy(&edit.keys[1].val, mac.data() + 4, 2);
    edit.keys[1].off = 4;
    edit.keys[1].mask = htonl(0xffff);  // bits that stay as they are
    return edit;
}

}  // namespace

void add_clsact(netlink_batch &batch, int ifindex) {
    add_qdisc_request(batch, RTM_NEWQDISC, NLM_F_CREATE | NLM_F_EXCL, ifindex, {EEXIST});
}

void remove_clsact(netlink_batch &batch, int ifindex) {
    add_qdisc_request(batch, RTM_DELQDISC, 0, ifindex, {ENOENT, ENODEV, EINVAL});
}

void remove_filter(netlink_batch &batch, const tc_place &place) {
    add_filter_request(batch, RTM_DELTFILTER, 0, place, {ENOENT, ENODEV, EINVAL});
}

void remove_preference(netlink_batch &batch, int ifindex, std::uint16_t direction, std::uint16_t preference) {
    tcmsg &body = body_of(add_request(batch, RTM_DELTFILTER, 0, ifindex, {ENOENT, ENODEV, EINVAL}));
    body.tcm_parent = TC_H_MAKE(TC_H_CLSACT, direction);
    body.tcm_info = TC_H_MAKE(std::uint32_t{preference} << 16, 0);
}

tc_filter::tc_filter(netlink_batch &batch, const tc_place &place)
    : request_(add_filter_request(batch, RTM_NEWTFILTER, NLM_F_CREATE, place, {})),
      options_(mnl_attr_nest_start(request_, TCA_OPTIONS)) {
    if (place.ethertype != 0) {
        mnl_attr_put_u16(request_, TCA_FLOWER_KEY_ETH_TYPE, htons(place.ethertype));
    }
}

tc_filter::~tc_filter() {
    if (actions_ != nullptr) {
        mnl_attr_nest_end(request_, actions_);
    }
    mnl_attr_nest_end(request_, options_);
}

tc_filter &tc_filter::source(const mac_address &mac) {
    put_mac(request_, TCA_FLOWER_KEY_ETH_SRC, mac);
    put_mac(request_, TCA_FLOWER_KEY_ETH_SRC_MASK, all_bits);
    return *this;
}

tc_filter &tc_filter::destination(const mac_address &mac) {
    put_mac(request_, TCA_FLOWER_KEY_ETH_DST, mac);
    put_mac(request_, TCA_FLOWER_KEY_ETH_DST_MASK, all_bits);
    return *this;
}

tc_filter &tc_filter::to_a_group() {
    put_mac(request_, TCA_FLOWER_KEY_ETH_DST, group_bit);
    put_mac(request_, TCA_FLOWER_KEY_ETH_DST_MASK, group_bit);
    return *this;
}

tc_filter &tc_filter::vni(std::uint32_t vni) {
    mnl_attr_put_u32(request_, TCA_FLOWER_KEY_ENC_KEY_ID, htonl(vni));
    return *this;
}

tc_filter &tc_filter::sender(std::uint32_t ipv4) {
    mnl_attr_put_u32(request_, TCA_FLOWER_KEY_ENC_IPV4_SRC, htonl(ipv4));
    mnl_attr_put_u32(request_, TCA_FLOWER_KEY_ENC_IPV4_SRC_MASK, 0xffffffff);
    return *this;
}

tc_filter &tc_filter::made_here() {
    mnl_attr_put_u16(request_, TCA_FLOWER_KEY_ENC_UDP_DST_PORT, 0);
    mnl_attr_put_u16(request_, TCA_FLOWER_KEY_ENC_UDP_DST_PORT_MASK, 0xffff);
    return *this;
}

tc_filter &tc_filter::icmp(std::uint8_t type, std::uint8_t code) {
    mnl_attr_put_u8(request_, TCA_FLOWER_KEY_IP_PROTO, IPPROTO_ICMP);
    mnl_attr_put_u8(request_, TCA_FLOWER_KEY_ICMPV4_TYPE, type);
    mnl_attr_put_u8(request_, TCA_FLOWER_KEY_ICMPV4_TYPE_MASK, 0xff);
    mnl_attr_put_u8(request_, TCA_FLOWER_KEY_ICMPV4_CODE, code);
    mnl_attr_put_u8(request_, TCA_FLOWER_KEY_ICMPV4_CODE_MASK, 0xff);
    return *this;
}

tc_filter &tc_filter::icmpv6(std::uint8_t type) {
    mnl_attr_put_u8(request_, TCA_FLOWER_KEY_IP_PROTO, IPPROTO_ICMPV6);
    mnl_attr_put_u8(request_, TCA_FLOWER_KEY_ICMPV6_TYPE, type);
    mnl_attr_put_u8(request_, TCA_FLOWER_KEY_ICMPV6_TYPE_MASK, 0xff);
    return *this;
}

// Actions are numbered from 1 in the order in which they happen.
nlattr *tc_filter::begin_action(const char *kind) {
    if (actions_ == nullptr) {
        actions_ = mnl_attr_nest_start(request_, TCA_FLOWER_ACT);
    }
    action_ = mnl_attr_nest_start(request_, ++action_count_);
    mnl_attr_put_strz(request_, TCA_ACT_KIND, kind);
    return mnl_attr_nest_start(request_, TCA_ACT_OPTIONS);
}

void tc_filter::end_action(nlattr *options) {
    mnl_attr_nest_end(request_, options);
    mnl_attr_nest_end(request_, action_);
}

void tc_filter::generic(int verdict) {
    nlattr *options = begin_action("gact");
    tc_gact parameters{};
    parameters.action = verdict;
    mnl_attr_put(request_, TCA_GACT_PARMS, sizeof(parameters), &parameters);
    end_action(options);
}

void tc_filter::mirred(int action, int verdict, int ifindex) {
    nlattr *options = begin_action("mirred");
    tc_mirred parameters{};
    parameters.action = verdict;
    parameters.eaction = action;
    parameters.ifindex = static_cast<std::uint32_t>(ifindex);
    mnl_attr_put(request_, TCA_MIRRED_PARMS, sizeof(parameters), &parameters);
    end_action(options);
}

void tc_filter::pass() { generic(TC_ACT_OK); }

void tc_filter::drop() { generic(TC_ACT_SHOT); }

void tc_filter::redirect(int ifindex) { mirred(TCA_EGRESS_REDIR, TC_ACT_STOLEN, ifindex); }

void tc_filter::copy(int ifindex) { mirred(TCA_EGRESS_MIRROR, TC_ACT_UNSPEC, ifindex); }

tc_filter &tc_filter::set_destination(const mac_address &mac) {
    nlattr *options = begin_action("pedit");
    const destination_edit edit = edit_destination(mac);
    mnl_attr_put(request_, TCA_PEDIT_PARMS_EX, sizeof(edit), &edit);
    nlattr *keys = mnl_attr_nest_start(request_, TCA_PEDIT_KEYS_EX);
    for (std::size_t i = 0; i < edit.keys.size(); i++) {
        nlattr *key = mnl_attr_nest_start(request_, TCA_PEDIT_KEY_EX);
        mnl_attr_put_u16(request_, TCA_PEDIT_KEY_EX_HTYPE, TCA_PEDIT_KEY_EX_HDR_TYPE_ETH);
        mnl_attr_put_u16(request_, TCA_PEDIT_KEY_EX_CMD, TCA_PEDIT_KEY_EX_CMD_SET);
        mnl_attr_nest_end(request_, key);
    }
    mnl_attr_nest_end(request_, keys);
    end_action(options);
    return *this;
}

// The kernel chooses the source address by the route to the peer.
tc_filter &tc_filter::put_into_tunnel(std::uint32_t vni, std::uint32_t peer, std::uint16_t port) {
    nlattr *options = begin_action("tunnel_key");
    tc_tunnel_key parameters{};
    parameters.action = TC_ACT_PIPE;
    parameters.t_action = TCA_TUNNEL_KEY_ACT_SET;
    mnl_attr_put(request_, TCA_TUNNEL_KEY_PARMS, sizeof(parameters), &parameters);
    mnl_attr_put_u32(request_, TCA_TUNNEL_KEY_ENC_IPV4_SRC, 0);
    mnl_attr_put_u32(request_, TCA_TUNNEL_KEY_ENC_IPV4_DST, htonl(peer));
    mnl_attr_put_u32(request_, TCA_TUNNEL_KEY_ENC_KEY_ID, htonl(vni));
    mnl_attr_put_u16(request_, TCA_TUNNEL_KEY_ENC_DST_PORT, htons(port));
    mnl_attr_put_u8(request_, TCA_TUNNEL_KEY_NO_CSUM, 1);  // RFC 7348, 5: should be zero
    end_action(options);
    return *this;
}

tc_filter &tc_filter::push_vlan(std::uint16_t vlan) {
    nlattr *options = begin_action("vlan");
    tc_vlan parameters{};
    parameters.action = TC_ACT_PIPE;
    parameters.v_action = TCA_VLAN_ACT_PUSH;
    mnl_attr_put(request_, TCA_VLAN_PARMS, sizeof(parameters), &parameters);
    mnl_attr_put_u16(request_, TCA_VLAN_PUSH_VLAN_ID, vlan);
    mnl_attr_put_u16(request_, TCA_VLAN_PUSH_VLAN_PROTOCOL, htons(ETH_P_8021Q));
    end_action(options);
    return *this;
}

}  // namespace kx
