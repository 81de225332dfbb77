// Filters of traffic control as netlink requests. Layouts: linux/pkt_cls.h (flower), linux/tc_act/*.h (actions) and
// linux/pkt_sched.h (clsact).
#ifndef PLATFORM_LINUX_CLIENT_PATHS_TC_FILTER_H
#define PLATFORM_LINUX_CLIENT_PATHS_TC_FILTER_H

#include <linux/pkt_sched.h>

#include <cstdint>

#include "platform/linux/route_netlink.h"
#include "wire/mac_address.h"

namespace kx {

// Where a filter is.
struct tc_place {
    int ifindex = 0;
    std::uint16_t direction = TC_H_MIN_INGRESS;  // or TC_H_MIN_EGRESS
    std::uint16_t preference = 0;                // filters of a lower one are asked first
    std::uint16_t ethertype = 0;                 // of the frames that are compared; 0: all
    std::uint32_t handle = 0;                    // tells filters of one preference apart
};

// Adds the place for an interface's filters.
void add_clsact(netlink_batch &batch, int ifindex);
// Removes it and all filters in it.
void remove_clsact(netlink_batch &batch, int ifindex);
// What is removed may be missing.
void remove_filter(netlink_batch &batch, const tc_place &place);
// All filters of that preference.
void remove_preference(netlink_batch &batch, int ifindex, std::uint16_t direction, std::uint16_t preference);

// The request for one filter: first what a frame must have, then what is done with it, in order.
class tc_filter {
public:
    tc_filter(netlink_batch &batch, const tc_place &place);
    ~tc_filter();
    tc_filter(const tc_filter &) = delete;
    tc_filter &operator=(const tc_filter &) = delete;

    tc_filter &source(const mac_address &mac);
    tc_filter &destination(const mac_address &mac);
    tc_filter &to_a_group();
    tc_filter &vni(std::uint32_t vni);
    tc_filter &sender(std::uint32_t ipv4);  // of the outer packet
    // Of a frame that the tunnel itself made: none has come to UDP port 0.
    tc_filter &made_here();
    tc_filter &icmp(std::uint8_t type, std::uint8_t code);
    tc_filter &icmpv6(std::uint8_t type);

    // The next four end the way of the frame. `redirect` and `copy` send it by an interface; after `copy` the filters
    // of a higher preference are asked.
    void pass();
    void drop();
    void redirect(int ifindex);
    void copy(int ifindex);
    tc_filter &set_destination(const mac_address &mac);
    tc_filter &put_into_tunnel(std::uint32_t vni, std::uint32_t peer, std::uint16_t port);
    tc_filter &push_vlan(std::uint16_t vlan);

private:
    nlattr *begin_action(const char *kind);
    void end_action(nlattr *options);
    void generic(int verdict);
    void mirred(int action, int verdict, int ifindex);

    nlmsghdr *request_;
    nlattr *options_ = nullptr;
    nlattr *actions_ = nullptr, *action_ = nullptr;
    std::uint16_t action_count_ = 0;
};

}  // namespace kx

#endif
