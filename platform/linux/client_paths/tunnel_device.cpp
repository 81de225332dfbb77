#include "platform/linux/client_paths/tunnel_device.h"

#include <arpa/inet.h>
#include <linux/if_link.h>
#include <net/if.h>
#include <sys/socket.h>

#include <cerrno>

#include "platform/linux/bridge_ports.h"
#include "platform/linux/client_paths/path_rules.h"
#include "platform/linux/client_paths/tc_filter.h"
#include "platform/linux/route_netlink.h"
#include "wire/client_tunnels.h"

namespace kx {

namespace {

int delete_link(int ifindex) {
    nlmsghdr *request = kernel_batch().add(RTM_DELLINK, 0, {ENODEV});
    auto *body = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    body->ifi_family = AF_UNSPEC;
    body->ifi_index = ifindex;
    return kernel_batch().send();
}

// Each frame names its own VNI and destination ("external" of ip-link(8)).
int make_vxlan() {
    nlmsghdr *request = kernel_batch().add(RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
    auto *body = static_cast<ifinfomsg *>(mnl_nlmsg_put_extra_header(request, sizeof(ifinfomsg)));
    body->ifi_family = AF_UNSPEC;
    body->ifi_flags = body->ifi_change = IFF_UP;
    mnl_attr_put_strz(request, IFLA_IFNAME, tunnel_device_name);
    mnl_attr_put_u32(request, IFLA_MTU, tunnel_device_mtu);
    nlattr *info = mnl_attr_nest_start(request, IFLA_LINKINFO);
    mnl_attr_put_strz(request, IFLA_INFO_KIND, "vxlan");
    nlattr *data = mnl_attr_nest_start(request, IFLA_INFO_DATA);
    mnl_attr_put_u8(request, IFLA_VXLAN_COLLECT_METADATA, 1);
    mnl_attr_put_u16(request, IFLA_VXLAN_PORT, htons(client_tunnel_port));
    mnl_attr_put_u8(request, IFLA_VXLAN_LEARNING, 0);
    mnl_attr_put_u8(request, IFLA_VXLAN_UDP_CSUM, 0);  // RFC 7348, 5: should be zero
    mnl_attr_nest_end(request, data);
    mnl_attr_nest_end(request, info);
    return kernel_batch().send();
}

tunnel_device give_up(const char *missing, int error) { return {.missing = missing, .error = error}; }

}  // namespace

tunnel_device make_tunnel_device() {
    network_link old;
    if (const int error = find_link(tunnel_device_name, 0, old); error == 0) {
        if (!old.is_vxlan) {
            return give_up("the name tun0: an interface of another kind has it", EEXIST);
        }
        if (const int failed = delete_link(old.index); failed != 0) {
            return give_up("CAP_NET_ADMIN", failed);
        }
    }
    if (const int error = make_vxlan(); error != 0) {
        return give_up(error == EPERM ? "CAP_NET_ADMIN" : "VXLAN to UDP port 4789", error);
    }
    network_link made;
    if (const int error = find_link(tunnel_device_name, 0, made); error != 0) {
        return give_up("tun0", error);
    }
    add_clsact(kernel_batch(), made.index);
    drop_the_rest(kernel_batch(), made.index);
    add_trial(kernel_batch(), made.index);
    int error = kernel_batch().send();
    remove_trial(kernel_batch(), made.index);
    error = error == 0 ? kernel_batch().send() : error;
    if (error != 0) {
        delete_link(made.index);
        return give_up("traffic control with clsact, flower, gact, mirred, pedit, tunnel_key and vlan", error);
    }
    return {.ifindex = made.index};
}

}  // namespace kx
