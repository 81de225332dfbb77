// Lists of clients that the controller hands over or has forgotten. The two handlers differ on purpose: in the reason
// of the disassociation, in whether the search stops at the first VAP with the client's BSSID, and in whether a zero
// BSSID is one.

#include "client_mgr/clients/ctrlr_sync.h"

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/vap_config.h"
#include "client_mgr/dispatch/ctrlr_record.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/sta_ctrl.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kxbr_api.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace {

constexpr int reason_handed_over = 0;
constexpr int reason_removed = 2;

bool is_zero(const uint8_t bssid[6]) {
    constexpr uint8_t zero[6] = {};
    return memcmp(bssid, zero, sizeof zero) == 0;
}

bool is_on(const vap_cfg &vap, const uint8_t bssid[6]) { return memcmp(vap.bssid, bssid, sizeof vap.bssid) == 0; }

void turn_away(const vap_cfg &vap, const uint8_t mac[6], int reason) {
    client_mgr_sta_disassoc(make_vap_ifname(vap.ifname).text, vap.bssid, mac, reason);
    client_mgr_captive_msg_send(mac, vap.captive_cfg, CAPTIVE_MSG_DISASSOCIATION);
}

// A client that is on one of our VAPs, valid or not, is sent away: the controller knows it elsewhere.
void hand_over(const uint8_t mac[6]) {
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(mac, &slot);
    if (known == nullptr || is_zero(known->assoc_bssid.bytes)) {
        return;
    }
    for (const vap_cfg &vap : g_cfg.vaps) {
        if (!is_on(vap, known->assoc_bssid.bytes)) {
            continue;
        }
        turn_away(vap, mac, reason_handed_over);
        client_tbl_drv_mac_delete(slot);
        kxbr_api_del_client(mac);
        return;
    }
}

client_info make_foreign_client(const client_entry &entry) {
    client_info client = {};
    memcpy(client.cl_mac.bytes, entry.client, sizeof client.cl_mac);
    memcpy(client.home_bssid.bytes, entry.home_bssid, sizeof client.home_bssid);
    client.home_vlan = static_cast<int32_t>(uint32_t{entry.home_vlan});
    memcpy(client.cl_ip, entry.ip, sizeof client.cl_ip);
    memcpy(client.pmk, entry.pmk, sizeof client.pmk);
    client.flag = CLIENT_FLAG_FOREIGN;
    if ((entry.flags & CLIENT_ENTRY_PMK) != 0) {
        client.flag |= CLIENT_FLAG_PMK;
    }
    if ((entry.flags & CLIENT_ENTRY_GUEST) != 0) {
        client.flag |= CLIENT_FLAG_GUEST;
    }
    return client;
}

void remove_client(const char *caller, const uint8_t mac[6]) {
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(mac, &slot);
    if (known == nullptr) {
        CM_LOG(LOG_EVENT, "Unable to find client " MAC_FMT, MAC_ARG(mac));
        return;
    }
    for (const vap_cfg &vap : g_cfg.vaps) {
        if (is_on(vap, known->assoc_bssid.bytes)) {
            turn_away(vap, mac, reason_removed);
        }
    }
    client_tbl_drv_mac_delete(slot);
    log_bridge_delete(caller, mac);
    kxbr_api_del_client(mac);
}

}  // namespace

int client_mgr_proc_bulk_info(uint8_t *rec) {
    client_entries entries(rec);
    if (!entries.valid()) {
        return 0;
    }
    CM_LOG(LOG_EVENT, "NUM OF CLIENT INFO: %d", static_cast<int>(entries.count()));
    while (const client_entry *entry = entries.next()) {
        hand_over(entry->client);
        client_info client = make_foreign_client(*entry);
        const wipe_guard guard(client.pmk);
        client_tbl_mac_update(&client, -1);
        CM_LOG(LOG_EVENT, "Added cl:" MAC_FMT " Home bssid:" MAC_FMT " home_vlan %d", MAC_ARG(client.cl_mac.bytes),
               MAC_ARG(client.home_bssid.bytes), client.home_vlan);
    }
    return 0;
}

int client_mgr_proc_remove_cl_bulk_info(uint8_t *rec) {
    client_entries entries(rec);
    if (!entries.valid()) {
        return 0;
    }
    CM_LOG(LOG_EVENT, "NUM OF DEL CLIENT INFO: %d", static_cast<int>(entries.count()));
    while (const client_entry *entry = entries.next()) {
        remove_client(__func__, entry->client);
    }
    return 0;
}
