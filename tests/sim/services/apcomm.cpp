#include "services/apcomm.h"

#include <algorithm>
#include <memory>
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_dispatch.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "inside.h"
#include "kx/apcomm.h"
#include "platform.h"
#include "services/names.h"

namespace sim {

apcomm_service::apcomm_service()
    : controller_recv(client_mgr_apcomm_recv_msg), controller_status_cb(client_mgr_apcomm_ctrl_status) {}

void apcomm_service::controller(const bytes &msg) {
    // A block of the heap with exactly this length, so that a sanitizer sees a read past its end.
    const std::unique_ptr<uint8_t[]> copy(new uint8_t[msg.size()]);
    std::copy(msg.begin(), msg.end(), copy.get());
    {
        const inside daemon;
        controller_recv(nullptr, copy.get(), static_cast<uint32_t>(msg.size()));
    }
    if (!std::equal(msg.begin(), msg.end(), copy.get())) {
        here().complain("the controller's message was written to");
    }
}

void apcomm_service::controller_status(uint32_t ip, uint32_t status) {
    const inside daemon;
    controller_status_cb(ip, status);
}

extern "C" {

int apcomm_recv_register(apcomm_recv_handler recv) {
    const outside daemon;
    here().controller_recv = recv;
    return here().recorded(
        "apcomm_recv_register",
        "apcomm_recv_register(" + handler_name(recv, client_mgr_apcomm_recv_msg, "client_mgr_apcomm_recv_msg") + ")",
        0);
}

int apcomm_status_register(apcomm_status_handler status) {
    const outside daemon;
    here().controller_status_cb = status;
    return here().recorded("apcomm_status_register",
                           "apcomm_status_register(" +
                               handler_name(status, client_mgr_apcomm_ctrl_status, "client_mgr_apcomm_ctrl_status") +
                               ")",
                           0);
}

int apcomm_register_kx_ipc(kx_ipc_handle ipc) {
    const outside daemon;
    return here().recorded("apcomm_register_kx_ipc", "apcomm_register_kx_ipc(" + ipc_name(ipc) + ")", 0);
}

void apcomm_msg_rcvd(uint8_t *payload) {
    const outside daemon;
    here().record("apcomm_msg_rcvd(" + name_of(payload, here().rx_buf + IPC_HDR_SIZE, "payload") + ")");
    here().outcome("apcomm_msg_rcvd", 0);
}

int apcomm_send_msg(uint32_t dest, const void *msg, uint32_t len, uint32_t flags, apcomm_send_done_handler done) {
    const outside daemon;
    if (len > CLIENT_MGR_BUF_SIZE) {
        here().complain("a message of " + number(len) + " bytes to the controller");
    }
    if (done != client_mgr_apcomm_send_rslt) {
        here().complain("apcomm_send_msg without the daemon's completion callback");
    }
    const int result = here().recorded("apcomm_send_msg",
                                       "apcomm_send_msg(" + number(dest) + ", " +
                                           show(static_cast<const uint8_t *>(msg), len) + ", " + number(flags) + ")",
                                       0);
    if (result == 0 && done != nullptr) {
        const inside callback;
        done();
    }
    return result;
}

}  // extern "C"

}  // namespace sim
