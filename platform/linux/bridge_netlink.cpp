#include "platform/linux/bridge_netlink.h"

#include <event2/event.h>
#include <event2/event_struct.h>
#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/linux/event_base.h"

namespace kx {

namespace {

constexpr timeval reply_wait{0, 250'000};

// The kernel's route netlink: one request at a time.
class route_netlink {
public:
    // An empty request of that type, valid until the next one. The caller adds its body.
    nlmsghdr *make_request(std::uint16_t type, unsigned flags) {
        nlmsghdr *request = mnl_nlmsg_put_header(buffer_.data());
        request->nlmsg_type = type;
        request->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | flags);
        return request;
    }

    // Sends the request and calls `callback` with the kernel's answer; an acknowledgement is not an answer.
    // Returns 0 or an errno.
    int call(nlmsghdr *request, mnl_cb_t callback, void *context) {
        if (!open()) {
            return error_;
        }
        request->nlmsg_seq = ++sequence_;
        if (mnl_socket_sendto(socket_, request, request->nlmsg_len) < 0) {
            return errno;
        }
        ssize_t size = 0;
        do {
            size = mnl_socket_recvfrom(socket_, buffer_.data(), buffer_.size());
            if (size < 0) {
                return errno == EAGAIN ? ETIMEDOUT : errno;
            }
            // Another sequence number belongs to a call that timed out.
        } while (reinterpret_cast<const nlmsghdr *>(buffer_.data())->nlmsg_seq != sequence_);
        int result = mnl_cb_run(buffer_.data(), static_cast<std::size_t>(size), sequence_,
                                mnl_socket_get_portid(socket_), callback, context);
        return result < 0 ? errno : 0;
    }

private:
    // Tries once. False, and error_ is set, when there is no netlink.
    bool open() {
        if (socket_ != nullptr || error_ != 0) {
            return error_ == 0;
        }
        socket_ = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
        if (socket_ == nullptr || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) != 0) {
            error_ = errno;
            return false;
        }
        setsockopt(mnl_socket_get_fd(socket_), SOL_SOCKET, SO_RCVTIMEO, &reply_wait, sizeof(reply_wait));
        return true;
    }

