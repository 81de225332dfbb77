// What the daemon's parts share about VAPs.
#ifndef CLIENT_MGR_VAP_CONFIG_H
#define CLIENT_MGR_VAP_CONFIG_H

#include <cstring>

#include "client_mgr/client_mgr.h"
#include "kx/apcfg.h"

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

#endif
