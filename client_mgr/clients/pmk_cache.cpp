// PMKs shared between the access points of a network, through the controller.

#include "client_mgr/clients/pmk_cache.h"

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/pmk_text.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/foreign_association.h"
#include "client_mgr/clients/vap_config.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/hostapd_notify.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace {

constexpr int ignored = 2;

int send_pmk_add(const pmk_info_message &msg) {
    auto add = make_ctrlr_msg<client_key_message>(CLIENT_MGR_PMK_ADD);
    memcpy(add.client, msg.client, sizeof add.client);
    memcpy(add.bssid, msg.bssid, sizeof add.bssid);
    const wipe_guard guard(add.pmk);
    memcpy(add.pmk, msg.pmk, sizeof add.pmk);
    return client_mgr_send_apcomm_msg(&add, sizeof add);
}

// A client that hostapd has a key for before it reports the association.
client_info make_client(const pmk_info_message &msg, uint32_t vap_idx) {
    const auto vlan = static_cast<int32_t>(g_cfg.vaps[vap_idx].vlan);
    client_info client = {};
    memcpy(client.cl_mac.bytes, msg.client, sizeof client.cl_mac);
    memcpy(client.home_bssid.bytes, msg.bssid, sizeof client.home_bssid);
    memcpy(client.assoc_bssid.bytes, msg.bssid, sizeof client.assoc_bssid);
    client.home_vlan = vlan;
    client.assoc_vlan = vlan;
    client.bssid_idx = static_cast<int32_t>(vap_idx);
    client.flag = CLIENT_FLAG_LOCAL;
    return client;
}

}  // namespace

int client_mgr_handle_pmk_info(uint8_t *payload) {
    const wipe_guard guard(reinterpret_cast<pmk_info_message *>(payload)->pmk);
    if (!client_mgr_ctrlr_ready()) {
        return ignored;
    }
    switch (reinterpret_cast<const pmk_info_message *>(payload)->sub_type) {
        case HOSTAPD_PMK_FETCH:
            CM_LOG(LOG_EVENT, "HOSTAPD_PMK_FETCH rcvd");
            return client_mgr_handle_pmk_fetch(payload);
        case HOSTAPD_PMK_ADD:
            CM_LOG(LOG_EVENT, "HOSTAPD_PMK_ADD rcvd");
            return client_mgr_handle_pmk_add(payload);
        default:
            return ignored;
    }
}

int client_mgr_handle_pmk_add(uint8_t *payload) {
    const pmk_info_message &msg = *reinterpret_cast<const pmk_info_message *>(payload);
    CM_LOG(LOG_EVENT, "Received PMK add msg");
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, MAC_ARG(msg.client));
    CM_LOG(LOG_EVENT, "Cur BSSID " MAC_FMT, MAC_ARG(msg.bssid));
    CM_LOG(LOG_EVENT, "Cur PMK %s", pmk_to_text(msg.pmk, 24).text);
    wipe_stack_below();  // where the line was put together
    if (send_pmk_add(msg) != 0) {
        // The foreign client's text serves here as well, and so does the association's below.
        CM_LOG(LOG_ERROR, "Error sending Foreign Client Update");
        return -1;
    }
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(msg.bssid, &vap_idx) != 0) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in assoc msg");
        return -1;
    }
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(msg.client, &slot);
    if (known != nullptr) {
        CM_LOG(LOG_EVENT, "Client already present in local tbl");
    } else {
        CM_LOG(LOG_EVENT, "Client not present in local tbl, adding");
    }
    client_info client = known != nullptr ? *known : make_client(msg, vap_idx);
    const wipe_guard guard(client.pmk);
    memcpy(client.pmk, msg.pmk, sizeof client.pmk);
    client.flag |= CLIENT_FLAG_PMK;
    client_tbl_mac_update(&client, slot);
    return 0;
}

int client_mgr_handle_pmk_fetch(uint8_t *payload) {
    pmk_info_message &msg = *reinterpret_cast<pmk_info_message *>(payload);
    CM_LOG(LOG_EVENT, "Received PMK fetch msg");
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, MAC_ARG(msg.client));
    CM_LOG(LOG_EVENT, "Cur BSSID " MAC_FMT, MAC_ARG(msg.bssid));
    CM_LOG(LOG_EVENT, "Prev BSSID " MAC_FMT, MAC_ARG(msg.prev_bssid));
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(msg.client, &slot);
    if (known != nullptr && (known->flag & CLIENT_FLAG_PMK) != 0) {
        CM_LOG(LOG_EVENT, "Client with PMK already present in local tbl");
        memcpy(msg.pmk, known->pmk, sizeof msg.pmk);
        msg.sub_type = HOSTAPD_PMK_FETCH_RESP;
        return client_mgr_notify_hostapd(&msg);
    }
    // The current BSSID twice: the controller is not told where the client came from.
    return client_mgr_get_clinfo_frm_ctrlr(msg.client, msg.bssid, msg.bssid, CLIENT_MGR_PMK_FETCH);
}
