#include "client_mgr/neighbours/client_updates.h"

#include "client_mgr/base/log.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "wire/ctrlr_messages.h"

namespace {

int send(const reassociation &body, uint8_t type) {
    auto msg = make_ctrlr_msg<client_update_message>(type);
    msg.body = body;
    return client_mgr_send_apcomm_msg(&msg, sizeof msg);
}

}  // namespace

void send_client_update(const association &event, uint8_t type) {
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, mac_arg(event.client));
    CM_LOG(LOG_EVENT, "To BSSID " MAC_FMT, mac_arg(event.bssid));
    CM_LOG(LOG_EVENT, "Client IP 0x%08x", uint32_t{event.ip});
    if (send({.client = event.client, .bssid = event.bssid, .last_bssid = {}, .ip = event.ip}, type) != 0) {
        CM_LOG(LOG_ERROR, "Error sending Client Update");
    }
}

void send_foreign_client_update(const reassociation &event, uint8_t type) {
    CM_LOG(LOG_EVENT, "Client " MAC_FMT, mac_arg(event.client));
    CM_LOG(LOG_EVENT, "To BSSID " MAC_FMT, mac_arg(event.bssid));
    CM_LOG(LOG_EVENT, "From BSSID " MAC_FMT, mac_arg(event.last_bssid));
    if (send(event, type) != 0) {
        CM_LOG(LOG_ERROR, "Error sending Foreign Client Update");
    }
}
