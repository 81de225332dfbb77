

#include "client_mgr/clients/vap_config.h"

#include <algorithm>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/sta_ctrl.h"
#include "kx/apcfg.h"
#include "wire/ctrlr_messages.h"

namespace {

constexpr uint32_t vap_enabled = 1;

// Loads one VAP into an entry. When its BSSID cannot be read the entry keeps the new name beside its old fields.
bool load_vap(const char *name, vap_cfg &entry) {
    apcfg_vap vap = {};
    if (apcfg_vap_get_by_ifname(name, &vap) != 0) {
        return false;
    }
    log_vap_status(vap);
    memcpy(entry.ifname, vap.ifname, sizeof entry.ifname);
    if (client_mgr_get_bssid(entry.bssid, make_vap_ifname(entry.ifname).text) != 0) {
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

// Entries past num_vaps, left by an earlier load, count as well.
const vap_cfg *find_by_ifname(const char *ifname) {
    for (const vap_cfg &entry : g_cfg.vaps) {
        if (memcmp(entry.ifname, ifname, sizeof entry.ifname) == 0) {
            return &entry;
        }
    }
    return nullptr;
}

}  // namespace

void log_vap_status(const apcfg_vap &vap) {
    CM_LOG(LOG_EVENT, "vap %.16s status = %s", vap.ifname, vap.status == vap_enabled ? "AP_TRUE" : "AP_FALSE");
}

void log_bssid(const uint8_t bssid[6]) { CM_LOG(LOG_EVENT, "BSSID : " MAC_FMT, MAC_ARG(bssid)); }

void log_ssid_and_vlan(const char ssid[32], uint32_t vlan) {
    CM_LOG(LOG_EVENT, "SSID  %.32s", ssid);
    CM_LOG(LOG_EVENT, "VLAN  %d", static_cast<int>(vlan));
}

void fill_vap_record(vap_record &record, uint8_t rec_type, const uint8_t bssid[6], const char ssid[32], uint32_t vlan) {
    fill_ctrlr_rec_hdr(record.rec, rec_type, sizeof record);
    memcpy(record.bssid, bssid, sizeof record.bssid);
    memcpy(record.ssid, ssid, sizeof record.ssid);
    record.vlan = vlan;
}

void client_mgr_vap_init(void) {
    CM_LOG(LOG_EVENT, "Initializing vap config");
    if (!client_mgr_ctrlr_ready()) {
        CM_LOG(LOG_ERROR, "Not yet ready to talk to controller");
        return;
    }
    vap_ifname_list list;
    if (apcfg_vap_get_ifname_list(list.names, &list.count) != 0) {
        CM_LOG(LOG_ERROR, "Error getting the VAP list");
        return;
    }
    CM_LOG(LOG_EVENT, "Got %d vap configuration", list.count);
    uint32_t n = 0;
    for (uint32_t i = 0; i < list.count; i++) {
        if (n == CLIENT_MGR_MAX_VAPS) {
            CM_LOG(LOG_ERROR, "No room for %d of the VAPs", static_cast<int>(list.count - i));
            break;
        }
        if (load_vap(make_vap_ifname(list.names[i]).text, g_cfg.vaps[n])) {
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
    uint8_t bssid[6];
    if (client_mgr_get_bssid(bssid, make_vap_ifname(ifname).text) != 0) {
        CM_LOG(LOG_ERROR, "Unable to get bssid for vap %.12s", ifname);
        return -1;
    }
    log_bssid(bssid);
    log_ssid_and_vlan(vap->ssid, vap->vlan);
    vap_update_message msg;
    fill_ctrlr_msg_hdr(msg.hdr, 1, sizeof msg);
    // The message alone carries the BSSID read afresh.
    fill_vap_record(msg.vap, CLIENT_MGR_BULK_VAP_CONFIG, bssid, vap->ssid, vap->vlan);
    if (client_mgr_send_apcomm_msg(&msg, sizeof msg) != 0) {
        CM_LOG(LOG_ERROR, "Error sending VAP config");
        return -1;
    }
    return 0;
}

int client_mgr_get_vap_idx(const uint8_t bssid[6], uint32_t *idx) {
    const uint32_t count = std::min(g_cfg.num_vaps, CLIENT_MGR_MAX_VAPS);
    for (uint32_t i = 0; i < count; i++) {
        if (memcmp(g_cfg.vaps[i].bssid, bssid, sizeof g_cfg.vaps[i].bssid) == 0) {
            *idx = i;
            return 0;
        }
    }
    return -1;
}
