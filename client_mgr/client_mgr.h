// The daemon: its one global state block, and the functions that its parts call of one another and give the platform.
#ifndef CLIENT_MGR_H
#define CLIENT_MGR_H

#include <cstddef>
#include <cstdint>

#include "client_mgr/messages.h"
#include "kx/kx_ipc.h"

inline constexpr uint32_t CLIENT_MGR_MAX_VAPS = 16;
inline constexpr uint32_t CLIENT_MGR_BUF_SIZE = 16384;
inline constexpr uint32_t CLIENT_MGR_HB_PERIOD_SECS = 60;

// One VAP's configuration. Integers in the host's order.
struct vap_cfg {
    uint8_t bssid[6];      // hardware address of the interface
    char ssid[32];         // NUL-padded; 32 bytes have no terminator
    char captive_cfg[32];  // text for the captive portal; 32 bytes have no terminator
    char ifname[12];       // NUL-terminated; 12 characters have no terminator
    uint32_t vlan;
    uint32_t vap_attr;  // non-zero: a guest VAP
    uint32_t radius_idx;
    uint32_t mac_acl_idx;
    uint32_t radius_acl_type;
    uint32_t guest_count;  // unauthorised guests with ARP and route entries installed
};
static_assert(sizeof(vap_cfg) == 108 && offsetof(vap_cfg, vlan) == 84);

// client_mgr_cfg::status_flags
enum : uint32_t {
    STATUS_SYS_READY = 0x1,
    STATUS_CTRLR_LINK_UP = 0x2,
};

struct client_mgr_cfg {
    uint32_t status_flags;
    uint32_t ctrlr_ip;  // the controller's IPv4 address as a number; 0 when unknown
    uint32_t num_vaps;  // valid entries of vaps; a bulk report may leave any number here
    uint8_t ap_mac[6];
    vap_cfg vaps[CLIENT_MGR_MAX_VAPS];
    // Copy of the controller message being processed, zero past its end; erased afterwards if it may have carried keys.
    uint8_t ctrlr_msg_buf[CLIENT_MGR_BUF_SIZE];
    uint8_t ipc_rx_buf[CLIENT_MGR_BUF_SIZE];  // receive buffer of the local endpoint
};
// A moved-away client's captive text is read one entry past the VAPs, that is, inside ctrlr_msg_buf (move_notify.cpp).
static_assert(offsetof(client_mgr_cfg, vaps) == 20);
static_assert(offsetof(client_mgr_cfg, ctrlr_msg_buf) == 1748);
static_assert(offsetof(client_mgr_cfg, ipc_rx_buf) == 1748 + CLIENT_MGR_BUF_SIZE);

