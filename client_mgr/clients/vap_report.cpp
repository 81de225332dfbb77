#include "client_mgr/clients/vap_report.h"

#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/neighbours/ctrlr_link.h"

namespace {

constexpr uint32_t vap_enabled = 1;

}  // namespace

void log_vap_status(const apcfg_vap &vap) {
    CM_LOG(LOG_EVENT, "vap %.16s status = %s", vap.ifname, vap.status == vap_enabled ? "AP_TRUE" : "AP_FALSE");
}

void log_bssid(const mac_address &bssid) { CM_LOG(LOG_EVENT, "BSSID : " MAC_FMT, mac_arg(bssid)); }

void log_ssid_and_vlan(const char ssid[32], uint32_t vlan) {
    CM_LOG(LOG_EVENT, "SSID  %.32s", ssid);
    CM_LOG(LOG_EVENT, "VLAN  %d", static_cast<int>(vlan));
}

void fill_vap_record(vap_record &record, uint8_t rec_type, const mac_address &bssid, const char ssid[32],
                     uint32_t vlan) {
    fill_ctrlr_rec_hdr(record.rec, rec_type, sizeof record);
    record.bssid = bssid;
    memcpy(record.ssid, ssid, sizeof record.ssid);
    record.vlan = vlan;
}
