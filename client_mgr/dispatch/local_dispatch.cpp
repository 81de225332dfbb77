#include "client_mgr/dispatch/local_dispatch.h"

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/base/log.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/dispatch/ctrlr_dispatch.h"
#include "client_mgr/dispatch/local_events.h"
#include "client_mgr/dispatch/table_dump.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "kx/apcomm.h"
#include "kx/kx_log.h"
#include "kx/sysmon.h"
#include "wire/local_messages.h"

namespace {

struct notification {
    uint32_t id;
    void (*handler)(uint8_t *payload);
    int level;
    const char *text;  // of the line on receipt, null for none
};

void heartbeat(uint8_t *) { sysmon_send_hb(kx_ipc_eloop_get_ipc(), CLIENT_MGR_HB_PERIOD_SECS); }

void vap_update(uint8_t *payload) {
    client_mgr_vap_init();
    client_mgr_vap_update(reinterpret_cast<const char *>(payload));
}

constexpr notification notifications[] = {
    {KX_MSG_ID_SYSMON_HB, heartbeat, 0, nullptr},
    {KX_MSG_ID_SYS_READY, [](uint8_t *) { client_mgr_sys_ready_rcvd(); }, 0, nullptr},
    {KX_MSG_ID_SYS_INIT, [](uint8_t *) { client_mgr_sys_init_rcvd(); }, 0, nullptr},
    {KX_MSG_ID_LOG_CFG_SET, [](uint8_t *payload) { KX_LOG_SET_CFG(payload); }, 0, nullptr},
    {KX_MSG_ID_VAP_INIT, [](uint8_t *) { client_mgr_vap_init(); }, 0, nullptr},
    {KX_MSG_ID_VAP_UPDATE, vap_update, 0, nullptr},
    {KX_MSG_ID_CLIENT_ASSOCIATION, client_mgr_send_assoc_msg, LOG_EVENT, "KX_MSG_ID_CLIENT_ASSOCIATION rcvd"},
    {KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, client_mgr_send_assoc_foreign_msg, LOG_EVENT,
     "KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION rcvd"},
    {KX_MSG_ID_CLIENT_DISASSOCIATION, client_mgr_send_disassoc_msg, LOG_EVENT, "KX_MSG_ID_CLIENT_DISASSOCIATION rcvd"},
    {KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, client_mgr_send_disassoc_foreign_msg, LOG_EVENT,
     "KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION rcvd"},
    {KX_MSG_ID_APCOMM_MSG, apcomm_msg_rcvd, 0, nullptr},
    {KX_MSG_ID_CLIENT_MGR_PMK_INFO, [](uint8_t *payload) { client_mgr_handle_pmk_info(payload); }, LOG_EVENT,
     "KX_MSG_ID_CLIENT_MGR_PMK_INFO rcvd"},
    {KX_MSG_ID_CLIENT_IP, client_mgr_send_client_ip_msg, LOG_EVENT, "KX_MSG_ID_CLIENT_IP rcvd "},
    {KX_MSG_ID_MAC_ACL_AUTH, client_mgr_handle_acl_auth, LOG_TRACE, "KX_MSG_ID_MAC_ACL_AUTH rcvd"},
};

const ipc_hdr &header(const kx_ipc_rx *ctx) { return *reinterpret_cast<const ipc_hdr *>(ctx->hdr); }

}  // namespace

void client_mgr_recv_msg(kx_ipc_rx *ctx) {
    const ipc_hdr &hdr = header(ctx);
    CM_LOG(LOG_TRACE, "Received Msg ID : %d", static_cast<int>(uint32_t{hdr.id}));
    if ((hdr.flags & KX_IPC_FLAG_REQUEST) == 0) {
        CM_LOG(LOG_TRACE, "Notification message");
        client_mgr_proc_not(ctx);
    } else {
        CM_LOG(LOG_TRACE, "Request Response message");
        client_mgr_proc_reqresp(ctx);
    }
}

void client_mgr_proc_not(kx_ipc_rx *ctx) {
    const uint32_t id = header(ctx).id;
    for (const notification &n : notifications) {
        if (n.id != id) {
            continue;
        }
        if (n.text != nullptr) {
            CM_LOG(n.level, "%s", n.text);
        }
        n.handler(ctx->payload);
        return;
    }
}

void client_mgr_proc_reqresp(kx_ipc_rx *ctx) {
    uint8_t body[KX_LOG_CFG_BODY_SIZE] = {};
    const uint32_t id = header(ctx).id;
    if (id == KX_MSG_ID_LOG_CFG_GET) {
        KX_LOG_GET_CFG(body);
    } else if (id == KX_MSG_ID_CLIENT_TBL_DUMP) {
        dump_client_table();
    }
    kx_ipc_eloop_resp(ctx, body, sizeof body);
}

int client_mgr_sys_init_rcvd(void) {
    CM_LOG(LOG_EVENT, "Received System Init");
    apcomm_recv_register(client_mgr_apcomm_recv_msg);
    apcomm_status_register(client_mgr_apcomm_ctrl_status);
    return apcomm_register_kx_ipc(kx_ipc_eloop_get_ipc());
}

void client_mgr_sys_ready_rcvd(void) {
    CM_LOG(LOG_EVENT, "Received System Ready");
    // The link counts as up until a status says otherwise; nothing is sent before a status brings the address.
    g_cfg.status_flags |= STATUS_SYS_READY | STATUS_CTRLR_LINK_UP;
}
