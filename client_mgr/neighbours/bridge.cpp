#include "client_mgr/neighbours/bridge.h"

#include "client_mgr/base/ipv4.h"
#include "client_mgr/base/log.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kxbr_api.h"

void log_bridge_add(const char *caller, const client_info &client) {
    CM_LOG(LOG_EVENT, "[%s] Adding client to kxbr_api_add_client", caller);
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, mac_arg(client.cl_mac));
    CM_LOG(LOG_EVENT, "BSSID  " MAC_FMT, mac_arg(client.assoc_bssid));
    CM_LOG(LOG_EVENT, "VLAN   %d", client.home_vlan);
}

void bridge_add_client(const char *caller, const client_info &client, const bridge_entry &entry) {
    log_bridge_add(caller, client);
    CM_LOG(LOG_EVENT, "Client IP 0x%08x", uint32_t{entry.ip});
    kxbr_api_add_client(client.cl_mac.bytes, entry.ifname, entry.device, static_cast<uint32_t>(client.home_vlan),
                        ipv4_network_order(entry.ip), entry.tunnel);
}

void log_bridge_delete(const char *caller, const mac_address &mac) {
    CM_LOG(LOG_EVENT, "[%s] Deleting client to kxbr_api_del_client", caller);
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, mac_arg(mac));
}
