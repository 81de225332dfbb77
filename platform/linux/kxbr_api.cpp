// Each client is entered in the forwarding table of the Linux bridge that its interface is a port of. One that roamed
// to another VLAN is carried to its home access point where the configuration has that switched on. The IP address of a
// client is not needed.
#include "kx/kxbr_api.h"

#include <cstring>
#include <string_view>

#include "platform/linux/client_paths/service.h"
#include "platform/linux/client_paths/tunnel_device.h"

namespace {

constexpr uint32_t max_vlan = 4094;

kx::bridge_call::client whereabouts(std::string_view ifname, int tunnel) {
    if (ifname == kx::tunnel_device_name) {
        return kx::bridge_call::client::away;
    }
    return tunnel != 0 ? kx::bridge_call::client::tunnelled : kx::bridge_call::client::here;
}

}  // namespace

int kxbr_api_add_client(const uint8_t mac[6], const char *ifname, const char *, uint32_t vlan, uint32_t, int tunnel) {
    if (vlan > max_vlan) {
        kx::take_back_client_path(mac_at(mac));
        return -1;
    }
    kx::bridge_call call{.vlan = static_cast<uint16_t>(vlan), .where = whereabouts(ifname, tunnel)};
    std::strncpy(call.ifname, ifname, sizeof(call.ifname) - 1);
    return kx::call_client_path(mac_at(mac), call);
}

int kxbr_api_del_client(const uint8_t mac[6]) { return kx::take_back_client_path(mac_at(mac)); }
