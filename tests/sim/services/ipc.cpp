#include "services/ipc.h"

#include <algorithm>
#include <cstring>
#include <stdexcept>
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/local_dispatch.h"
#include "inside.h"
#include "kx/sysmon.h"
#include "platform.h"
#include "services/names.h"

struct kx_ipc {
    int unused;
};

namespace sim {
namespace {

kx_ipc the_endpoint;

bool all_zero(const uint8_t *data, size_t count) {
    return count == 0 || (data[0] == 0 && memcmp(data, data + 1, count - 1) == 0);
}

// Whether the buffer still holds the message, followed by zeros. Bytes that a handler may write to are not compared.
bool is_kept(bytes msg, const uint8_t *buf, size_t room) {
    constexpr size_t scratch_end = IPC_HDR_SIZE + KX_IPC_RX_SCRATCH;
    msg.resize(std::max(msg.size(), scratch_end));
    return memcmp(msg.data(), buf, IPC_HDR_SIZE) == 0 &&
           memcmp(msg.data() + scratch_end, buf + scratch_end, msg.size() - scratch_end) == 0 &&
           all_zero(buf + msg.size(), room - msg.size());
}

}  // namespace

ipc_service::ipc_service()
    : endpoint(&the_endpoint),
      rx_buf(g_cfg.ipc_rx_buf),
      rx_buf_len(sizeof(g_cfg.ipc_rx_buf)),
      recv(client_mgr_recv_msg) {}

void ipc_service::open_endpoint() { endpoint = &the_endpoint; }

void ipc_service::close_endpoint() {
    endpoint = nullptr;
    recv = nullptr;
}

void ipc_service::local(uint32_t id, const bytes &payload, uint32_t flags) {
    if (recv == nullptr) {
        throw std::logic_error("no endpoint is open");
    }
    const bytes msg = big32(id) + big32(static_cast<uint32_t>(payload.size())) + big32(flags) + payload;
    if (msg.size() > rx_buf_len) {
        throw std::invalid_argument("longer than the receive buffer");
    }
    memset(rx_buf, 0, rx_buf_len);
    std::copy(msg.begin(), msg.end(), rx_buf);

    kx_ipc_rx rx = {reinterpret_cast<kx_ipc_msg_hdr *>(rx_buf), rx_buf + IPC_HDR_SIZE};
    answering = &rx;
    {
        const inside daemon;
        recv(&rx);
    }
    answering = nullptr;

    if (!is_kept(msg, rx_buf, rx_buf_len)) {
        here().complain("the handler of id " + std::to_string(id) + " wrote outside the scratch bytes of the message");
    }
}

extern "C" {

int kx_ipc_init(const char *path, void *rx_buf, uint32_t rx_buf_len, kx_ipc_recv_handler recv, uint32_t flags) {
    const outside daemon;
    const int result =
        here().recorded("kx_ipc_init",
                        "kx_ipc_init(" + std::string(path) + ", " +
                            name_of(rx_buf, g_cfg.ipc_rx_buf, "g_cfg.ipc_rx_buf") + ", " + number(rx_buf_len) + ", " +
                            handler_name(recv, client_mgr_recv_msg, "client_mgr_recv_msg") + ", " + number(flags) + ")",
                        0);
    for (uint32_t i = 0; i < rx_buf_len; i++) {
        if (static_cast<uint8_t *>(rx_buf)[i] != 0) {
            here().complain("the receive buffer is not zero");
            break;
        }
    }
    if (result < 0) {
        return result;
    }
    here().rx_buf = static_cast<uint8_t *>(rx_buf);
    here().rx_buf_len = rx_buf_len;
    here().recv = recv;
    here().open_endpoint();
    return result;
}

kx_ipc_handle kx_ipc_eloop_get_ipc(void) { return here().endpoint; }

int kx_ipc_eloop_resp(kx_ipc_rx *rx, const void *body, uint32_t len) {
    const outside daemon;
    if (rx != here().answering) {
        here().complain("a response to something that is not the request");
    }
    return here().recorded(
        "kx_ipc_eloop_resp",
        "kx_ipc_eloop_resp(" + number(len) + ", " + show(static_cast<const uint8_t *>(body), len) + ")", 0);
}

int kx_ipc_send(const kx_ipc_send_desc *desc) {
    const outside daemon;
    if (desc->ipc != here().endpoint) {
        here().complain("kx_ipc_send on a handle that is not the daemon's");
    }
    const auto *msg = static_cast<const uint8_t *>(desc->msg);
    const uint32_t len =
        IPC_HDR_SIZE + (uint32_t{msg[4]} << 24 | uint32_t{msg[5]} << 16 | uint32_t{msg[6]} << 8 | msg[7]);
    return here().recorded("kx_ipc_send",
                           "kx_ipc_send(" + number(desc->mode) + ", " + name_text(desc->dest, sizeof(desc->dest)) +
                               ", " + show(msg, len) + ")",
                           static_cast<int>(len));
}

int sysmon_send_handshake(kx_ipc_handle ipc, uint32_t period_secs) {
    const outside daemon;
    return here().recorded("sysmon_send_handshake",
                           "sysmon_send_handshake(" + ipc_name(ipc) + ", " + number(period_secs) + ")", 0);
}

int sysmon_send_hb(kx_ipc_handle ipc, uint32_t period_secs) {
    const outside daemon;
    return here().recorded("sysmon_send_hb", "sysmon_send_hb(" + ipc_name(ipc) + ", " + number(period_secs) + ")", 0);
}

}  // extern "C"

}  // namespace sim
