#include "radiod/interface.h"

#include <linux/if.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <unistd.h>

namespace radiod {

std::optional<interface> find_interface(const std::string &ifname) {
    ifreq index{}, address{};
    ifname.copy(index.ifr_name, sizeof index.ifr_name - 1);
    ifname.copy(address.ifr_name, sizeof address.ifr_name - 1);
    const int fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    const bool found = ioctl(fd, SIOCGIFINDEX, &index) == 0 && ioctl(fd, SIOCGIFHWADDR, &address) == 0;
    close(fd);
    if (!found) {
        return std::nullopt;
    }
    return interface {
        .index = static_cast<unsigned>(index.ifr_ifindex),
        .address = mac_at(reinterpret_cast<const uint8_t *>(address.ifr_hwaddr.sa_data))
    };
}

}  // namespace radiod
