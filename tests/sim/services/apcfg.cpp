#include "services/apcfg.h"

#include <cstdio>
#include <cstring>

#include "inside.h"
#include "kx/kx_node.h"
#include "platform.h"
#include "services/names.h"

namespace sim {

extern "C" {

int apcfg_vap_get_ifname_list(char (*list)[12], uint8_t *count) {
    const outside daemon;
    const int result = here().outcome("apcfg_vap_get_ifname_list", 0);
    if (result != 0) {
        return result;
    }
    // The contract gives the list room for all names, whatever their number.
    memset(list, 0xee, sizeof(*list) * APCFG_MAX_IFNAMES);
    *count = static_cast<uint8_t>(here().vaps.size());
    for (size_t i = 0; i < here().vaps.size(); i++) {
        const bytes name = padded(here().vaps[i].ifname, sizeof(*list));
        memcpy(list[i], name.data(), sizeof(*list));
    }
    return 0;
}

int apcfg_vap_get_by_ifname(const char *ifname, apcfg_vap *vap) {
    const outside daemon;
    int result = -1;
    for (const listed_vap &v : here().vaps) {
        if (result == 0 || !v.readable || v.ifname != name_text(ifname, 16)) {
            continue;
        }
        *vap = v.record;
        result = 0;
    }
    const int wanted = here().outcome("apcfg_vap_get_by_ifname", result);
    if (wanted != 0) {
        memset(vap, 0xee, sizeof(*vap));
    }
    return wanted;
}

int kx_get_node_radio_mac_addr(char *text, uint32_t text_len, uint32_t radio) {
    const outside daemon;
    const int result = here().recorded(
        "kx_get_node_radio_mac_addr", "kx_get_node_radio_mac_addr(" + number(text_len) + ", " + number(radio) + ")", 0);
    if (result == 0) {
        snprintf(text, text_len, "%s", here().radio_mac.c_str());
    }
    return result;
}

}  // extern "C"

}  // namespace sim
