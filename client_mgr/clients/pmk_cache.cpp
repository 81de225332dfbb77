#include "client_mgr/clients/pmk_cache.h"

#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/base/pmk_text.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/client_fetch.h"
#include "client_mgr/clients/client_record.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/hostapd_notify.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

namespace {

int send_pmk_add(const pmk_info_message &msg) {
    auto add = make_ctrlr_msg<client_key_message>(CLIENT_MGR_PMK_ADD);
    add.client = msg.client;
    add.bssid = msg.bssid;
    const wipe_guard guard(add.pmk);
    memcpy(add.pmk, msg.pmk, sizeof add.pmk);
    return client_mgr_send_apcomm_msg(&add, sizeof add);
}

// The one line that may show a key.
void log_pmk(const pmk_info_message &msg) {
    CM_LOG(LOG_EVENT, "Cur PMK %s", pmk_to_text(msg.pmk, 24).text);
    wipe_stack_below();  // where the line was put together
}

// hostapd may have a client's key before it reports the association.
void store_pmk(const pmk_info_message &msg, const vap_lookup &vap) {
    const client_lookup known = find_client(msg.client);
    if (known) {
        CM_LOG(LOG_EVENT, "Client already present in local tbl");
    } else {
        CM_LOG(LOG_EVENT, "Client not present in local tbl, adding");
    }
    client_info client = known ? *known.record : make_home_client(msg.client, msg.bssid, vap);
    const wipe_guard guard(client.pmk);
    memcpy(client.pmk, msg.pmk, sizeof client.pmk);
    client.flag |= CLIENT_FLAG_PMK;
    client_tbl_mac_update(&client, known.slot);
}

}  // namespace

int add_pmk(const pmk_info_message &msg) {
    CM_LOG(LOG_EVENT, "Received PMK add msg");
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, mac_arg(msg.client));
    CM_LOG(LOG_EVENT, "Cur BSSID " MAC_FMT, mac_arg(msg.bssid));
    log_pmk(msg);
    if (send_pmk_add(msg) != 0) {
        // The text of the foreign client's update; the one below is the association's.
        CM_LOG(LOG_ERROR, "Error sending Foreign Client Update");
        return -1;
    }
    const vap_lookup vap = find_vap(msg.bssid);
    if (!vap) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in assoc msg");
        return -1;
    }
    store_pmk(msg, vap);
    return 0;
}

int fetch_pmk(pmk_info_message &msg) {
    CM_LOG(LOG_EVENT, "Received PMK fetch msg");
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, mac_arg(msg.client));
    CM_LOG(LOG_EVENT, "Cur BSSID " MAC_FMT, mac_arg(msg.bssid));
    CM_LOG(LOG_EVENT, "Prev BSSID " MAC_FMT, mac_arg(msg.prev_bssid));
    const client_lookup known = find_client(msg.client);
    if (known && (known.record->flag & CLIENT_FLAG_PMK) != 0) {
        CM_LOG(LOG_EVENT, "Client with PMK already present in local tbl");
        memcpy(msg.pmk, known.record->pmk, sizeof msg.pmk);
        msg.sub_type = HOSTAPD_PMK_FETCH_RESP;
        return client_mgr_notify_hostapd(&msg);
    }
    // The current BSSID twice: the previous one is not passed on.
    return client_mgr_get_clinfo_frm_ctrlr(msg.client.bytes, msg.bssid.bytes, msg.bssid.bytes, CLIENT_MGR_PMK_FETCH);
}
