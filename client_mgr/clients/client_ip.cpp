#include "client_mgr/clients/client_ip.h"

#include <syslog.h>

#include "client_mgr/base/log.h"
#include "client_mgr/base/wipe.h"
#include "client_mgr/clients/guest.h"
#include "client_mgr/neighbours/client_updates.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/tables/client_tbl.h"
#include "wire/ctrlr_messages.h"

namespace {

void report_ip(const client_info &client) {
    send_client_update({.client = client.cl_mac, .bssid = client.assoc_bssid, .ip = client.cl_ip},
                       CLIENT_MGR_CLIENT_IP);
    const uint8_t *ip = client.cl_ip.bytes;
    client_mgr_syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Event " MAC_FMT " -- " MAC_FMT " [Set IP=%d.%d.%d.%d]",
                      mac_arg(client.assoc_bssid), mac_arg(client.cl_mac), ip[0], ip[1], ip[2], ip[3]);
}

}  // namespace

void learn_client_ip(const mac_address &mac, be32 ip, const char *ifname) {
    if (!client_mgr_ctrlr_ready()) {
        return;
    }
    const client_lookup known = find_client(mac);
    if (!known) {
        CM_LOG(LOG_EVENT, "Unable to find client " MAC_FMT, mac_arg(mac));
        return;
    }
    if (ip == 0 || ip == known.record->cl_ip) {
        return;
    }
    client_info client = *known.record;
    const wipe_guard guard(client.pmk);
    client.cl_ip = ip;
    CM_LOG(LOG_EVENT, "[%s] Adding client ip 0x%08x for client " MAC_FMT, "client_mgr_send_client_ip_msg", uint32_t{ip},
           mac_arg(mac));
    if ((client.flag & CLIENT_FLAG_GUEST) != 0) {
        let_guest_reach_portal(*known.record, ip, ifname);
    }
    client_tbl_mac_update(&client, known.slot);
    report_ip(client);
}
