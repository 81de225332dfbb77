#include "platform/linux/bridge_ports.h"

#include <event2/event.h>
#include <event2/event_struct.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/linux/event_base.h"
#include "platform/linux/route_netlink.h"

namespace kx {

namespace {

int read_bridge_attribute(const nlattr *attribute, void *context) {
    if (mnl_attr_get_type(attribute) == IFLA_BR_VLAN_FILTERING) {
        static_cast<network_link *>(context)->filters_vlans = mnl_attr_get_u8(attribute) != 0;
    }
    return MNL_CB_OK;
}

// The kind comes first. It decides how the data are read.
int read_link_info(const nlattr *attribute, void *context) {
    auto &found = *static_cast<network_link *>(context);
    if (mnl_attr_get_type(attribute) == IFLA_INFO_KIND) {
        const std::string_view kind = mnl_attr_get_str(attribute);
        found.is_bridge = kind == "bridge";
        found.is_vxlan = kind == "vxlan";
    }
    if (mnl_attr_get_type(attribute) == IFLA_INFO_DATA && found.is_bridge) {
        return mnl_attr_parse_nested(attribute, read_bridge_attribute, &found);
    }
    return MNL_CB_OK;
}

int read_link_attribute(const nlattr *attribute, void *context) {
    auto &found = *static_cast<network_link *>(context);
    if (mnl_attr_get_type(attribute) == IFLA_MASTER) {
        found.master = static_cast<int>(mnl_attr_get_u32(attribute));
    }
    if (mnl_attr_get_type(attribute) == IFLA_LINKINFO) {
        return mnl_attr_parse_nested(attribute, read_link_info, &found);
    }
    return MNL_CB_OK;
}

int read_link(const nlmsghdr *message, void *context) {
    static_cast<network_link *>(context)->index =
        static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(message))->ifi_index;
    return mnl_attr_parse(message, sizeof(ifinfomsg), read_link_attribute, context);
}

// An interface as the kernel described it.
struct known_port {
    char ifname[IFNAMSIZ] = {};
    bridge_port port;
};

bridge_port ask_kernel(const char *ifname) {
    network_link link;
    if (int error = find_link(ifname, 0, link); error != 0) {
        return {.error = error};
    }
    network_link master;
    const bool is_port = link.master != 0 && find_link(nullptr, link.master, master) == 0 && master.is_bridge;
    return {.error = is_port ? 0 : ENOTCONN,
            .ifindex = link.index,
            .bridge = link.master,
            .filters_vlans = master.filters_vlans};
}

// Keeps the kernel's answers about ports until a link of this machine is made, changed or deleted, so that not every
// client costs a question. The event loop learns of such changes from the kernel.
class known_ports {
public:
    bridge_port find(const char *ifname) {
        watch_links();
        known_port asked;
        std::strncpy(asked.ifname, ifname, sizeof(asked.ifname) - 1);
        auto known = std::ranges::find_if(
            ports_, [&asked](const known_port &each) { return std::strcmp(each.ifname, asked.ifname) == 0; });
        if (known != ports_.end()) {
            return known->port;
        }
        asked.port = ask_kernel(asked.ifname);
        const int error = asked.port.error;
        if ((error == 0 || error == ENODEV || error == ENOTCONN) && watching_) {
            ports_[next_] = asked;
            next_ = (next_ + 1) % ports_.size();
        }
        return asked.port;
    }

    void on_change(void (*handler)()) {
        handler_ = handler;
        watch_links();
    }

private:
    // Tries once. Without the kernel's notifications nothing is kept.
    void watch_links() {
        if (tried_ || process_event_base() == nullptr) {
            return;
        }
        tried_ = true;
        fd_ = socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE);
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        address.nl_groups = RTMGRP_LINK;
        auto link_changed = [](int, short, void *self) { static_cast<known_ports *>(self)->forget(); };
        watching_ = bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 &&
                    event_assign(&changes_, process_event_base(), fd_, EV_READ | EV_PERSIST, link_changed, this) == 0 &&
                    event_add(&changes_, nullptr) == 0;
    }

    void forget() {
        char first = 0;
        // ENOBUFS: the queue overflowed and notifications are lost, which is a change as well.
        while (recv(fd_, &first, sizeof(first), MSG_TRUNC) >= 0 || errno == ENOBUFS) {
        }
        ports_ = {};
        if (handler_ != nullptr) {
            handler_();
        }
    }

    bool tried_ = false, watching_ = false;
    int fd_ = 0;  // once tried_
    event changes_{};
    void (*handler_)() = nullptr;
    std::array<known_port, 16> ports_;
    std::size_t next_ = 0;
};

constinit known_ports ports;

}  // namespace

// The ioctls that do this by name make the kernel load a module for an interface that does not exist; netlink does not.
int find_link(const char *ifname, int index, network_link &found) {
    nlmsghdr *request = kernel_netlink().make_request(RTM_GETLINK, 0);
    auto *body = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    body->ifi_family = AF_UNSPEC;
    body->ifi_index = index;
    if (ifname != nullptr) {
        mnl_attr_put_strz(request, IFLA_IFNAME, ifname);
    }
    return kernel_netlink().call(request, read_link, &found);
}

bridge_port find_bridge_port(const char *ifname) { return ports.find(ifname); }

void on_links_changed(void (*handler)()) { ports.on_change(handler); }

}  // namespace kx
