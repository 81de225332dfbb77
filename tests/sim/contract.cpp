// The platform contract's functions, for the platform that lives.
#include <cstring>
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/dispatch/ctrlr_dispatch.h"
#include "client_mgr/dispatch/local_dispatch.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "effects.h"
#include "inside.h"
#include "kx/apcfg.h"
#include "kx/apcomm.h"
#include "kx/hapdcfg.h"
#include "kx/kx_eloop.h"
#include "kx/kx_ipc.h"
#include "kx/kx_log.h"
#include "kx/kx_node.h"
#include "kx/kxbr_api.h"
#include "kx/sysmon.h"
#include "platform.h"
#include "wire/mac_address.h"

namespace {

sim::platform &here() { return *sim::platform::current; }

std::string number(int64_t value) { return std::to_string(value); }

// A pointer that the platform keeps or hands back, by the name of what it points to.
std::string name_of(const void *pointer, const void *known, const char *name) {
    if (pointer == nullptr) {
        return "null";
    }
    return pointer == known ? name : "stray pointer";
}

std::string ipc_name(kx_ipc_handle ipc) { return name_of(ipc, here().endpoint, "ipc"); }

template <class F>
std::string handler_name(F handler, F known, const char *name) {
    if (handler == nullptr) {
        return "null";
    }
    return handler == known ? name : "stray handler";
}

// A NUL-terminated name that fits `room` bytes with its terminator.
std::string name_text(const char *name, size_t room) {
    const size_t length = strnlen(name, room);
    if (length == room) {
        here().complain("a name without terminator: " + sim::escaped({name, room}));
    }
    return {name, length};
}

}  // namespace

