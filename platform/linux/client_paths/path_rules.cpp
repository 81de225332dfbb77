#include "platform/linux/client_paths/path_rules.h"

#include <linux/icmp.h>
#include <linux/icmpv6.h>
#include <linux/if_ether.h>

#include "platform/linux/client_paths/bridge_requests.h"
#include "platform/linux/client_paths/tc_filter.h"
#include "wire/client_tunnels.h"

namespace kx {

namespace {

using kind = path_entry::kind;

constexpr std::uint16_t inwards = TC_H_MIN_INGRESS, outwards = TC_H_MIN_EGRESS;

// Preferences of filters for what leaves by a VAP's or a client's interface, and for what comes in by the client's.
enum : std::uint16_t {
    out_guard = first_interface_preference,
    out_reflection,
    out_group,
    in_eapol,
    in_client,
    in_rest,
};
static_assert(in_rest == last_interface_preference);

// Preferences of filters for what comes in by tun0. Each client has a group filter of its own, because one frame goes
// to several clients; of the others the kernel finds the client's in one step.
enum : std::uint16_t {
    tunnel_tagged = 5,
    tunnel_tagged_twice = 6,
    tunnel_downlink = 10,
    tunnel_uplink = 20,
    tunnel_too_big = 30,
    tunnel_too_big_v6 = 31,
    tunnel_first_group = 1000,
    tunnel_trial = 64000,
    tunnel_rest = 65000,
};

// Handles begin at 1.
std::uint32_t handle_of(const path_entry &entry) { return std::uint32_t{entry.number} + 1; }

std::uint32_t uplink_vni(std::uint16_t vlan) { return vlan + client_tunnel_uplink_vni; }

tc_place guard_place(const path_entry &entry) {
    return {.ifindex = entry.ifindex, .direction = outwards, .preference = out_guard, .handle = handle_of(entry)};
}

tc_place tunnel_place(const path_entry &entry, int tunnel, std::uint16_t preference, std::uint16_t ethertype = 0) {
    return {.ifindex = tunnel, .preference = preference, .ethertype = ethertype, .handle = handle_of(entry)};
}

tc_place group_place(const path_entry &entry, int tunnel) {
    return tunnel_place(entry, tunnel, static_cast<std::uint16_t>(tunnel_first_group + entry.number));
}

forwarding_entry forwarding_of(const path_entry &entry, int ifindex) {
    return {.mac = entry.mac, .ifindex = ifindex, .vlan = entry.vlan};
}

// The VNI on the way to clients is the VLAN.
tunnel_destination destination_of(const path_entry &entry, int tunnel) {
    return {.mac = entry.mac, .ifindex = tunnel, .vni = entry.vlan, .peer = entry.peer};
}

void add_group_copies(netlink_batch &batch, const path_entry &entry) {
    const int ifindex = entry.ifindex;
    add_clsact(batch, ifindex);
    tc_filter(batch, {.ifindex = ifindex, .direction = outwards, .preference = out_reflection})
        .source(entry.mac)
        .drop();
    tc_filter(batch, {.ifindex = ifindex, .direction = outwards, .preference = out_group})
        .to_a_group()
        .set_destination(entry.mac)
        .pass();
}

void add_uplink(netlink_batch &batch, const path_entry &entry, int tunnel) {
    const int ifindex = entry.ifindex;
    tc_filter(batch, {.ifindex = ifindex, .preference = in_eapol, .ethertype = ETH_P_PAE}).pass();
    tc_filter(batch, {.ifindex = ifindex, .preference = in_client})
        .source(entry.mac)
        .put_into_tunnel(uplink_vni(entry.vlan), entry.peer, client_tunnel_port)
        .redirect(tunnel);
    tc_filter(batch, {.ifindex = ifindex, .preference = in_rest}).drop();
}

void remove_uplink(netlink_batch &batch, const path_entry &entry) {
    for (std::uint16_t preference = in_eapol; preference <= in_rest; preference++) {
        // Without the type of frames: each preference has one.
        remove_preference(batch, entry.ifindex, inwards, preference);
    }
}

void add_downlink(netlink_batch &batch, const path_entry &entry, int tunnel) {
    tc_filter(batch, tunnel_place(entry, tunnel, tunnel_downlink))
        .vni(entry.vlan)
        .sender(entry.peer)
        .destination(entry.mac)
        .redirect(entry.ifindex);
    tc_filter(batch, group_place(entry, tunnel)).vni(entry.vlan).sender(entry.peer).to_a_group().copy(entry.ifindex);
}

// When a frame is too big for the tunnel, tun0 itself answers it in the name of the client.
void add_moved_client(netlink_batch &batch, const path_entry &entry, int tunnel) {
    tc_filter(batch, tunnel_place(entry, tunnel, tunnel_uplink))
        .vni(uplink_vni(entry.vlan))
        .sender(entry.peer)
        .source(entry.mac)
        .push_vlan(entry.vlan)
        .pass();
    tc_filter(batch, tunnel_place(entry, tunnel, tunnel_too_big, ETH_P_IP))
        .made_here()
        .source(entry.mac)
        .icmp(ICMP_DEST_UNREACH, ICMP_FRAG_NEEDED)
        .pass();
    tc_filter(batch, tunnel_place(entry, tunnel, tunnel_too_big_v6, ETH_P_IPV6))
        .made_here()
        .source(entry.mac)
        .icmpv6(ICMPV6_PKT_TOOBIG)
        .pass();
    add_tunnel_destination(batch, destination_of(entry, tunnel));
    add_forwarding(batch, forwarding_of(entry, tunnel), true);
}

void remove_moved_client(netlink_batch &batch, const path_entry &entry, int tunnel) {
    remove_forwarding(batch, forwarding_of(entry, tunnel));
    remove_tunnel_destination(batch, destination_of(entry, tunnel));
    remove_filter(batch, tunnel_place(entry, tunnel, tunnel_uplink));
    remove_filter(batch, tunnel_place(entry, tunnel, tunnel_too_big, ETH_P_IP));
    remove_filter(batch, tunnel_place(entry, tunnel, tunnel_too_big_v6, ETH_P_IPV6));
}

}  // namespace

void add_entry(netlink_batch &batch, const path_entry &entry, int tunnel) {
    switch (entry.what) {
        case kind::forwarding:
            add_forwarding(batch, forwarding_of(entry, entry.ifindex), false);
            break;
        case kind::vap_rules:
            add_clsact(batch, entry.ifindex);
            break;
        case kind::vap_guard:
            tc_filter(batch, guard_place(entry)).destination(entry.mac).drop();
            break;
        case kind::group_copies:
            add_group_copies(batch, entry);
            break;
        case kind::port_vlan:
            make_client_port(batch, entry.ifindex, entry.vlan);
            break;
        case kind::uplink:
            add_uplink(batch, entry, tunnel);
            break;
        case kind::downlink:
            add_downlink(batch, entry, tunnel);
            break;
        case kind::tunnel_port:
            set_bridge(batch, tunnel, entry.ifindex);
            make_tunnel_port(batch, tunnel);
            break;
        case kind::tunnel_vlan:
            add_tunnel_vlan(batch, tunnel, entry.vlan, entry.vlan);
            break;
        case kind::tunnel_groups:
            add_tunnel_destination(batch, destination_of(entry, tunnel));
            break;
        case kind::moved_client:
            add_moved_client(batch, entry, tunnel);
            break;
    }
}

void remove_entry(netlink_batch &batch, const path_entry &entry, int tunnel) {
    switch (entry.what) {
        case kind::forwarding:
            remove_forwarding(batch, forwarding_of(entry, entry.ifindex));
            break;
        case kind::vap_rules:
        case kind::group_copies:
            remove_clsact(batch, entry.ifindex);
            break;
        case kind::vap_guard:
            remove_filter(batch, guard_place(entry));
            break;
        case kind::port_vlan:
            unmake_client_port(batch, entry.ifindex);
            break;
        case kind::uplink:
            remove_uplink(batch, entry);
            break;
        case kind::downlink:
            remove_filter(batch, tunnel_place(entry, tunnel, tunnel_downlink));
            remove_filter(batch, group_place(entry, tunnel));
            break;
        case kind::tunnel_port:
            set_bridge(batch, tunnel, 0);
            break;
        case kind::tunnel_vlan:
            remove_vlans(batch, tunnel, entry.vlan, entry.vlan);
            break;
        case kind::tunnel_groups:
            remove_tunnel_destination(batch, destination_of(entry, tunnel));
            break;
        case kind::moved_client:
            remove_moved_client(batch, entry, tunnel);
            break;
    }
}

void drop_the_rest(netlink_batch &batch, int tunnel) {
    tc_filter(batch, {.ifindex = tunnel, .preference = tunnel_tagged, .ethertype = ETH_P_8021Q}).drop();
    tc_filter(batch, {.ifindex = tunnel, .preference = tunnel_tagged_twice, .ethertype = ETH_P_8021AD}).drop();
    tc_filter(batch, {.ifindex = tunnel, .preference = tunnel_rest}).drop();
}

void add_trial(netlink_batch &batch, int tunnel) {
    tc_filter(batch, {.ifindex = tunnel, .preference = tunnel_trial})
        .vni(1)
        .set_destination({})
        .push_vlan(1)
        .put_into_tunnel(1, 1, client_tunnel_port)
        .redirect(tunnel);
}

void remove_trial(netlink_batch &batch, int tunnel) { remove_preference(batch, tunnel, inwards, tunnel_trial); }

}  // namespace kx
