// A client that roams in from another access point.

#include "client_mgr/clients/foreign_association.h"

#include <syslog.h>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/vap_config.h"
#include "client_mgr/dispatch/ctrlr_record.h"
#include "client_mgr/neighbours/bridge.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/neighbours/hostapd_notify.h"
#include "client_mgr/neighbours/sta_ctrl.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace {

void report_invalid_bss(const foreign_assoc_notification &msg) {
    client_mgr_syslog(LOG_USER | LOG_CRIT, "<clmgr> Proc Reassociation-Req " MAC_FMT " -- " MAC_FMT " [Invalid BSS]",
                      MAC_ARG(msg.bssid), MAC_ARG(msg.client));
    CM_LOG(LOG_ERROR, "Invalid ap bssid in foreign assoc msg");
}

// The VAP carries the client's home VLAN: it becomes a home client of the VAP.
void take_over(client_info &client, uint8_t *payload, bridge_entry &entry) {
    client.home_bssid = client.assoc_bssid;
    const uint32_t old_flag = client.flag;
    client.flag = CLIENT_FLAG_LOCAL | (old_flag & CLIENT_FLAG_PMK);
    if ((old_flag & CLIENT_FLAG_GUEST) != 0) {
        client.flag |= CLIENT_FLAG_GUEST;
        client_mgr_send_foreign_client_update_msg(payload, CLIENT_MGR_CLIENT_GUEST_ASSOC);
    }
    entry.device = "eth0";
    memcpy(entry.ip, client.cl_ip, sizeof entry.ip);
}

// The VAP is on another VLAN: the client's traffic is carried to its home VLAN.
void tunnel_home(client_info &client, bridge_entry &entry) {
    client.flag |= CLIENT_FLAG_TUNNEL;
    entry.device = "tun0";
    entry.tunnel = 1;
}

client_info make_placeholder(const uint8_t *mac, const uint8_t *bssid, const uint8_t *last_bssid, uint32_t vap_idx) {
    const auto vlan = static_cast<int32_t>(g_cfg.vaps[vap_idx].vlan);
    client_info client = {};
    memcpy(client.cl_mac.bytes, mac, sizeof client.cl_mac);
    memcpy(client.home_bssid.bytes, last_bssid, sizeof client.home_bssid);
    memcpy(client.assoc_bssid.bytes, bssid, sizeof client.assoc_bssid);
    client.home_vlan = vlan;
    client.assoc_vlan = vlan;
    client.bssid_idx = static_cast<int32_t>(vap_idx);
    client.flag = CLIENT_FLAG_FOREIGN;
    return client;
}

// The controller's answer to a PMK fetch.
void install_pmk(const client_entry &entry, const client_info &known, int32_t slot) {
    if ((entry.flags & CLIENT_ENTRY_PMK) == 0) {
        return;
    }
    client_info client = known;
    const wipe_guard client_guard(client.pmk);
    memcpy(client.pmk, entry.pmk, sizeof client.pmk);
    client.flag |= CLIENT_FLAG_PMK;
    client_tbl_mac_update(&client, slot);
    pmk_info_message msg = {};
    const wipe_guard msg_guard(msg.pmk);
    msg.sub_type = HOSTAPD_PMK_FETCH_RESP;
    memcpy(msg.bssid, entry.bssid, sizeof msg.bssid);
    memcpy(msg.client, entry.client, sizeof msg.client);
    memcpy(msg.pmk, entry.pmk, sizeof msg.pmk);
    client_mgr_notify_hostapd(&msg);
}

// The controller's answer to a client information fetch: restores the client's home data and replays the
// re-association that asked for it. False when the entry's BSSID is not ours.
bool complete_roam(const client_entry &entry, const client_info &known) {
    foreign_assoc_notification msg = {};
    memcpy(msg.client, entry.client, sizeof msg.client);
    memcpy(msg.bssid, entry.bssid, sizeof msg.bssid);
    // Of a placeholder, the BSS that the client came from.
    memcpy(msg.last_bssid, known.home_bssid.bytes, sizeof msg.last_bssid);
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(entry.bssid, &vap_idx) != 0) {
        CM_LOG(LOG_ERROR, "Invalid ap bssid in fetch client info msg");
        return false;
    }
    client_info client = {};
    const wipe_guard guard(client.pmk);
    memcpy(client.cl_mac.bytes, entry.client, sizeof client.cl_mac);
    memcpy(client.home_bssid.bytes, entry.home_bssid, sizeof client.home_bssid);
    memcpy(client.assoc_bssid.bytes, entry.bssid, sizeof client.assoc_bssid);
    client.home_vlan = static_cast<int32_t>(uint32_t{entry.home_vlan});
    client.assoc_vlan = static_cast<int32_t>(g_cfg.vaps[vap_idx].vlan);
    memcpy(client.cl_ip, entry.ip, sizeof client.cl_ip);
    if ((entry.flags & CLIENT_ENTRY_PMK) != 0) {
        memcpy(client.pmk, entry.pmk, sizeof client.pmk);
    }
    // With the PMK bit whether or not the entry brought one; the VAP index is the replay's to set.
    client.flag = CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK;
    client_tbl_mac_update(&client, -1);
    client_mgr_send_assoc_foreign_msg(reinterpret_cast<uint8_t *>(&msg));
    return true;
}

}  // namespace