extern "C" {

// --- kx_eloop.h

int kx_eloop_init(void *ctx) {
    const sim::outside platform;
    return here().recorded("kx_eloop_init", "kx_eloop_init(" + name_of(ctx, ctx, "ctx") + ")", 0);
}

int kx_eloop_register_timeout(unsigned int secs, unsigned int usecs, kx_eloop_timeout_handler handler, void *ctx1,
                              void *ctx2) {
    const sim::outside platform;
    const int result =
        here().recorded("kx_eloop_register_timeout",
                        "kx_eloop_register_timeout(" + number(secs) + ", " + number(usecs) + ", " +
                            handler_name(handler, client_mgr_acl_cache_expire, "client_mgr_acl_cache_expire") + ", " +
                            name_of(ctx1, ctx1, "ctx1") + ", " + name_of(ctx2, ctx2, "ctx2") + ")",
                        0);
    if (result == 0) {
        here().arm(int64_t{secs} * 1000000 + usecs, handler, ctx1, ctx2);
    }
    return result;
}

void kx_eloop_run(void) {
    const sim::outside platform;
    here().record("kx_eloop_run()");
    if (here().running) {
        here().running();
    }
}

// --- kx_ipc.h

int kx_ipc_init(const char *path, void *rx_buf, uint32_t rx_buf_len, kx_ipc_recv_handler recv, uint32_t flags) {
    const sim::outside platform;
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
    const sim::outside platform;
    if (rx != here().answering) {
        here().complain("a response to something that is not the request");
    }
    return here().recorded(
        "kx_ipc_eloop_resp",
        "kx_ipc_eloop_resp(" + number(len) + ", " + sim::show(static_cast<const uint8_t *>(body), len) + ")", 0);
}

int kx_ipc_send(const kx_ipc_send_desc *desc) {
    const sim::outside platform;
    if (desc->ipc != here().endpoint) {
        here().complain("kx_ipc_send on a handle that is not the daemon's");
    }
    const auto *msg = static_cast<const uint8_t *>(desc->msg);
    const uint32_t len =
        sim::IPC_HDR_SIZE + (uint32_t{msg[4]} << 24 | uint32_t{msg[5]} << 16 | uint32_t{msg[6]} << 8 | msg[7]);
    return here().recorded("kx_ipc_send",
                           "kx_ipc_send(" + number(desc->mode) + ", " + name_text(desc->dest, sizeof(desc->dest)) +
                               ", " + sim::show(msg, len) + ")",
                           static_cast<int>(len));
}

// --- kx_log.h

kx_log_conf kx_log_conf_data;
FILE *log_file_name;
uint32_t cur_log_size;

int KX_LOG_INIT(const char *name, int level, int flags) {
    const sim::outside platform;
    const int result = here().recorded(
        "KX_LOG_INIT", "KX_LOG_INIT(" + std::string(name) + ", " + number(level) + ", " + number(flags) + ")", 0);
    if (result == 0) {
        here().open_log();
        kx_log_conf_data.console = 1;
    }
    return result;
}

void KX_LOG_GET_CFG(void *body) {
    const sim::outside platform;
    here().outcome("KX_LOG_GET_CFG", 0);
    for (size_t i = 0; i < KX_LOG_CFG_BODY_SIZE; i++) {
        if (static_cast<uint8_t *>(body)[i] != 0) {
            here().complain("the body for KX_LOG_GET_CFG is not zero");
            break;
        }
    }
    std::copy(here().log_cfg.begin(), here().log_cfg.end(), static_cast<uint8_t *>(body));
}

void KX_LOG_SET_CFG(const void *payload) {
    const sim::outside platform;
    here().record("KX_LOG_SET_CFG(" + sim::show(static_cast<const uint8_t *>(payload), 24) + ")");
}

// --- kx_node.h, sysmon.h

int kx_get_node_radio_mac_addr(char *text, uint32_t text_len, uint32_t radio) {
    const sim::outside platform;
    const int result = here().recorded(
        "kx_get_node_radio_mac_addr", "kx_get_node_radio_mac_addr(" + number(text_len) + ", " + number(radio) + ")", 0);
    if (result == 0) {
        snprintf(text, text_len, "%s", here().radio_mac.c_str());
    }
    return result;
}

int sysmon_send_handshake(kx_ipc_handle ipc, uint32_t period_secs) {
    const sim::outside platform;
    return here().recorded("sysmon_send_handshake",
                           "sysmon_send_handshake(" + ipc_name(ipc) + ", " + number(period_secs) + ")", 0);
}

int sysmon_send_hb(kx_ipc_handle ipc, uint32_t period_secs) {
    const sim::outside platform;
    return here().recorded("sysmon_send_hb", "sysmon_send_hb(" + ipc_name(ipc) + ", " + number(period_secs) + ")", 0);
}

// --- apcomm.h

int apcomm_recv_register(apcomm_recv_handler recv) {
    const sim::outside platform;
    here().controller_recv = recv;
    return here().recorded(
        "apcomm_recv_register",
        "apcomm_recv_register(" + handler_name(recv, client_mgr_apcomm_recv_msg, "client_mgr_apcomm_recv_msg") + ")",
        0);
}

int apcomm_status_register(apcomm_status_handler status) {
    const sim::outside platform;
    here().controller_status_cb = status;
    return here().recorded("apcomm_status_register",
                           "apcomm_status_register(" +
                               handler_name(status, client_mgr_apcomm_ctrl_status, "client_mgr_apcomm_ctrl_status") +
                               ")",
                           0);
}

int apcomm_register_kx_ipc(kx_ipc_handle ipc) {
    const sim::outside platform;
    return here().recorded("apcomm_register_kx_ipc", "apcomm_register_kx_ipc(" + ipc_name(ipc) + ")", 0);
}

void apcomm_msg_rcvd(uint8_t *payload) {
    const sim::outside platform;
    here().record("apcomm_msg_rcvd(" + name_of(payload, here().rx_buf + sim::IPC_HDR_SIZE, "payload") + ")");
    here().outcome("apcomm_msg_rcvd", 0);
}

int apcomm_send_msg(uint32_t dest, const void *msg, uint32_t len, uint32_t flags, apcomm_send_done_handler done) {
    const sim::outside platform;
    if (len > CLIENT_MGR_BUF_SIZE) {
        here().complain("a message of " + number(len) + " bytes to the controller");
    }
    if (done != client_mgr_apcomm_send_rslt) {
        here().complain("apcomm_send_msg without the daemon's completion callback");
    }
    const int result =
        here().recorded("apcomm_send_msg",
                        "apcomm_send_msg(" + number(dest) + ", " + sim::show(static_cast<const uint8_t *>(msg), len) +
                            ", " + number(flags) + ")",
                        0);
    if (result == 0 && done != nullptr) {
        const sim::inside daemon;
        done();
    }
    return result;
}

// --- apcfg.h

int apcfg_vap_get_ifname_list(char (*list)[12], uint8_t *count) {
    const sim::outside platform;
    const int result = here().outcome("apcfg_vap_get_ifname_list", 0);
    if (result != 0) {
        return result;
    }
    // Room for all of them is the contract, whatever their number.
    memset(list, 0xee, sizeof(*list) * APCFG_MAX_IFNAMES);
    *count = static_cast<uint8_t>(here().vaps.size());
    for (size_t i = 0; i < here().vaps.size(); i++) {
        const sim::bytes name = sim::padded(here().vaps[i].ifname, sizeof(*list));
        memcpy(list[i], name.data(), sizeof(*list));
    }
    return 0;
}

int apcfg_vap_get_by_ifname(const char *ifname, apcfg_vap *vap) {
    const sim::outside platform;
    int result = -1;
    for (const sim::listed_vap &v : here().vaps) {
        if (result == 0 || !v.readable || v.ifname != name_text(ifname, 16)) {
            continue;
        }
        *vap = v.record;
        result = 0;
    }
    const int wanted = here().outcome("apcfg_vap_get_by_ifname", result);
    if (wanted != 0) {
        memset(vap, 0xee, sizeof(*vap));
    }
    return wanted;
}

// --- hapdcfg.h

int hostapd_config_open_connection(void *ctx, const char *client_name, int flags) {
    const sim::outside platform;
    const auto *context = static_cast<const uint8_t *>(ctx);
    if (sim::bytes(context, context + HOSTAPD_CONFIG_CTX_SIZE) != sim::zeros(HOSTAPD_CONFIG_CTX_SIZE)) {
        here().complain("the hostapd connection's context is not zero");
    }
    const int result =
        here().recorded("hostapd_config_open_connection",
                        "hostapd_config_open_connection(" + std::string(client_name) + ", " + number(flags) + ")", 0);
    memset(ctx, 0xee, HOSTAPD_CONFIG_CTX_SIZE);
    if (result >= 0) {
        here().hostapd_connection = ctx;
    }
    return result;
}

int hostapd_config_send_command(const void *cmd, void *ctx) {
    const sim::outside platform;
    if (ctx != here().hostapd_connection) {
        here().complain("a command to hostapd without a connection");
    }
    return here().recorded(
        "hostapd_config_send_command",
        "hostapd_config_send_command(" + sim::show(static_cast<const uint8_t *>(cmd), HOSTAPD_CONFIG_CMD_SIZE) + ")",
        0);
}

int hostapd_config_close_connection(void *ctx) {
    const sim::outside platform;
    if (ctx != here().hostapd_connection) {
        here().complain("a hostapd connection that is not open is closed");
    }
    here().hostapd_connection = nullptr;
    return here().recorded("hostapd_config_close_connection", "hostapd_config_close_connection", 0);
}

// --- kxbr_api.h

int kxbr_api_add_client(const uint8_t mac[6], const char *ifname, const char *device, uint32_t vlan, uint32_t ip,
                        int tunnel) {
    const sim::outside platform;
    uint8_t octets[4];
    memcpy(octets, &ip, sizeof(octets));
    const std::string dotted =
        number(octets[0]) + "." + number(octets[1]) + "." + number(octets[2]) + "." + number(octets[3]);
    return here().recorded(
        "kxbr_api_add_client",
        sim::bridge_add_text(sim::mac_text(mac), name_text(ifname, 16), name_text(device, 16), vlan, dotted, tunnel),
        0);
}

int kxbr_api_del_client(const uint8_t mac[6]) {
    const sim::outside platform;
    return here().recorded("kxbr_api_del_client", "kxbr_api_del_client(" + sim::mac_text(mac) + ")", 0);
}
}
