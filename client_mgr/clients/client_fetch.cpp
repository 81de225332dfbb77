#include "client_mgr/clients/client_fetch.h"

#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/client_record.h"
#include "client_mgr/clients/roaming.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/hostapd_notify.h"

int client_mgr_get_clinfo_frm_ctrlr(const uint8_t *mac, const uint8_t *bssid, const uint8_t *last_bssid, uint8_t type) {
    const vap_lookup vap = find_vap(mac_at(bssid));
    if (!vap) {
        // The text of the association.
        CM_LOG(LOG_ERROR, "Invalid ap bssid in assoc msg");
        return -1;
    }
    const client_lookup known = find_client(mac_at(mac));
    if (!known) {
        const client_info client = make_placeholder(mac_at(mac), mac_at(bssid), mac_at(last_bssid), vap);
        client_tbl_mac_update(&client, known.slot);
    }
    auto msg = make_ctrlr_msg<client_key_message>(type);
    msg.client = mac_at(mac);
    msg.bssid = mac_at(bssid);
    if (client_mgr_send_apcomm_msg(&msg, sizeof msg) != 0) {
        CM_LOG(LOG_ERROR, "Error sending Foreign Client Update");
        return -1;
    }
    return 0;
}

void install_pmk(const client_entry &entry, const client_lookup &known) {
    if ((entry.flags & CLIENT_ENTRY_PMK) == 0) {
        return;
    }
    client_info client = *known.record;
    const wipe_guard client_guard(client.pmk);
    memcpy(client.pmk, entry.pmk, sizeof client.pmk);
    client.flag |= CLIENT_FLAG_PMK;
    client_tbl_mac_update(&client, known.slot);
    pmk_info_message msg = {};
    const wipe_guard msg_guard(msg.pmk);
    msg.sub_type = HOSTAPD_PMK_FETCH_RESP;
    msg.bssid = entry.bssid;
    msg.client = entry.client;
    memcpy(msg.pmk, entry.pmk, sizeof msg.pmk);
    client_mgr_notify_hostapd(&msg);
}

bool complete_roam(const client_entry &entry, const client_lookup &known) {
    // The home BSSID of a placeholder is the BSS that the client came from.
    reassociation event = {
        .client = entry.client, .bssid = entry.bssid, .last_bssid = known.record->home_bssid, .ip = {}};
    const vap_lookup vap = find_vap(entry.bssid);
    if (!vap) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in fetch client info msg");
        return false;
    }
    client_info client = make_fetched_client(entry, vap);
    const wipe_guard guard(client.pmk);
    client_tbl_mac_update(&client, -1);
    roam_in(event);
    return true;
}
