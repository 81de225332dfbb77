#include "client_mgr/clients/ctrlr_sync.h"

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/client_record.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/driver.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kxbr_api.h"
#include "wire/local_messages.h"

namespace {

constexpr int reason_handed_over = 0;
constexpr int reason_removed = 2;

void turn_away(const vap_cfg &vap, const mac_address &client, int reason) {
    client_mgr_sta_disassoc(make_vap_ifname(vap.ifname).text, vap.bssid.bytes, client.bytes, reason);
    client_mgr_captive_msg_send(client.bytes, make_captive_text(vap).text, CAPTIVE_MSG_DISASSOCIATION);
}

// Disassociates a client that is on one of our VAPs, valid or not, because the controller has it elsewhere.
void hand_over(const mac_address &client) {
    const client_lookup known = find_client(client);
    if (!known || known.record->assoc_bssid == mac_address{}) {
        return;
    }
    for (const vap_cfg &vap : g_cfg.vaps) {
        if (vap.bssid != known.record->assoc_bssid) {
            continue;
        }
        turn_away(vap, client, reason_handed_over);
        client_tbl_drv_mac_delete(known.slot);
        kxbr_api_del_client(client.bytes);
        return;
    }
}

}  // namespace

void take_over_from_controller(const client_entry &entry) {
    hand_over(entry.client);
    client_info client = make_listed_client(entry);
    const wipe_guard guard(client.pmk);
    client_tbl_mac_update(&client, -1);
    CM_LOG(LOG_EVENT, "Added cl:" MAC_FMT " Home bssid:" MAC_FMT " home_vlan %d", mac_arg(client.cl_mac),
           mac_arg(client.home_bssid), client.home_vlan);
}

void remove_client(const mac_address &mac) {
    const client_lookup known = find_client(mac);
    if (!known) {
        CM_LOG(LOG_EVENT, "Unable to find client " MAC_FMT, mac_arg(mac));
        return;
    }
    for (const vap_cfg &vap : g_cfg.vaps) {
        if (vap.bssid == known.record->assoc_bssid) {
            turn_away(vap, mac, reason_removed);
        }
    }
    client_tbl_drv_mac_delete(known.slot);
    log_bridge_delete("client_mgr_proc_remove_cl_bulk_info", mac);
    kxbr_api_del_client(mac.bytes);
}