void client_mgr_send_assoc_foreign_msg(uint8_t *payload) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    foreign_assoc_notification &msg = *reinterpret_cast<foreign_assoc_notification *>(payload);
    int32_t slot = -1;
    const client_info *known = client_tbl_client_get_fast(msg.client, &slot);
    if (known == nullptr) {
        CM_LOG(LOG_EVENT, "Unable to find client, req cntlr");
        client_mgr_get_clinfo_frm_ctrlr(msg.client, msg.bssid, msg.last_bssid, CLIENT_MGR_CLIENT_INFO_FETCH);
        return;
    }
    memcpy(msg.ip.bytes, known->cl_ip, sizeof msg.ip);
    client_mgr_syslog(LOG_USER | LOG_INFO,
                      "<clmgr> Proc Reassociation-Req " MAC_FMT " -- " MAC_FMT " [Last BSS " MAC_FMT "]",
                      MAC_ARG(msg.bssid), MAC_ARG(msg.client), MAC_ARG(msg.last_bssid));
    client_info client = *known;
    const wipe_guard guard(client.pmk);
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(msg.bssid, &vap_idx) != 0) {
        report_invalid_bss(msg);
        return;
    }
    const vap_cfg &vap = g_cfg.vaps[vap_idx];
    const vap_ifname ifname = make_vap_ifname(vap.ifname);
    const auto vlan = static_cast<int32_t>(vap.vlan);
    if ((client.flag & CLIENT_FLAG_GUEST) != 0 && vlan != client.home_vlan) {
        client_mgr_sta_disassoc(ifname.text, msg.bssid, client.cl_mac.bytes, 1);
        return;
    }
    client_mgr_send_foreign_client_update_msg(payload, CLIENT_MGR_FOREIGN_CLIENT_ASSOC);
    memcpy(client.assoc_bssid.bytes, msg.bssid, sizeof client.assoc_bssid);
    client.bssid_idx = static_cast<int32_t>(vap_idx);
    client.assoc_vlan = vlan;
    bridge_entry entry = {.ifname = ifname.text, .device = nullptr, .ip = {}, .tunnel = 0};
    if (vlan == client.home_vlan) {
        take_over(client, payload, entry);
    } else {
        tunnel_home(client, entry);
    }
    client_tbl_mac_update(&client, slot);
    bridge_add_client(__func__, client, entry);
    client_mgr_captive_msg_send(msg.client, vap.captive_cfg, CAPTIVE_MSG_FOREIGN_ASSOCIATION);
}

int client_mgr_get_clinfo_frm_ctrlr(const uint8_t *mac, const uint8_t *bssid, const uint8_t *last_bssid, uint8_t type) {
    uint32_t vap_idx;
    if (client_mgr_get_vap_idx(bssid, &vap_idx) != 0) {
        // The association's text serves here as well.
        CM_LOG(LOG_ERROR, "Invalid ap bssid in assoc msg");
        return -1;
    }
    int32_t slot = -1;
    if (client_tbl_client_get_fast(mac, &slot) == nullptr) {
        const client_info client = make_placeholder(mac, bssid, last_bssid, vap_idx);
        client_tbl_mac_update(&client, slot);
    }
    auto msg = make_ctrlr_msg<client_key_message>(type);
    memcpy(msg.client, mac, sizeof msg.client);
    memcpy(msg.bssid, bssid, sizeof msg.bssid);
    if (client_mgr_send_apcomm_msg(&msg, sizeof msg) != 0) {
        CM_LOG(LOG_ERROR, "Error sending Foreign Client Update");
        return -1;
    }
    return 0;
}

void client_mgr_send_foreign_client_update_msg(const uint8_t *payload, uint8_t type) {
    const foreign_assoc_notification &src = *reinterpret_cast<const foreign_assoc_notification *>(payload);
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, MAC_ARG(src.client));
    CM_LOG(LOG_EVENT, "To BSSID " MAC_FMT, MAC_ARG(src.bssid));
    CM_LOG(LOG_EVENT, "From BSSID " MAC_FMT, MAC_ARG(src.last_bssid));
    auto msg = make_ctrlr_msg<client_update_message>(type);
    memcpy(msg.client, src.client, sizeof msg.client);
    memcpy(msg.bssid, src.bssid, sizeof msg.bssid);
    memcpy(msg.last_bssid, src.last_bssid, sizeof msg.last_bssid);
    msg.ip = src.ip;
    if (client_mgr_send_apcomm_msg(&msg, sizeof msg) != 0) {
        CM_LOG(LOG_ERROR, "Error sending Foreign Client Update");
    }
}

int client_mgr_proc_fetch_cl_info(uint8_t *rec, int pmk_only) {
    client_entries entries(rec);
    if (!entries.valid()) {
        return 0;
    }
    CM_LOG(LOG_EVENT, "NUM OF CLIENT INFO: %d", static_cast<int>(entries.count()));
    while (const client_entry *entry = entries.next()) {
        int32_t slot = -1;
        const client_info *known = client_tbl_client_get_fast(entry->client, &slot);
        if (known == nullptr) {
            continue;
        }
        if (pmk_only != 0) {
            install_pmk(*entry, *known, slot);
        } else if (!complete_roam(*entry, *known)) {
            break;
        }
    }
    return 0;
}
