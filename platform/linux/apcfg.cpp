#include "kx/apcfg.h"

#include <algorithm>
#include <cstring>

#include "platform/linux/config_cache.h"

namespace {

// Copies into a NUL-padded field. load_ap_config() has checked that the text fits.
template <std::size_t size>
void copy_text(char (&field)[size], const std::string &text) {
    std::memset(field, 0, size);
    text.copy(field, size);
}

}  // namespace

int apcfg_vap_get_ifname_list(char (*list)[12], uint8_t *count) {
    const kx::ap_config *config = kx::current_ap_config();
    if (config == nullptr) {
        return -1;
    }
    for (std::size_t i = 0; i < config->vaps.size(); i++) {
        copy_text(list[i], config->vaps[i].ifname);
    }
    *count = static_cast<uint8_t>(config->vaps.size());
    return 0;
}

int apcfg_vap_get_by_ifname(const char *ifname, apcfg_vap *vap) {
    const kx::ap_config *config = kx::current_ap_config();
    if (config == nullptr) {
        return -1;
    }
    auto found = std::find_if(config->vaps.begin(), config->vaps.end(),
                              [ifname](const kx::vap_config &each) { return each.ifname == ifname; });
    if (found == config->vaps.end()) {
        return -1;
    }
    copy_text(vap->ifname, found->ifname);
    vap->vap_attr = found->vap_attr;
    copy_text(vap->ssid, found->ssid);
    copy_text(vap->captive_cfg, found->captive);
    vap->vlan = found->vlan;
    vap->status = found->enabled ? 1 : 0;
    vap->radius_idx = found->radius_index;
    vap->mac_acl_idx = found->mac_acl_index;
    vap->radius_acl_type = found->radius_acl_type;
    return 0;
}
