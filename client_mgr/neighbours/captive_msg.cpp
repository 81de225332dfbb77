#include "client_mgr/neighbours/captive_msg.h"

#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kx_ipc.h"
#include "wire/local_messages.h"

namespace {

constexpr char captive_app[] = "/kx/ipc/captive_app";

uint32_t portal_flag(const mac_address &mac) {
    const client_lookup client = find_client(mac);
    if (!client) {
        CM_LOG(LOG_ERROR, "Captive cl failed " MAC_FMT, mac_arg(mac));
        return 1;
    }
    return (client.record->flag & CLIENT_FLAG_GUEST) != 0 ? 0 : 1;
}

}  // namespace

int client_mgr_captive_msg_send(const uint8_t mac[6], const char *captive_text, uint32_t msg_id) {
    captive_message msg = {};
    msg.portal_flag = portal_flag(mac_at(mac));
    // The same line for every message.
    CM_LOG(LOG_EVENT, "Sending Assoc IPC to %s", captive_app);
    msg.hdr.id = msg_id;
    msg.hdr.len = sizeof msg - sizeof msg.hdr;
    msg.hdr.flags = KX_IPC_FLAG_NOTIFICATION;
    msg.client = mac_at(mac);
    memcpy(msg.text, captive_text, strnlen(captive_text, sizeof msg.text - 1));
    kx_ipc_send_desc desc = {};
    desc.ipc = kx_ipc_eloop_get_ipc();
    desc.mode = KX_IPC_MODE_DEST;
    desc.msg = &msg;
    static_assert(sizeof captive_app <= sizeof desc.dest);
    memcpy(desc.dest, captive_app, sizeof captive_app);
    const int sent = kx_ipc_send(&desc);
    if (sent < 0) {
        CM_LOG(LOG_ERROR, " Send Assoc to Captive application failed!");
    }
    return sent;
}
