// Interfaces and the bridges that they are ports of, as the kernel describes them.
#ifndef PLATFORM_LINUX_BRIDGE_PORTS_H
#define PLATFORM_LINUX_BRIDGE_PORTS_H

namespace kx {

struct bridge_port {
    int error = 0;  // 0, or an errno: ENODEV when there is no such interface, ENOTCONN when it is in no bridge
    int ifindex = 0;
    int bridge = 0;  // its index
    bool filters_vlans = false;
};

// Answers are kept until a link of this machine is made, changed or deleted.
bridge_port find_bridge_port(const char *ifname);

// From now on the event loop calls `handler` after links of this machine have been made, changed or deleted, once for
// several. To be called once the loop is made.
void on_links_changed(void (*handler)());

struct network_link {
    int index = 0;
    int master = 0;
    bool is_bridge = false;
    bool filters_vlans = false;
    bool is_vxlan = false;
};

// Finds a link by name, or by index when `ifname` is null. Returns 0 or an errno.
int find_link(const char *ifname, int index, network_link &found);

}  // namespace kx

#endif
