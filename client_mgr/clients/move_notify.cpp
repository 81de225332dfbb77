// The controller's word that a client roamed: away from here, or, for a client whose home is here, to another VLAN.

#include "client_mgr/clients/move_notify.h"

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

constexpr uint8_t kind_moved_away = 1;
constexpr uint8_t kind_moved = 2;
constexpr int reason_moved_away = 2;

// What the captive portal is told about a client that moved away: the bytes at the captive_cfg of the entry one past
// the VAP table, which lie in the stored controller message. As much is sent as the portal's field holds.
constexpr size_t moved_away_text_at = offsetof(client_mgr_cfg, vaps) + sizeof(client_mgr_cfg::vaps) +
                                      offsetof(vap_cfg, captive_cfg) - offsetof(client_mgr_cfg, ctrlr_msg_buf);
static_assert(moved_away_text_at == 38);
constexpr size_t moved_away_text_max = sizeof(captive_message::text) - 1;

int moved(const char *caller, const moved_body &body, const client_info &known, int32_t slot) {
    client_info client = known;
    const wipe_guard guard(client.pmk);
    if ((client.flag & CLIENT_FLAG_LOCAL) == 0) {
        CM_LOG(LOG_EVENT, "Not a local client, but update rcvd");
        return -1;
    }
    memcpy(client.assoc_bssid.bytes, body.new_bssid, sizeof client.assoc_bssid);
    client.assoc_vlan = body.new_vlan;
    // One byte on the wire: a home VLAN above 255 never matches. On a match nothing is stored, not even the BSSID.
    if (client.assoc_vlan == client.home_vlan) {
        return 0;
    }
    client.flag |= CLIENT_FLAG_TUNNEL;
    kxbr_api_add_client(client.cl_mac.bytes, "tun0", "eth0", static_cast<uint32_t>(client.home_vlan), 0, 0);
    client_tbl_mac_update(&client, slot);
    log_bridge_add(caller, client);
    return 0;
}

int moved_away(const char *caller, const move_notify_body &body, const client_info &known, int32_t slot) {
    uint8_t bssid[6];
    memcpy(bssid, known.assoc_bssid.bytes, sizeof bssid);
    CM_LOG(LOG_EVENT, "CUR BSSID : " MAC_FMT, MAC_ARG(bssid));
    for (const vap_cfg &vap : g_cfg.vaps) {
        if (memcmp(vap.bssid, bssid, sizeof bssid) != 0) {
            continue;
        }
        const vap_ifname ifname = make_vap_ifname(vap.ifname);
        CM_LOG(LOG_EVENT, "VAP If   : %s", ifname.text);
        client_mgr_sta_disassoc(ifname.text, vap.bssid, body.client, reason_moved_away);
    }
    client_tbl_drv_mac_delete(slot);
    log_bridge_delete(caller, body.client);
    captive_msg_send(body.client, reinterpret_cast<const char *>(g_cfg.ctrlr_msg_buf + moved_away_text_at),
                     moved_away_text_max, CAPTIVE_MSG_DISASSOCIATION);
    kxbr_api_del_client(body.client);
    return 0;
}

}  // namespace

int client_mgr_process_move_notify(uint8_t *rec) {
    const auto *body = ctrlr_body<move_notify_body>(rec);
    if (body == nullptr) {
        return -1;
    }
    CM_LOG(LOG_EVENT, "Client MAC : " MAC_FMT, MAC_ARG(body->client));
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(body->client, &slot);
    if (known == nullptr) {
        CM_LOG(LOG_ERROR, "Client not present in AP");
        return -1;
    }
    if (body->kind == kind_moved_away) {
        return moved_away(__func__, *body, *known, slot);
    }
    if (body->kind != kind_moved) {
        return 0;
    }
    const auto *full_body = ctrlr_body<moved_body>(rec);
    return full_body != nullptr ? moved(__func__, *full_body, *known, slot) : -1;
}
