// What the daemon's parts share about VAPs.
#ifndef CLIENT_MGR_CLIENTS_VAP_CONFIG_H
#define CLIENT_MGR_CLIENTS_VAP_CONFIG_H

#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "kx/apcfg.h"
#include "wire/ctrlr_messages.h"

// An interface name with its terminator.
struct vap_ifname {
    char text[sizeof(vap_cfg::ifname) + 1];
};

// From 12 bytes, which may have none.
inline vap_ifname make_vap_ifname(const char *ifname) {
    vap_ifname result = {};
    memcpy(result.text, ifname, sizeof(vap_cfg::ifname));
    return result;
}

struct vap_ifname_list {
    char names[APCFG_MAX_IFNAMES][12];
    uint8_t count;
};

// A VAP's enable status, in the log only: a disabled VAP is handled like an enabled one.
void log_vap_status(const apcfg_vap &vap);
void log_bssid(const uint8_t bssid[6]);
void log_ssid_and_vlan(const char ssid[32], uint32_t vlan);

// Fills in a VAP's record of type `rec_type` and its length, with BSSID, SSID and VLAN.
void fill_vap_record(vap_record &record, uint8_t rec_type, const uint8_t bssid[6], const char ssid[32], uint32_t vlan);

extern "C" {

// Loads the VAP table: the first CLIENT_MGR_MAX_VAPS of the configuration's VAPs that can be read; how many of the list
// are left then is said in one level-1 line. While the controller cannot be talked to the table stays as it is, on
// purpose.
void client_mgr_vap_init(void);
// `ifname`: 12 bytes, compared as memory. Returns 0 when the VAP was reported or is not one of ours, else -1.
int client_mgr_vap_update(const char *ifname);
// Index of the VAP with this BSSID. Returns 0, or -1 with *idx untouched.
int client_mgr_get_vap_idx(const uint8_t bssid[6], uint32_t *idx);
}

#endif
