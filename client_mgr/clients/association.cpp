#include "client_mgr/clients/association.h"

#include <syslog.h>

#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/clients/client_record.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/client_updates.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

namespace {

void report_invalid_bss(const association &event) {
    client_mgr_syslog(LOG_USER | LOG_CRIT, "<clmgr> Proc Association-Req " MAC_FMT " -- " MAC_FMT " [Invalid BSS]",
                      mac_arg(event.bssid), mac_arg(event.client));
    CM_LOG(LOG_ERROR, "Invalid ap bssid in assoc msg");
}

// A client that is on the VAP already keeps its address.
void recall_ip(association &event, const vap_lookup &vap) {
    const client_lookup known = find_client(event.client);
    if (!known || known.record->bssid_idx != vap.slot()) {
        return;
    }
    CM_LOG(LOG_EVENT, "Client already present in same BSS, might be already assocaited " MAC_FMT,
           mac_arg(event.client));
    event.ip = known.record->cl_ip;
}

}  // namespace

void associate(association &event) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    CM_LOG(LOG_EVENT, "Received association msg");
    event.ip = 0;
    client_mgr_syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Association-Req " MAC_FMT " -- " MAC_FMT, mac_arg(event.bssid),
                      mac_arg(event.client));
    const vap_lookup vap = find_vap(event.bssid);
    if (!vap) {
        report_invalid_bss(event);
        return;
    }
    recall_ip(event, vap);
    send_client_update(event, CLIENT_MGR_CLIENT_ASSOC);
    client_info client = make_home_client(event.client, event.bssid, vap);
    client.cl_ip = event.ip;
    if (vap->vap_attr != 0) {
        client.flag |= CLIENT_FLAG_GUEST;
        send_client_update(event, CLIENT_MGR_CLIENT_GUEST_ASSOC);
    }
    client_tbl_mac_update(&client, -1);
    const vap_ifname ifname = make_vap_ifname(vap->ifname);
    bridge_add_client("client_mgr_send_assoc_msg", client,
                      {.ifname = ifname.text, .device = "eth0", .ip = client.cl_ip, .tunnel = 0});
    client_mgr_captive_msg_send(event.client.bytes, make_captive_text(*vap).text, CAPTIVE_MSG_ASSOCIATION);
}
