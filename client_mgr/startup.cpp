#include "client_mgr/startup.h"

#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/base/text.h"
#include "client_mgr/dispatch/local_dispatch.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kx_eloop.h"
#include "kx/kx_ipc.h"
#include "kx/kx_log.h"
#include "kx/kx_node.h"
#include "kx/sysmon.h"

namespace {

void open_local_endpoint() {
    if (kx_ipc_init("/kx/ipc/client_mgr", g_cfg.ipc_rx_buf, sizeof g_cfg.ipc_rx_buf, client_mgr_recv_msg, 0) >= 0) {
        return;
    }
    CM_LOG(LOG_ERROR, "Unable to open ipc");
    exit(-1);
}

void learn_ap_mac() {
    char text[24] = {};
    if (kx_get_node_radio_mac_addr(text, sizeof text, 0) != 0) {
        CM_LOG(LOG_ERROR, "Error retrieving the AP mac address");
        exit(-1);
    }
    client_mgr_mac_str_to_bin(text, g_cfg.ap_mac.bytes);
}

}  // namespace

int client_mgr_main(void) {
    signal(SIGPIPE, SIG_IGN);
    signal(SIGCHLD, SIG_IGN);
    if (KX_LOG_INIT("CLIENT_MGR", LOG_EVENT, 0) != 0) {
        puts("client_mgr_main: Error opening log.");
        return -1;
    }
    kx_log_conf_data.console = 0;
    memset(&g_cfg, 0, sizeof g_cfg);
    client_tbl_init();
    client_mgr_acl_cache_init();
    kx_eloop_init(nullptr);
    open_local_endpoint();
    learn_ap_mac();
    sysmon_send_handshake(kx_ipc_eloop_get_ipc(), CLIENT_MGR_HB_PERIOD_SECS);
    kx_eloop_register_timeout(ACL_CACHE_SWEEP_SECS, 0, client_mgr_acl_cache_expire, nullptr, nullptr);
    kx_eloop_run();
    return 0;
}
