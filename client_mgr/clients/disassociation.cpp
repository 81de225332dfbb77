#include "client_mgr/clients/disassociation.h"

#include <syslog.h>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/client_updates.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/guest_entries.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kxbr_api.h"
#include "wire/ctrlr_messages.h"

namespace {

client_lookup find_leaving_client(const mac_address &client) {
    const client_lookup known = find_client(client);
    if (!known) {
        CM_LOG(LOG_EVENT, "Unable to find client");
    }
    return known;
}

// True for a client that only the controller reported and that did not roam to here, and for one that is at home here
// but on another VLAN by now. A client that roamed in from another VLAN (foreign and tunnelled) did leave.
bool foreign_client_has_roamed(uint32_t flag) {
    const bool local = (flag & CLIENT_FLAG_LOCAL) != 0;
    const bool foreign = (flag & CLIENT_FLAG_FOREIGN) != 0;
    const bool tunnel = (flag & CLIENT_FLAG_TUNNEL) != 0;
    return (foreign && !tunnel) || (local && tunnel);
}

void forget_verdict(const mac_address &client) {
    const acl_lookup verdict = find_acl_entry(client);
    if (!verdict) {
        return;
    }
    CM_LOG(LOG_TRACE, "client found in client manager acl cache " MAC_FMT, mac_arg(client));
    client_mgr_acl_drv_mac_delete(verdict.slot);
}

}  // namespace

void disassociate(const association &event) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    CM_LOG(LOG_EVENT, "Received dis-association msg");
    client_mgr_syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Disassociation " MAC_FMT " -- " MAC_FMT, mac_arg(event.bssid),
                      mac_arg(event.client));
    const client_lookup known = find_leaving_client(event.client);
    if (!known) {
        return;
    }
    if ((known.record->flag & (CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL)) != 0) {
        CM_LOG(LOG_EVENT, "Frn/Local L3 Roam client Don't remove");
        return;
    }
    const vap_lookup vap = find_vap(event.bssid);
    if (!vap) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in disassoc msg");
        return;
    }
    if (known.record->bssid_idx != vap.slot()) {
        CM_LOG(LOG_ERROR, "Disassoc from wrong vap, Don't remove");
        return;
    }
    send_client_update(event, CLIENT_MGR_CLIENT_DISASSOC);
    if ((known.record->flag & CLIENT_FLAG_GUEST) != 0 && vap->guest_count != 0) {
        remove_guest_entries(*vap, known.record->cl_ip, "Client disassociated, removing arp and route");
    }
    client_tbl_drv_mac_delete(known.slot);
    log_bridge_delete("client_mgr_send_disassoc_msg", event.client);
    client_mgr_captive_msg_send(event.client.bytes, make_captive_text(*vap).text, CAPTIVE_MSG_DISASSOCIATION);
    kxbr_api_del_client(event.client.bytes);
    forget_verdict(event.client);
}

void disassociate_foreign(const reassociation &event) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    const client_lookup known = find_leaving_client(event.client);
    if (!known) {
        return;
    }
    if (foreign_client_has_roamed(known.record->flag)) {
        CM_LOG(LOG_EVENT, "Frn client which has roamed. Don't remove");
        return;
    }
    const vap_lookup vap = find_vap(event.bssid);
    if (!vap) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in frn disassoc msg");
        return;
    }
    if (known.record->bssid_idx != vap.slot()) {
        CM_LOG(LOG_ERROR, "Frn Disassoc from wrong vap, Don't remove");
        return;
    }
    send_foreign_client_update(event, CLIENT_MGR_FOREIGN_CLIENT_DISASSOC);
    client_tbl_drv_mac_delete(known.slot);
    log_bridge_delete("client_mgr_send_disassoc_foreign_msg", event.client);
    client_mgr_captive_msg_send(event.client.bytes, make_captive_text(*vap).text, CAPTIVE_MSG_FOREIGN_DISASSOCIATION);
    kxbr_api_del_client(event.client.bytes);
}
