#include "client_mgr/clients/move_notify.h"

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/driver.h"
#include "kx/kxbr_api.h"
#include "wire/local_messages.h"

namespace {

constexpr char caller[] = "client_mgr_process_move_notify";
constexpr int reason_moved_away = 2;

// The system sends the captive text of VAP 16, which is one past the table. That place is byte 38 of the controller
// message in hand.
constexpr size_t text_of_vap_16 = 38;
static_assert(offsetof(client_mgr_cfg, ctrlr_msg_buf) + text_of_vap_16 ==
              offsetof(client_mgr_cfg, vaps) + CLIENT_MGR_MAX_VAPS * sizeof(vap_cfg) + offsetof(vap_cfg, captive_cfg));

}  // namespace

void client_moved_away(const client_lookup &known) {
    const mac_address client = known.record->cl_mac;
    const mac_address bssid = known.record->assoc_bssid;
    CM_LOG(LOG_EVENT, "CUR BSSID : " MAC_FMT, mac_arg(bssid));
    for (const vap_cfg &vap : g_cfg.vaps) {
        if (vap.bssid != bssid) {
            continue;
        }
        const vap_ifname ifname = make_vap_ifname(vap.ifname);
        CM_LOG(LOG_EVENT, "VAP If   : %s", ifname.text);
        client_mgr_sta_disassoc(ifname.text, vap.bssid.bytes, client.bytes, reason_moved_away);
    }
    client_tbl_drv_mac_delete(known.slot);
    log_bridge_delete(caller, client);
    client_mgr_captive_msg_send(client.bytes, reinterpret_cast<const char *>(g_cfg.ctrlr_msg_buf + text_of_vap_16),
                                CAPTIVE_MSG_DISASSOCIATION);
    kxbr_api_del_client(client.bytes);
}

int client_moved(const client_lookup &known, const mac_address &new_bssid, uint8_t new_vlan) {
    client_info client = *known.record;
    const wipe_guard guard(client.pmk);
    if ((client.flag & CLIENT_FLAG_LOCAL) == 0) {
        CM_LOG(LOG_EVENT, "Not a local client, but update rcvd");
        return -1;
    }
    client.assoc_bssid = new_bssid;
    client.assoc_vlan = new_vlan;
    // One byte in the message: a home VLAN above 255 never matches. On a match nothing is stored, not even the BSSID.
    if (client.assoc_vlan == client.home_vlan) {
        return 0;
    }
    client.flag |= CLIENT_FLAG_TUNNEL;
    kxbr_api_add_client(client.cl_mac.bytes, "tun0", "eth0", static_cast<uint32_t>(client.home_vlan), 0, 0);
    client_tbl_mac_update(&client, known.slot);
    log_bridge_add(caller, client);
    return 0;
}
