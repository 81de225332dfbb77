#include "client_mgr/clients/guest.h"

#include "client_mgr/base/log.h"
#include "client_mgr/base/vap_text.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/neighbours/captive_msg.h"
#include "client_mgr/neighbours/guest_entries.h"
#include "wire/local_messages.h"

void let_guest_reach_portal(const client_info &guest, be32 new_ip, const char *ifname) {
    const vap_lookup vap = find_vap(guest.assoc_bssid);
    if (!vap) {
        CM_LOG(LOG_ERROR, "Get VAP Index failed, captive portal set failed");
        return;
    }
    if (guest.cl_ip != 0) {
        remove_guest_entries(*vap, guest.cl_ip, nullptr);
    }
    install_guest_entries(*vap, guest.cl_mac, new_ip, ifname);
}

void authorise_guest(const mac_address &mac) {
    const client_lookup known = find_client(mac);
    if (!known) {
        CM_LOG(LOG_ERROR, "Invalid client " MAC_FMT, mac_arg(mac));
        return;
    }
    const vap_lookup vap = find_vap(known.record->assoc_bssid);
    if (!vap) {
        // The text of the association.
        CM_LOG(LOG_ERROR, "Invalid ap bssid in assoc msg");
        return;
    }
    client_info client = *known.record;
    const wipe_guard guard(client.pmk);
    client.flag &= ~CLIENT_FLAG_GUEST;
    client_tbl_mac_update(&client, known.slot);
    // Also for a guest that had no entries of its own.
    if (vap->guest_count != 0) {
        remove_guest_entries(*vap, client.cl_ip, "Client authenticated, removing arp and route");
    }
    CM_LOG(LOG_EVENT, "Notifying client " MAC_FMT " authenticated in vap %.32s", mac_arg(mac), vap->captive_cfg);
    client_mgr_captive_msg_send(mac.bytes, make_captive_text(*vap).text, CAPTIVE_MSG_GUEST_AUTHENTICATED);
}
