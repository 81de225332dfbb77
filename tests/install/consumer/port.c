/* The platform contract, in C, with nothing behind it. */
#include <stdio.h>
#include <string.h>

#include "kx/apcfg.h"
#include "kx/apcomm.h"
#include "kx/hapdcfg.h"
#include "kx/kx_eloop.h"
#include "kx/kx_ipc.h"
#include "kx/kx_log.h"
#include "kx/kx_node.h"
#include "kx/kxbr_api.h"
#include "kx/sysmon.h"

#define UNUSED(x) (void)(x)

int port_runs;

kx_log_conf kx_log_conf_data;
FILE *log_file_name;
uint32_t cur_log_size;

int KX_LOG_INIT(const char *name, int level, int flags) {
    UNUSED(name), UNUSED(flags);
    log_file_name = stdout;
    kx_log_conf_data.level = level;
    return 0;
}
void KX_LOG_GET_CFG(void *body) { UNUSED(body); }
void KX_LOG_SET_CFG(const void *payload) { UNUSED(payload); }

int kx_eloop_init(void *ctx) { return UNUSED(ctx), 0; }
int kx_eloop_register_timeout(unsigned int secs, unsigned int usecs, kx_eloop_timeout_handler handler, void *ctx1,
                              void *ctx2) {
    UNUSED(secs), UNUSED(usecs), UNUSED(handler), UNUSED(ctx1), UNUSED(ctx2);
    return 0;
}
void kx_eloop_run(void) { port_runs++; }

int kx_ipc_init(const char *path, void *rx_buf, uint32_t rx_buf_len, kx_ipc_recv_handler recv, uint32_t flags) {
    UNUSED(path), UNUSED(rx_buf), UNUSED(rx_buf_len), UNUSED(recv), UNUSED(flags);
    return 0;
}
kx_ipc_handle kx_ipc_eloop_get_ipc(void) { return NULL; }
int kx_ipc_eloop_resp(kx_ipc_rx *rx, const void *body, uint32_t len) {
    UNUSED(rx), UNUSED(body), UNUSED(len);
    return 0;
}
int kx_ipc_send(const kx_ipc_send_desc *desc) { return UNUSED(desc), 0; }

int kx_get_node_radio_mac_addr(char *text, uint32_t text_len, uint32_t radio) {
    UNUSED(radio);
    snprintf(text, text_len, "02:00:00:00:10:00");
    return 0;
}

int sysmon_send_handshake(kx_ipc_handle ipc, uint32_t period_secs) { return UNUSED(ipc), UNUSED(period_secs), 0; }
int sysmon_send_hb(kx_ipc_handle ipc, uint32_t period_secs) { return UNUSED(ipc), UNUSED(period_secs), 0; }

int apcomm_recv_register(apcomm_recv_handler recv) { return UNUSED(recv), 0; }
int apcomm_status_register(apcomm_status_handler status) { return UNUSED(status), 0; }
int apcomm_register_kx_ipc(kx_ipc_handle ipc) { return UNUSED(ipc), 0; }
void apcomm_msg_rcvd(uint8_t *payload) { UNUSED(payload); }
int apcomm_send_msg(uint32_t dest, const void *msg, uint32_t len, uint32_t flags, apcomm_send_done_handler done) {
    UNUSED(dest), UNUSED(msg), UNUSED(len), UNUSED(flags), UNUSED(done);
    return -1;
}

int apcfg_vap_get_ifname_list(char (*list)[12], uint8_t *count) {
    UNUSED(list);
    *count = 0;
    return 0;
}
int apcfg_vap_get_by_ifname(const char *ifname, apcfg_vap *vap) { return UNUSED(ifname), UNUSED(vap), -1; }

int hostapd_config_open_connection(void *ctx, const char *client_name, int flags) {
    UNUSED(ctx), UNUSED(client_name), UNUSED(flags);
    return -1;
}
int hostapd_config_send_command(const void *cmd, void *ctx) { return UNUSED(cmd), UNUSED(ctx), -1; }
int hostapd_config_close_connection(void *ctx) { return UNUSED(ctx), 0; }

int kxbr_api_add_client(const uint8_t mac[6], const char *ifname, const char *device, uint32_t vlan, uint32_t ip,
                        int tunnel) {
    UNUSED(mac), UNUSED(ifname), UNUSED(device), UNUSED(vlan), UNUSED(ip), UNUSED(tunnel);
    return 0;
}
int kxbr_api_del_client(const uint8_t mac[6]) { return UNUSED(mac), 0; }
