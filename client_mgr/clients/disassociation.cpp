// A client that left. The two handlers differ on purpose: only the local one writes to the system log, cleans up after
// a guest and forgets the client's MAC ACL verdict.

#include "client_mgr/clients/disassociation.h"

#include <syslog.h>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/clients/association.h"
#include "client_mgr/clients/foreign_association.h"
#include "client_mgr/clients/vap_config.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/guest_entries.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kxbr_api.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace {

const client_info *find_client(const uint8_t mac[6], int32_t &slot) {
    const client_info *client = client_tbl_client_get_fast(mac, &slot);
    if (client == nullptr) {
        CM_LOG(LOG_EVENT, "Unable to find client");
    }
    return client;
}

// Known by the controller's word alone, not by a roam to here; or at home here but on another VLAN by now. A client
// that roamed in from another VLAN (foreign and tunnelled) did leave.
bool foreign_client_has_roamed(uint32_t flag) {
    const bool local = (flag & CLIENT_FLAG_LOCAL) != 0;
    const bool foreign = (flag & CLIENT_FLAG_FOREIGN) != 0;
    const bool tunnel = (flag & CLIENT_FLAG_TUNNEL) != 0;
    return (foreign && !tunnel) || (local && tunnel);
}

void forget_verdict(const uint8_t mac[6]) {
    int32_t slot = -1;
    if (client_mgr_acl_get_fast(mac, &slot) == nullptr) {
        return;
    }
    CM_LOG(LOG_TRACE, "client found in client manager acl cache " MAC_FMT, MAC_ARG(mac));
    client_mgr_acl_drv_mac_delete(slot);
}

}  // namespace

void client_mgr_send_disassoc_msg(uint8_t *payload) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    const assoc_notification &msg = *reinterpret_cast<const assoc_notification *>(payload);
    CM_LOG(LOG_EVENT, "Received dis-association msg");
    client_mgr_syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Disassociation " MAC_FMT " -- " MAC_FMT, MAC_ARG(msg.bssid),
                      MAC_ARG(msg.client));
    int32_t slot = -1;
    const client_info *client = find_client(msg.client, slot);
    if (client == nullptr) {
        return;
    }
    if ((client->flag & (CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL)) != 0) {
        CM_LOG(LOG_EVENT, "Frn/Local L3 Roam client Don't remove");
        return;
    }
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(msg.bssid, &vap_idx) != 0) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in disassoc msg");
        return;
    }
    if (client->bssid_idx != static_cast<int32_t>(vap_idx)) {
        CM_LOG(LOG_ERROR, "Disassoc from wrong vap, Don't remove");
        return;
    }
    client_mgr_send_client_update_msg(payload, CLIENT_MGR_CLIENT_DISASSOC);
    vap_cfg &vap = g_cfg.vaps[vap_idx];
    if ((client->flag & CLIENT_FLAG_GUEST) != 0 && vap.guest_count != 0) {
        remove_guest_entries(vap, client->cl_ip, "Client disassociated, removing arp and route");
    }
    client_tbl_drv_mac_delete(slot);
    log_bridge_delete(__func__, msg.client);
    client_mgr_captive_msg_send(msg.client, vap.captive_cfg, CAPTIVE_MSG_DISASSOCIATION);
    kxbr_api_del_client(msg.client);
    forget_verdict(msg.client);
}

void client_mgr_send_disassoc_foreign_msg(uint8_t *payload) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    const assoc_notification &msg = *reinterpret_cast<const assoc_notification *>(payload);
    int32_t slot = -1;
    const client_info *client = find_client(msg.client, slot);
    if (client == nullptr) {
        return;
    }
    if (foreign_client_has_roamed(client->flag)) {
        CM_LOG(LOG_EVENT, "Frn client which has roamed. Don't remove");
        return;
    }
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(msg.bssid, &vap_idx) != 0) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in frn disassoc msg");
        return;
    }
    if (client->bssid_idx != static_cast<int32_t>(vap_idx)) {
        CM_LOG(LOG_ERROR, "Frn Disassoc from wrong vap, Don't remove");
        return;
    }
    client_mgr_send_foreign_client_update_msg(payload, CLIENT_MGR_FOREIGN_CLIENT_DISASSOC);
    client_tbl_drv_mac_delete(slot);
    log_bridge_delete(__func__, msg.client);
    client_mgr_captive_msg_send(msg.client, g_cfg.vaps[vap_idx].captive_cfg, CAPTIVE_MSG_FOREIGN_DISASSOCIATION);
    kxbr_api_del_client(msg.client);
}
