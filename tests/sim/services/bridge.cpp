// The bridge.
#include <cstring>
#include <string>

#include "effects.h"
#include "inside.h"
#include "kx/kxbr_api.h"
#include "platform.h"
#include "services/names.h"
#include "wire/mac_address.h"

namespace sim {

extern "C" {

int kxbr_api_add_client(const uint8_t mac[6], const char *ifname, const char *device, uint32_t vlan, uint32_t ip,
                        int tunnel) {
    const outside daemon;
    uint8_t octets[4];
    memcpy(octets, &ip, sizeof(octets));
    const std::string dotted =
        number(octets[0]) + "." + number(octets[1]) + "." + number(octets[2]) + "." + number(octets[3]);
    return here().recorded(
        "kxbr_api_add_client",
        bridge_add_text(mac_text(mac), name_text(ifname, 16), name_text(device, 16), vlan, dotted, tunnel), 0);
}

int kxbr_api_del_client(const uint8_t mac[6]) {
    const outside daemon;
    return here().recorded("kxbr_api_del_client", "kxbr_api_del_client(" + mac_text(mac) + ")", 0);
}

}  // extern "C"

}  // namespace sim
