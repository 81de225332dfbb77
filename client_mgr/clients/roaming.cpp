#include "client_mgr/clients/roaming.h"

#include <syslog.h>

#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/client_fetch.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/client_updates.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/driver.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

namespace {

void report_invalid_bss(const reassociation &event) {
    client_mgr_syslog(LOG_USER | LOG_CRIT, "<clmgr> Proc Reassociation-Req " MAC_FMT " -- " MAC_FMT " [Invalid BSS]",
                      mac_arg(event.bssid), mac_arg(event.client));
    CM_LOG(LOG_ERROR, "Invalid ap bssid in foreign assoc msg");
}

// The VAP is on the client's home VLAN.
void make_home_client_again(client_info &client, const reassociation &event, bridge_entry &entry) {
    client.home_bssid = client.assoc_bssid;
    const uint32_t old_flag = client.flag;
    client.flag = CLIENT_FLAG_LOCAL | (old_flag & CLIENT_FLAG_PMK);
    if ((old_flag & CLIENT_FLAG_GUEST) != 0) {
        client.flag |= CLIENT_FLAG_GUEST;
        send_foreign_client_update(event, CLIENT_MGR_CLIENT_GUEST_ASSOC);
    }
    entry.device = "eth0";
    entry.ip = client.cl_ip;
}

void tunnel_to_home_vlan(client_info &client, bridge_entry &entry) {
    client.flag |= CLIENT_FLAG_TUNNEL;
    entry.device = "tun0";
    entry.tunnel = 1;
}

}  // namespace

void roam_in(reassociation &event) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    const client_lookup known = find_client(event.client);
    if (!known) {
        CM_LOG(LOG_EVENT, "Unable to find client, req cntlr");
        client_mgr_get_clinfo_frm_ctrlr(event.client.bytes, event.bssid.bytes, event.last_bssid.bytes,
                                        CLIENT_MGR_CLIENT_INFO_FETCH);
        return;
    }
    event.ip = known.record->cl_ip;
    client_mgr_syslog(LOG_USER | LOG_INFO,
                      "<clmgr> Proc Reassociation-Req " MAC_FMT " -- " MAC_FMT " [Last BSS " MAC_FMT "]",
                      mac_arg(event.bssid), mac_arg(event.client), mac_arg(event.last_bssid));
    client_info client = *known.record;
    const wipe_guard guard(client.pmk);
    const vap_lookup vap = find_vap(event.bssid);
    if (!vap) {
        report_invalid_bss(event);
        return;
    }
    const vap_ifname ifname = make_vap_ifname(vap->ifname);
    if ((client.flag & CLIENT_FLAG_GUEST) != 0 && vap.vlan() != client.home_vlan) {
        client_mgr_sta_disassoc(ifname.text, event.bssid.bytes, client.cl_mac.bytes, 1);
        return;
    }
    send_foreign_client_update(event, CLIENT_MGR_FOREIGN_CLIENT_ASSOC);
    client.assoc_bssid = event.bssid;
    client.bssid_idx = vap.slot();
    client.assoc_vlan = vap.vlan();
    bridge_entry entry = {.ifname = ifname.text, .device = nullptr, .ip = {}, .tunnel = 0};
    if (vap.vlan() == client.home_vlan) {
        make_home_client_again(client, event, entry);
    } else {
        tunnel_to_home_vlan(client, entry);
    }
    client_tbl_mac_update(&client, known.slot);
    bridge_add_client("client_mgr_send_assoc_foreign_msg", client, entry);
    client_mgr_captive_msg_send(event.client.bytes, make_captive_text(*vap).text, CAPTIVE_MSG_FOREIGN_ASSOCIATION);
}