    mnl_socket *socket_ = nullptr;
    int error_ = 0;
    unsigned sequence_ = 0;
    alignas(nlmsghdr) std::array<char, 16384> buffer_{};  // a request, or the answer about one link
};

constinit route_netlink kernel;

struct link {
    int index = 0;
    int master = 0;
    bool is_bridge = false;
    bool filters_vlans = false;
};

int read_bridge_attribute(const nlattr *attribute, void *context) {
    if (mnl_attr_get_type(attribute) == IFLA_BR_VLAN_FILTERING) {
        static_cast<link *>(context)->filters_vlans = mnl_attr_get_u8(attribute) != 0;
    }
    return MNL_CB_OK;
}

// The kind comes first. It decides how the data are read.
int read_link_info(const nlattr *attribute, void *context) {
    auto &found = *static_cast<link *>(context);
    if (mnl_attr_get_type(attribute) == IFLA_INFO_KIND) {
        found.is_bridge = std::string_view(mnl_attr_get_str(attribute)) == "bridge";
    }
    if (mnl_attr_get_type(attribute) == IFLA_INFO_DATA && found.is_bridge) {
        return mnl_attr_parse_nested(attribute, read_bridge_attribute, &found);
    }
    return MNL_CB_OK;
}

int read_link_attribute(const nlattr *attribute, void *context) {
    auto &found = *static_cast<link *>(context);
    if (mnl_attr_get_type(attribute) == IFLA_MASTER) {
        found.master = static_cast<int>(mnl_attr_get_u32(attribute));
    }
    if (mnl_attr_get_type(attribute) == IFLA_LINKINFO) {
        return mnl_attr_parse_nested(attribute, read_link_info, &found);
    }
    return MNL_CB_OK;
}

int read_link(const nlmsghdr *message, void *context) {
    static_cast<link *>(context)->index = static_cast<const ifinfomsg *>(mnl_nlmsg_get_payload(message))->ifi_index;
    return mnl_attr_parse(message, sizeof(ifinfomsg), read_link_attribute, context);
}

// Finds a link by name, or by index when `ifname` is null. Returns 0 or an errno. The ioctls that do this by name make
// the kernel load a module for an interface that does not exist; netlink does not.
int get_link(const char *ifname, int index, link &found) {
    nlmsghdr *request = kernel.make_request(RTM_GETLINK, 0);
    auto *body = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    body->ifi_family = AF_UNSPEC;
    body->ifi_index = index;
    if (ifname != nullptr) {
        mnl_attr_put_strz(request, IFLA_IFNAME, ifname);
    }
    return kernel.call(request, read_link, &found);
}

// An interface as the kernel described it.
struct known_port {
    char ifname[IFNAMSIZ] = {};
    int error = 0;
    int index = 0;
    bool filters_vlans = false;
};

known_port ask_kernel(const char *ifname) {
    known_port known;
    std::strncpy(known.ifname, ifname, sizeof(known.ifname) - 1);
    link port;
    known.error = get_link(known.ifname, 0, port);
    if (known.error != 0) {
        return known;
    }
    link bridge;
    if (port.master == 0 || get_link(nullptr, port.master, bridge) != 0 || !bridge.is_bridge) {
        known.error = ENOTCONN;
    }
    known.index = port.index;
    known.filters_vlans = bridge.filters_vlans;
    return known;
}

// Keeps the kernel's answers about ports until a link of this machine is made, changed or deleted, so that not every
// client costs a question. The event loop learns of such changes from the kernel.
class known_ports {
public:
    known_port find(const char *ifname) {
        watch_links();
        auto known = std::ranges::find_if(ports_, [ifname](const known_port &each) {
            return std::strncmp(each.ifname, ifname, sizeof(each.ifname) - 1) == 0;
        });
        if (known != ports_.end()) {
            return *known;
        }
        known_port found = ask_kernel(ifname);
        bool lasts = found.error == 0 || found.error == ENODEV || found.error == ENOTCONN;
        if (lasts && watching_) {
            ports_[next_] = found;
            next_ = (next_ + 1) % ports_.size();
        }
        return found;
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
    }

    bool tried_ = false, watching_ = false;
    int fd_ = 0;  // once tried_
    event changes_{};
    std::array<known_port, 16> ports_;
    std::size_t next_ = 0;
};

constinit known_ports ports;

int change_entry(std::uint16_t type, unsigned flags, const mac_address &mac, const bridge_place &place) {
    nlmsghdr *request = kernel.make_request(type, NLM_F_ACK | flags);
    auto *body = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)));
    body->ndm_family = AF_BRIDGE;
    body->ndm_ifindex = place.ifindex;
    body->ndm_state = NUD_NOARP;
    body->ndm_flags = NTF_MASTER;
    mnl_attr_put(request, NDA_LLADDR, sizeof(mac), &mac);
    if (place.vlan != 0) {
        mnl_attr_put_u16(request, NDA_VLAN, place.vlan);
    }
    return kernel.call(request, nullptr, nullptr);
}

}  // namespace

int find_bridge_place(const char *ifname, std::uint16_t vlan, bridge_place &place) {
    const known_port port = ports.find(ifname);
    if (port.error == 0) {
        place = {port.index, port.filters_vlans ? vlan : std::uint16_t{0}};
    }
    return port.error;
}

int add_bridge_entry(const mac_address &mac, const bridge_place &place) {
    return change_entry(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, mac, place);
}

int del_bridge_entry(const mac_address &mac, const bridge_place &place) {
    return change_entry(RTM_DELNEIGH, 0, mac, place);
}

}  // namespace kx
