#include "client_mgr/neighbours/ctrlr_link.h"

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "kx/apcomm.h"

int client_mgr_send_apcomm_msg(const void *msg, uint32_t len) {
    if (apcomm_send_msg(APCOMM_DEST_CLIENT_MGR, msg, len, 0, client_mgr_apcomm_send_rslt) != 0) {
        CM_LOG(LOG_ERROR, "APComm Unable to send data");
        return -1;
    }
    return 0;
}

void client_mgr_apcomm_send_rslt(void) {}

void client_mgr_apcomm_ctrl_status(uint32_t ctrl_ip, uint32_t status) {
    if (status == APCOMM_STATUS_UP) {
        g_cfg.status_flags |= STATUS_CTRLR_LINK_UP;
        g_cfg.ctrlr_ip = ctrl_ip;
        CM_LOG(LOG_EVENT, "%s: Rcvd tunl status up. ctrl ip = 0x%08x", __func__, ctrl_ip);
    } else if (status == APCOMM_STATUS_DOWN) {
        g_cfg.status_flags &= ~STATUS_CTRLR_LINK_UP;
        g_cfg.ctrlr_ip = 0;
        CM_LOG(LOG_EVENT, "%s: Rcvd tunl status down", __func__);
    }
}
