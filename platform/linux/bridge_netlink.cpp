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

#include <array>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "platform/linux/event_base.h"

namespace kx {

namespace {

constexpr timeval reply_wait{0, 250'000};
constexpr std::size_t mac_size = 6;

// Room for a request and for one link's answer. One thread, one call at a time.
alignas(nlmsghdr) std::array<char, 16384> buffer;

class route_socket {
public:
    route_socket() : socket_(mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC)) {
        if (socket_ == nullptr || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) != 0) {
            error_ = errno;
            return;
        }
        setsockopt(mnl_socket_get_fd(socket_), SOL_SOCKET, SO_RCVTIMEO, &reply_wait, sizeof(reply_wait));
    }

    // Sends the request in `buffer` and hands the kernel's answer to `callback`; an acknowledgement has none.
    // Returns 0 or an errno.
    int call(nlmsghdr *request, mnl_cb_t callback, void *context) {
        if (error_ != 0) {
            return error_;
        }
        request->nlmsg_seq = ++sequence_;
        if (mnl_socket_sendto(socket_, request, request->nlmsg_len) < 0) {
            return errno;
        }
        ssize_t size = 0;
        do {
            size = mnl_socket_recvfrom(socket_, buffer.data(), buffer.size());
            if (size < 0) {
                return errno == EAGAIN ? ETIMEDOUT : errno;
            }
            // Another number is that of a call given up before.
        } while (reinterpret_cast<const nlmsghdr *>(buffer.data())->nlmsg_seq != sequence_);
        int result = mnl_cb_run(buffer.data(), static_cast<std::size_t>(size), sequence_,
                                mnl_socket_get_portid(socket_), callback, context);
        return result < 0 ? errno : 0;
    }

private:
    mnl_socket *socket_;
    int error_ = 0;
    unsigned sequence_ = 0;
};

int call_kernel(nlmsghdr *request, mnl_cb_t callback = nullptr, void *context = nullptr) {
    static route_socket socket;
    return socket.call(request, callback, context);
}

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

// The kind comes first; it decides what the data mean.
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

// By name, or by index when `ifname` is null. Returns 0 or an errno. Unlike the ioctls that take a name, it has no
// module loaded for an interface that is not there.
int get_link(const char *ifname, int index, link &found) {
    nlmsghdr *request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = RTM_GETLINK;
    request->nlmsg_flags = NLM_F_REQUEST;
    auto *body = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    body->ifi_family = AF_UNSPEC;
    body->ifi_index = index;
    if (ifname != nullptr) {
        mnl_attr_put_strz(request, IFLA_IFNAME, ifname);
    }
    return call_kernel(request, read_link, &found);
}

// What the kernel said about an interface.
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

// What is known of ports, until a link of this machine is made, changed or deleted: the kernel tells the event loop, so
// that nothing has to be asked for each client.
class known_ports {
public:
    known_ports() : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_CLOEXEC | SOCK_NONBLOCK, NETLINK_ROUTE)) {
        sockaddr_nl address{};
        address.nl_family = AF_NETLINK;
        address.nl_groups = RTMGRP_LINK;
        auto link_changed = [](evutil_socket_t, short, void *self) { static_cast<known_ports *>(self)->forget(); };
        watching_ = process_event_base() != nullptr &&
                    bind(fd_, reinterpret_cast<const sockaddr *>(&address), sizeof(address)) == 0 &&
                    event_assign(&news_, process_event_base(), fd_, EV_READ | EV_PERSIST, link_changed, this) == 0 &&
                    event_add(&news_, nullptr) == 0;
    }

    const known_port *find(const char *ifname) const {
        for (const known_port &each : ports_) {
            if (std::strncmp(each.ifname, ifname, sizeof(each.ifname) - 1) == 0) {
                return &each;
            }
        }
        return nullptr;
    }

    void add(const known_port &port) {
        if (watching_) {
            ports_[next_] = port;
            next_ = (next_ + 1) % ports_.size();
        }
    }

private:
    void forget() {
        char first = 0;
        // A full queue has lost news, which is news as well.
        while (recv(fd_, &first, sizeof(first), MSG_TRUNC) >= 0 || errno == ENOBUFS) {
        }
        ports_ = {};
    }

    int fd_;
    event news_{};
    bool watching_ = false;
    std::array<known_port, 16> ports_;
    std::size_t next_ = 0;
};

known_port find_port(const char *ifname) {
    static known_ports ports;
    if (const known_port *known = ports.find(ifname)) {
        return *known;
    }
    known_port found = ask_kernel(ifname);
    if (found.error == 0 || found.error == ENODEV || found.error == ENOTCONN) {
        ports.add(found);
    }
    return found;
}

int change_entry(std::uint16_t type, std::uint16_t flags, const std::uint8_t mac[6], const bridge_place &place) {
    nlmsghdr *request = mnl_nlmsg_put_header(buffer.data());
    request->nlmsg_type = type;
    request->nlmsg_flags = static_cast<std::uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
    auto *body = static_cast<ndmsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ndmsg)));
    body->ndm_family = AF_BRIDGE;
    body->ndm_ifindex = place.ifindex;
    body->ndm_state = NUD_NOARP;
    body->ndm_flags = NTF_MASTER;
    mnl_attr_put(request, NDA_LLADDR, mac_size, mac);
    if (place.vlan != 0) {
        mnl_attr_put_u16(request, NDA_VLAN, place.vlan);
    }
    return call_kernel(request);
}

}  // namespace

int find_bridge_place(const char *ifname, std::uint16_t vlan, bridge_place &place) {
    known_port port = find_port(ifname);
    if (port.error == 0) {
        place = {port.index, port.filters_vlans ? vlan : std::uint16_t{0}};
    }
    return port.error;
}

int add_bridge_entry(const std::uint8_t mac[6], const bridge_place &place) {
    return change_entry(RTM_NEWNEIGH, NLM_F_CREATE | NLM_F_REPLACE, mac, place);
}

int del_bridge_entry(const std::uint8_t mac[6], const bridge_place &place) {
    return change_entry(RTM_DELNEIGH, 0, mac, place);
}

}  // namespace kx
