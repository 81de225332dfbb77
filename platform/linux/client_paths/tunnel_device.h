// tun0, the VXLAN device of all tunnels, and what a former process left in the kernel.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_TUNNEL_DEVICE_H
#define PLATFORM_LINUX_CLIENT_PATHS_TUNNEL_DEVICE_H

namespace kx {

inline constexpr char tunnel_device_name[] = "tun0";
// Of the clients' packets, whatever the way to other access points takes.
inline constexpr int tunnel_device_mtu = 1500;

struct tunnel_device {
    int ifindex = 0;                // 0: there is none
    const char *missing = nullptr;  // then: what is missing, for the system log
    int error = 0;                  // and the kernel's errno
};

// Removes a tun0 of a former process with all that belongs to it, makes it anew, and tries whether the kernel has all
// that tunnels need. tun0 drops whatever no filter takes.
tunnel_device make_tunnel_device();

}  // namespace kx

#endif
