// A former process is recognised by the preferences of its filters, and by forwarding entries that are static: those of
// others are permanent or age.
#include "platform/linux/client_paths/leftovers.h"

#include <linux/neighbour.h>
#include <linux/pkt_sched.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>

#include "platform/linux/bridge_ports.h"
#include "platform/linux/client_paths/bridge_requests.h"
#include "platform/linux/client_paths/path_rules.h"
#include "platform/linux/client_paths/tc_filter.h"
#include "platform/linux/config_cache.h"
#include "platform/linux/route_netlink.h"

namespace kx {

namespace {

// Of what there is more, another search finds.
template <typename T, std::size_t most>
struct findings {
    void add(const T &found) {
        if (count < most) {
            items[count++] = found;
        }
    }
    const T *begin() const { return items.data(); }
    const T *end() const { return items.data() + count; }

    std::array<T, most> items{};
    std::size_t count = 0;
};

using interfaces = findings<int, 1024>;

constinit interfaces with_filters;  // of any owner
constinit interfaces of_clients;    // VAPs, and interfaces that had filters of a former process

// --- filters

int note_clsact(const nlmsghdr *message, void *) {
    const auto *body = static_cast<const tcmsg *>(mnl_nlmsg_get_payload(message));
    if (body->tcm_parent == TC_H_CLSACT) {
        with_filters.add(body->tcm_ifindex);
    }
    return MNL_CB_OK;
}

struct filter_owners {
    bool us = false, others = false;
};

int note_owner(const nlmsghdr *message, void *context) {
    const auto *body = static_cast<const tcmsg *>(mnl_nlmsg_get_payload(message));
    const std::uint32_t preference = TC_H_MAJ(body->tcm_info) >> 16;
    const bool is_ours = preference >= first_interface_preference && preference <= last_interface_preference;
    auto &owners = *static_cast<filter_owners *>(context);
    (is_ours ? owners.us : owners.others) = true;
    return MNL_CB_OK;
}

int dump_traffic_control(std::uint16_t type, int ifindex, std::uint32_t parent, mnl_cb_t callback, void *context) {
    nlmsghdr *request = kernel_netlink().make_request(type, NLM_F_DUMP);
    auto *body = static_cast<tcmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(tcmsg)));
    body->tcm_family = AF_UNSPEC;
    body->tcm_ifindex = ifindex;
    body->tcm_parent = parent;
    return kernel_netlink().call(request, callback, context);
}

filter_owners owners_of_filters(int ifindex) {
    filter_owners owners;
    for (std::uint32_t direction : {TC_H_MIN_INGRESS, TC_H_MIN_EGRESS}) {
        dump_traffic_control(RTM_GETTFILTER, ifindex, TC_H_MAKE(TC_H_CLSACT, direction), note_owner, &owners);
    }
    return owners;
}

void remove_filters(int ifindex, bool others_have_some) {
    if (!others_have_some) {
        remove_clsact(kernel_batch(), ifindex);
        return;
    }
    for (std::uint16_t at = first_interface_preference; at <= last_interface_preference; at++) {
        remove_preference(kernel_batch(), ifindex, TC_H_MIN_INGRESS, at);
        remove_preference(kernel_batch(), ifindex, TC_H_MIN_EGRESS, at);
    }
}

// --- forwarding entries

using forwardings = findings<forwarding_entry, netlink_batch::messages_max>;

int note_forwarding(const nlmsghdr *message, void *context) {
    const auto *body = static_cast<const ndmsg *>(mnl_nlmsg_get_payload(message));
    if (body->ndm_state != NUD_NOARP || (body->ndm_flags & NTF_SELF) != 0 ||
        std::ranges::find(of_clients, body->ndm_ifindex) == of_clients.end()) {
        return MNL_CB_OK;
    }
    forwarding_entry found{.mac = {}, .ifindex = body->ndm_ifindex};
    for (const nlattr *each = static_cast<const nlattr *>(mnl_nlmsg_get_payload_offset(message, sizeof(ndmsg)));
         mnl_attr_ok(each, static_cast<int>(static_cast<const char *>(mnl_nlmsg_get_payload_tail(message)) -
                                            reinterpret_cast<const char *>(each)));
         each = mnl_attr_next(each)) {
        const std::uint16_t type = mnl_attr_get_type(each);
        if (type == NDA_LLADDR && mnl_attr_get_payload_len(each) == sizeof(found.mac)) {
            found.mac = mac_at(static_cast<const std::uint8_t *>(mnl_attr_get_payload(each)));
        }
        if (type == NDA_VLAN && mnl_attr_get_payload_len(each) == sizeof(found.vlan)) {
            found.vlan = mnl_attr_get_u16(each);
        }
    }
    static_cast<forwardings *>(context)->add(found);
    return MNL_CB_OK;
}

// Ends although the kernel may show an entry that it does not remove.
int remove_forwardings() {
    for (int searches = 0; searches < 64; searches++) {
        forwardings found;
        nlmsghdr *request = kernel_netlink().make_request(RTM_GETNEIGH, NLM_F_DUMP);
        auto *body = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)));
        body->ndm_family = AF_BRIDGE;
        const int error = kernel_netlink().call(request, note_forwarding, &found);
        if (error != 0 || found.count == 0) {
            return error;
        }
        for (const forwarding_entry &each : found) {
            remove_forwarding(kernel_batch(), each);
        }
        if (const int failed = kernel_batch().send(); failed != 0) {
            return failed;
        }
    }
    return EBUSY;
}

}  // namespace

bool has_filters_of_others(int ifindex) { return owners_of_filters(ifindex).others; }

int remove_leftovers() {
    with_filters = of_clients = {};
    const ap_config *config = current_ap_config();
    for (std::size_t i = 0; config != nullptr && i < config->vaps.size(); i++) {
        of_clients.add(find_bridge_port(config->vaps[i].ifname.c_str()).ifindex);
    }
    const std::size_t vaps = of_clients.count;
    if (const int error = dump_traffic_control(RTM_GETQDISC, 0, 0, note_clsact, nullptr); error != 0) {
        return error;
    }
    for (const int ifindex : with_filters) {
        const filter_owners owners = owners_of_filters(ifindex);
        if (!owners.us) {
            continue;
        }
        remove_filters(ifindex, owners.others);
        if (std::find(of_clients.begin(), of_clients.begin() + vaps, ifindex) == of_clients.begin() + vaps) {
            unmake_client_port(kernel_batch(), ifindex);
            of_clients.add(ifindex);
        }
        if (const int error = kernel_batch().send(); error != 0) {
            return error;
        }
    }
    return remove_forwardings();
}

}  // namespace kx
