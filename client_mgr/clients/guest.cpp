// A client's IPv4 address, and guests on their way through the captive portal.

#include "client_mgr/clients/guest.h"

#include <syslog.h>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/ipv4.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/association.h"
#include "client_mgr/clients/vap_config.h"
#include "client_mgr/dispatch/ctrlr_record.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/guest_entries.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace {

// Lets a guest reach the portal from its new address and, if it had one, no longer from its old one.
void let_guest_reach_portal(const client_info &known, const uint8_t new_ip[4], const char *ifname) {
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(known.assoc_bssid.bytes, &vap_idx) != 0) {
        CM_LOG(LOG_ERROR, "Get VAP Index failed, captive portal set failed");
        return;
    }
    vap_cfg &vap = g_cfg.vaps[vap_idx];
    if (ipv4_number(known.cl_ip) != 0) {
        remove_guest_entries(vap, known.cl_ip, nullptr);
    }
    install_guest_entries(vap, known.cl_mac.bytes, new_ip, ifname);
}

void report_ip(const client_info &client) {
    assoc_notification report = {};
    memcpy(report.client, client.cl_mac.bytes, sizeof report.client);
    memcpy(report.bssid, client.assoc_bssid.bytes, sizeof report.bssid);
    memcpy(report.ip.bytes, client.cl_ip, sizeof report.ip);
    client_mgr_send_client_update_msg(reinterpret_cast<const uint8_t *>(&report), CLIENT_MGR_CLIENT_IP);
    client_mgr_syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Event " MAC_FMT " -- " MAC_FMT " [Set IP=%d.%d.%d.%d]",
                      MAC_ARG(client.assoc_bssid.bytes), MAC_ARG(client.cl_mac.bytes), client.cl_ip[0], client.cl_ip[1],
                      client.cl_ip[2], client.cl_ip[3]);
}

}  // namespace

void client_mgr_send_client_ip_msg(uint8_t *payload) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    const client_ip_notification &msg = *reinterpret_cast<const client_ip_notification *>(payload);
    const char *ifname = reinterpret_cast<const char *>(payload + sizeof msg);
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(msg.client, &slot);
    if (known == nullptr) {
        CM_LOG(LOG_EVENT, "Unable to find client " MAC_FMT, MAC_ARG(msg.client));
        return;
    }
    if (msg.ip == 0 || memcmp(msg.ip.bytes, known->cl_ip, sizeof known->cl_ip) == 0) {
        return;
    }
    client_info client = *known;
    const wipe_guard guard(client.pmk);
    memcpy(client.cl_ip, msg.ip.bytes, sizeof client.cl_ip);
    CM_LOG(LOG_EVENT, "[%s] Adding client ip 0x%08x for client " MAC_FMT, __func__, uint32_t{msg.ip},
           MAC_ARG(msg.client));
    if ((client.flag & CLIENT_FLAG_GUEST) != 0) {
        let_guest_reach_portal(*known, msg.ip.bytes, ifname);
    }
    client_tbl_mac_update(&client, slot);
    report_ip(client);
}

void client_mgr_proc_client_guest_auth(uint8_t *rec) {
    const auto *body = ctrlr_body<guest_auth_body>(rec);
    if (body == nullptr) {
        return;
    }
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(body->client, &slot);
    if (known == nullptr) {
        CM_LOG(LOG_ERROR, "Invalid client " MAC_FMT, MAC_ARG(body->client));
        return;
    }
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(known->assoc_bssid.bytes, &vap_idx) != 0) {
        // The association's text serves here as well.
        CM_LOG(LOG_ERROR, "Invalid ap bssid in assoc msg");
        return;
    }
    client_info client = *known;
    const wipe_guard guard(client.pmk);
    client.flag &= ~CLIENT_FLAG_GUEST;
    client_tbl_mac_update(&client, slot);
    vap_cfg &vap = g_cfg.vaps[vap_idx];
    // Also for a guest that had no entries of its own.
    if (vap.guest_count != 0) {
        remove_guest_entries(vap, client.cl_ip, "Client authenticated, removing arp and route");
    }
    CM_LOG(LOG_EVENT, "Notifying client " MAC_FMT " authenticated in vap %.32s", MAC_ARG(body->client),
           vap.captive_cfg);
    client_mgr_captive_msg_send(body->client, vap.captive_cfg, CAPTIVE_MSG_GUEST_AUTHENTICATED);
}
