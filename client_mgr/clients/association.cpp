

#include "client_mgr/clients/association.h"

#include <syslog.h>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/clients/vap_config.h"
#include "client_mgr/dispatch/ctrlr_record.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace {

// Whatever was known of the client, it is a home client of this VAP now.
client_info make_home_client(const assoc_notification &msg, uint32_t vap_idx) {
    const vap_cfg &vap = g_cfg.vaps[vap_idx];
    client_info client = {};
    memcpy(client.cl_mac.bytes, msg.client, sizeof client.cl_mac);
    memcpy(client.home_bssid.bytes, msg.bssid, sizeof client.home_bssid);
    memcpy(client.assoc_bssid.bytes, msg.bssid, sizeof client.assoc_bssid);
    client.home_vlan = static_cast<int32_t>(vap.vlan);
    client.assoc_vlan = static_cast<int32_t>(vap.vlan);
    memcpy(client.cl_ip, msg.ip.bytes, sizeof client.cl_ip);
    client.bssid_idx = static_cast<int32_t>(vap_idx);
    client.flag = vap.vap_attr != 0 ? CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST : CLIENT_FLAG_LOCAL;
    return client;
}

// A client that is already on the VAP keeps the address it was given.
void recall_ip(assoc_notification &msg, uint32_t vap_idx) {
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(msg.client, &slot);
    if (known == nullptr || known->bssid_idx != static_cast<int32_t>(vap_idx)) {
        return;
    }
    CM_LOG(LOG_EVENT, "Client already present in same BSS, might be already assocaited " MAC_FMT, MAC_ARG(msg.client));
    memcpy(msg.ip.bytes, known->cl_ip, sizeof msg.ip);
}

}  // namespace

void client_mgr_send_assoc_msg(uint8_t *payload) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    CM_LOG(LOG_EVENT, "Received association msg");
    assoc_notification &msg = *reinterpret_cast<assoc_notification *>(payload);
    msg.ip = 0;
    client_mgr_syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Association-Req " MAC_FMT " -- " MAC_FMT, MAC_ARG(msg.bssid),
                      MAC_ARG(msg.client));
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(msg.bssid, &vap_idx) != 0) {
        client_mgr_syslog(LOG_USER | LOG_CRIT, "<clmgr> Proc Association-Req " MAC_FMT " -- " MAC_FMT " [Invalid BSS]",
                          MAC_ARG(msg.bssid), MAC_ARG(msg.client));
        CM_LOG(LOG_ERROR, "Invalid ap bssid in assoc msg");
        return;
    }
    recall_ip(msg, vap_idx);
    client_mgr_send_client_update_msg(payload, CLIENT_MGR_CLIENT_ASSOC);
    const client_info client = make_home_client(msg, vap_idx);
    if ((client.flag & CLIENT_FLAG_GUEST) != 0) {
        client_mgr_send_client_update_msg(payload, CLIENT_MGR_CLIENT_GUEST_ASSOC);
    }
    client_tbl_mac_update(&client, -1);
    const vap_cfg &vap = g_cfg.vaps[vap_idx];
    const vap_ifname ifname = make_vap_ifname(vap.ifname);
    bridge_entry entry = {.ifname = ifname.text, .device = "eth0", .ip = {}, .tunnel = 0};
    memcpy(entry.ip, client.cl_ip, sizeof entry.ip);
    bridge_add_client(__func__, client, entry);
    client_mgr_captive_msg_send(msg.client, vap.captive_cfg, CAPTIVE_MSG_ASSOCIATION);
}

int client_mgr_treat_unkn_as_assoc(uint8_t *rec) {
    client_entries entries(rec);
    if (!entries.valid()) {
        return 0;
    }
    CM_LOG(LOG_EVENT, "NUM OF CLIENT INFO: %d", static_cast<int>(entries.count()));
    while (const client_entry *entry = entries.next()) {
        assoc_notification msg = {};
        memcpy(msg.client, entry->client, sizeof msg.client);
        memcpy(msg.bssid, entry->bssid, sizeof msg.bssid);
        client_mgr_send_assoc_msg(reinterpret_cast<uint8_t *>(&msg));
    }
    return 0;
}

void client_mgr_send_client_update_msg(const uint8_t *payload, uint8_t type) {
    const assoc_notification &src = *reinterpret_cast<const assoc_notification *>(payload);
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, MAC_ARG(src.client));
    CM_LOG(LOG_EVENT, "To BSSID " MAC_FMT, MAC_ARG(src.bssid));
    CM_LOG(LOG_EVENT, "Client IP 0x%08x", uint32_t{src.ip});
    auto msg = make_ctrlr_msg<client_update_message>(type);
    memcpy(msg.client, src.client, sizeof msg.client);
    memcpy(msg.bssid, src.bssid, sizeof msg.bssid);
    msg.ip = src.ip;
    if (client_mgr_send_apcomm_msg(&msg, sizeof msg) != 0) {
        CM_LOG(LOG_ERROR, "Error sending Client Update");
    }
}