extern "C" {

extern client_mgr_cfg g_cfg;

// --- start-up (startup.cpp)

// The whole life of the daemon: start-up, then the event loop. Returns 0 if the loop ever ends and -1 when the log
// cannot be opened; exits with -1 when the endpoint or the radio's MAC address cannot be had.
int client_mgr_main(void);

// --- texts (text.cpp)

// Value of a hexadecimal digit; 0 for any other character.
int client_mgr_char_to_ascii(char c);
// Six bytes from text: pairs of hexadecimal digits, each with or without a ':' behind it. The text is not checked;
// another character counts as 0 and the text ends at its NUL. At most 18 characters are read.
void client_mgr_mac_str_to_bin(const char *text, uint8_t mac[6]);
// Hex dump to standard output, for a debugger's use.
void dump_buf(const uint8_t *buf, uint32_t len);

// --- local messages (local_dispatch.cpp)

void client_mgr_recv_msg(kx_ipc_rx *ctx);
void client_mgr_proc_not(kx_ipc_rx *ctx);
void client_mgr_proc_reqresp(kx_ipc_rx *ctx);
int client_mgr_sys_init_rcvd(void);
void client_mgr_sys_ready_rcvd(void);

// --- controller link (ctrlr_link.cpp)

// Sends a complete controller message of `len` bytes. Returns 0 when the channel took it, else -1.
int client_mgr_send_apcomm_msg(const void *msg, uint32_t len);
void client_mgr_apcomm_send_rslt(void);
void client_mgr_apcomm_recv_msg(void *ctx, const uint8_t *msg, uint32_t len);
void client_mgr_apcomm_ctrl_status(uint32_t ctrl_ip, uint32_t status);
// Walks the records of a message. `msg` is g_cfg.ctrlr_msg_buf, or a buffer that the caller vouches for.
void client_mgr_proc_ctrlr_msg(uint8_t *msg);

// --- driver station control (sta_ctrl.cpp)

// Makes the driver disassociate `sta`. `ifname`: NUL-terminated unless it fills 16 bytes. `reason` goes to the system
// log alone. Returns 0.
int client_mgr_sta_disassoc(const char *ifname, const uint8_t bssid[6], const uint8_t sta[6], int reason);
// The hardware address of `ifname` (NUL-terminated unless it fills 16 bytes). Returns 0, or -1 with bssid untouched.
int client_mgr_get_bssid(uint8_t bssid[6], const char *ifname);

// --- hostapd (hostapd_notify.cpp)

// Hands hostapd one client's PMK message. Returns 0, or -1 when hostapd cannot be reached.
int client_mgr_notify_hostapd(const pmk_info_message *msg);

// --- captive portal (captive_msg.cpp)

// Tells the captive portal about a client. `captive_text` (at most 32 bytes, NUL-terminated if shorter) is the text of
// its VAP. Returns what the send returned.
int client_mgr_captive_msg_send(const uint8_t mac[6], const char *captive_text, uint32_t msg_id);

// --- VAP configuration (vap_config.cpp)

// Loads the VAP table: the first CLIENT_MGR_MAX_VAPS of the configuration's VAPs that can be read; how many of the list
// are left then is said in one level-1 line. While the controller cannot be talked to the table stays as it is, on
// purpose.
void client_mgr_vap_init(void);
// `ifname`: 12 bytes, compared as memory. Returns 0 when the VAP was reported or is not one of ours, else -1.
int client_mgr_vap_update(const char *ifname);
// Index of the VAP with this BSSID. Returns 0, or -1 with *idx untouched.
int client_mgr_get_vap_idx(const uint8_t bssid[6], uint32_t *idx);

// --- bulk reports (bulk_report.cpp)

void client_mgr_send_bulk_cfg(void);
// What does not fit into CLIENT_MGR_BUF_SIZE bytes is left out of the message, which one level-1 line says. Sets
// g_cfg.num_vaps to the number of VAPs that could be read.
void client_mgr_send_bulk_info(void);
// Fills the station count and the entries behind `rec` from the driver's list for `ifname` (NUL-terminated unless it
// fills 16 bytes); `room` bytes may be written behind the record's fixed part, and stations for which they do not
// suffice are counted in *left_out. The walk over the list ends behind a station whose record has length 0 or runs past
// the list's end.
// Returns 0, or -1 when the driver gave no list.
int client_mgr_get_client_bulk_info(vap_client_list_record *rec, const char *ifname, uint32_t room, uint32_t *left_out);

// --- association (association.cpp)

// `payload`: assoc_notification, writable.
void client_mgr_send_assoc_msg(uint8_t *payload);
int client_mgr_treat_unkn_as_assoc(uint8_t *rec);
// `payload`: assoc_notification; `type`: the record type.
void client_mgr_send_client_update_msg(const uint8_t *payload, uint8_t type);

// --- foreign association and client fetch (foreign_association.cpp)

// `payload`: foreign_assoc_notification, writable.
void client_mgr_send_assoc_foreign_msg(uint8_t *payload);
// Asks the controller about a client, with a placeholder in the table if it is unknown; `type` is
// CLIENT_MGR_CLIENT_INFO_FETCH or CLIENT_MGR_PMK_FETCH. Returns 0, or -1 when the BSSID is not ours or the send failed.
int client_mgr_get_clinfo_frm_ctrlr(const uint8_t *mac, const uint8_t *bssid, const uint8_t *last_bssid, uint8_t type);
// `payload`: foreign_assoc_notification; `type`: the record type.
void client_mgr_send_foreign_client_update_msg(const uint8_t *payload, uint8_t type);
// `pmk_only`: the entries bring PMKs alone. Returns 0.
int client_mgr_proc_fetch_cl_info(uint8_t *rec, int pmk_only);

// --- disassociation (disassociation.cpp)

// `payload`: assoc_notification.
void client_mgr_send_disassoc_msg(uint8_t *payload);
// `payload`: foreign_assoc_notification.
void client_mgr_send_disassoc_foreign_msg(uint8_t *payload);

// --- client address and guests (guest.cpp)

// `payload`: client_ip_notification with the interface name behind it.
void client_mgr_send_client_ip_msg(uint8_t *payload);
void client_mgr_proc_client_guest_auth(uint8_t *rec);

// --- controller synchronisation (ctrlr_sync.cpp)

// Both return 0.
int client_mgr_proc_bulk_info(uint8_t *rec);
int client_mgr_proc_remove_cl_bulk_info(uint8_t *rec);

// --- move notification (move_notify.cpp)

// Returns 0, or -1 when the client is unknown, for kind 2 not local, or when the record leaves the buffer.
int client_mgr_process_move_notify(uint8_t *rec);

// --- PMK caching (pmk_cache.cpp)

// `payload`: pmk_info_message, writable; its key is erased in the end. Returns the sub-handler's result, or 2 when the
// message is ignored: an unknown sub-type, or the controller cannot be talked to.
int client_mgr_handle_pmk_info(uint8_t *payload);
// Returns 0, or -1 when the controller could not be told or the BSSID is not ours.
int client_mgr_handle_pmk_add(uint8_t *payload);
// Writes the answer for hostapd over the message. Returns 0 when hostapd was answered or the controller asked, else -1.
int client_mgr_handle_pmk_fetch(uint8_t *payload);

// --- MAC ACL authentication (mac_acl.cpp)

// `payload`: acl_auth_request with its data behind it.
void client_mgr_handle_acl_auth(uint8_t *payload);
// Asks the controller. At most 128 bytes of `data` are sent; the length field carries data_length. Of `record_type` the
// low byte is sent. Returns 0, or -1 when the send failed.
int client_mgr_get_acl_info_frm_ctrlr(const uint8_t *client_mac, const uint8_t *bssid, const uint8_t *ap_mac,
                                      uint32_t vap_index, uint32_t radius_idx, uint32_t mac_acl_idx,
                                      uint32_t radius_acl_type, uint32_t data_length, const uint8_t *data,
                                      uint32_t record_type);
void client_mgr_proc_client_acl_auth_resp(uint8_t *rec);
// Hands a verdict to the driver, which finds the client by `data`, not by client_mac. At most 128 bytes of `data` are
// handed over; the length field carries data_length.
// Returns 0, or -1 when the BSSID is not ours or the driver refused.
int client_mgr_acl_auth_resp(uint32_t verdict, const uint8_t *client_mac, const uint8_t *bssid, const uint8_t *data,
                             uint32_t data_length);
}

#endif
