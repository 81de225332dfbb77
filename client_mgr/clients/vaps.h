// The VAP table: loading it, looking a VAP up, reporting a VAP that changed.
#ifndef CLIENT_MGR_CLIENTS_VAPS_H
#define CLIENT_MGR_CLIENTS_VAPS_H

#include <cstdint>

#include "client_mgr/base/client_mgr_cfg.h"
#include "wire/mac_address.h"

extern "C" {

// Loads the VAP table: the first CLIENT_MGR_MAX_VAPS of the configuration's VAPs that can be read. One level-1 line
// gives the number of names that are left in the list then. While the link to the controller is not
// ready the table stays as it is, on purpose.
void client_mgr_vap_init(void);
// `ifname`: 12 bytes, compared as memory. Returns 0 when the VAP was reported or is not one of ours, else -1.
int client_mgr_vap_update(const char *ifname);
// Index of the VAP with this BSSID. Returns 0, or -1 with *idx untouched.
int client_mgr_get_vap_idx(const uint8_t bssid[6], uint32_t *idx);
}

// A VAP of the table, or none.
struct vap_lookup {
    vap_cfg *vap;    // null: none
    uint32_t index;  // valid when there is one

    explicit operator bool() const { return vap != nullptr; }
    vap_cfg &operator*() const { return *vap; }
    vap_cfg *operator->() const { return vap; }

    // As client_info has them.
    int32_t slot() const { return static_cast<int32_t>(index); }
    int32_t vlan() const { return static_cast<int32_t>(vap->vlan); }
};

vap_lookup find_vap(const mac_address &bssid);

#endif
