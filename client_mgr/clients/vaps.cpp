#include "client_mgr/clients/vaps.h"

#include <algorithm>
#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/clients/vap_report.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/driver.h"
#include "kx/apcfg.h"
#include "wire/ctrlr_messages.h"

namespace {

// Loads one VAP into an entry. When its BSSID cannot be read the entry keeps the new name beside its old fields.
bool load_vap(const char *name, vap_cfg &entry) {
    apcfg_vap vap = {};
    if (apcfg_vap_get_by_ifname(name, &vap) != 0) {
        return false;
    }
    log_vap_status(vap);
    memcpy(entry.ifname, vap.ifname, sizeof entry.ifname);
    if (client_mgr_get_bssid(entry.bssid.bytes, make_vap_ifname(entry.ifname).text) != 0) {
        return false;
    }
    log_bssid(entry.bssid);
    memcpy(entry.ssid, vap.ssid, sizeof entry.ssid);
    entry.vlan = vap.vlan;
    log_ssid_and_vlan(entry.ssid, entry.vlan);
    entry.radius_idx = vap.radius_idx;
    CM_LOG(LOG_EVENT, "Radius Index  %d", static_cast<int>(entry.radius_idx));
    entry.mac_acl_idx = vap.mac_acl_idx;
    CM_LOG(LOG_EVENT, "MAC Acl Index  %d", static_cast<int>(entry.mac_acl_idx));
    entry.radius_acl_type = vap.radius_acl_type;
    CM_LOG(LOG_EVENT, "Radius Acl Type  %d", static_cast<int>(entry.radius_acl_type));
    memcpy(entry.captive_cfg, vap.captive_cfg, sizeof entry.captive_cfg);
    entry.vap_attr = vap.vap_attr;
    return true;
}

// Searches entries past num_vaps too, which an earlier load may have left.
const vap_cfg *find_by_ifname(const char *ifname) {
    for (const vap_cfg &entry : g_cfg.vaps) {
        if (memcmp(entry.ifname, ifname, sizeof entry.ifname) == 0) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

void client_mgr_vap_init(void) {
    CM_LOG(LOG_EVENT, "Initializing vap config");
    if (!client_mgr_ctrlr_ready()) {
        CM_LOG(LOG_ERROR, "Not yet ready to talk to controller");
        return;
    }
    char names[APCFG_MAX_IFNAMES][12];
    uint8_t count;
    if (apcfg_vap_get_ifname_list(names, &count) != 0) {
        CM_LOG(LOG_ERROR, "Error getting the VAP list");
        return;
    }
    CM_LOG(LOG_EVENT, "Got %d vap configuration", count);
    uint32_t n = 0;
    for (uint32_t i = 0; i < count; i++) {
        if (n == CLIENT_MGR_MAX_VAPS) {
            CM_LOG(LOG_ERROR, "No room for %d of the VAPs", static_cast<int>(count - i));
            break;
        }
        if (load_vap(make_vap_ifname(names[i]).text, g_cfg.vaps[n])) {
            n++;
        }
    }
    g_cfg.num_vaps = n;
}

int client_mgr_vap_update(const char *ifname) {
    CM_LOG(LOG_EVENT, "Rcvd vap update for %.12s", ifname);
    if (!client_mgr_ctrlr_ready()) {
        CM_LOG(LOG_ERROR, "Not yet ready to talk to controller");
        return -1;
    }
    const vap_cfg *vap = find_by_ifname(ifname);
    if (vap == nullptr) {
        return 0;
    }
    mac_address bssid;
    if (client_mgr_get_bssid(bssid.bytes, make_vap_ifname(ifname).text) != 0) {
        CM_LOG(LOG_ERROR, "Unable to get bssid for vap %.12s", ifname);
        return -1;
    }
    log_bssid(bssid);
    log_ssid_and_vlan(vap->ssid, vap->vlan);
    vap_update_message msg;
    fill_ctrlr_msg_hdr(msg.hdr, 1, sizeof msg);
    // The fresh BSSID goes into the message only.
    fill_vap_record(msg.vap, CLIENT_MGR_BULK_VAP_CONFIG, bssid, vap->ssid, vap->vlan);
    if (client_mgr_send_apcomm_msg(&msg, sizeof msg) != 0) {
        CM_LOG(LOG_ERROR, "Error sending VAP config");
        return -1;
    }
    return 0;
}

vap_lookup find_vap(const mac_address &bssid) {
    const uint32_t count = std::min(g_cfg.num_vaps, CLIENT_MGR_MAX_VAPS);
    for (uint32_t i = 0; i < count; i++) {
        if (g_cfg.vaps[i].bssid == bssid) {
            return {&g_cfg.vaps[i], i};
        }
    }
    return {};
}

int client_mgr_get_vap_idx(const uint8_t bssid[6], uint32_t *idx) {
    const vap_lookup found = find_vap(mac_at(bssid));
    if (!found) {
        return -1;
    }
    *idx = found.index;
    return 0;
}
