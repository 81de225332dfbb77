// The daemon's one global state block.
#ifndef CLIENT_MGR_BASE_CLIENT_MGR_CFG_H
#define CLIENT_MGR_BASE_CLIENT_MGR_CFG_H

#include <cstddef>
#include <cstdint>

#include "wire/mac_address.h"

inline constexpr uint32_t CLIENT_MGR_MAX_VAPS = 16;
inline constexpr uint32_t CLIENT_MGR_BUF_SIZE = 16384;
inline constexpr uint32_t CLIENT_MGR_HB_PERIOD_SECS = 60;

// One VAP's configuration. Integers in the host's order.
struct vap_cfg {
    mac_address bssid;     // hardware address of the interface
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
    mac_address ap_mac;
    vap_cfg vaps[CLIENT_MGR_MAX_VAPS];
    // Copy of the controller message in hand, zero past its end; erased afterwards if it may have carried keys.
    uint8_t ctrlr_msg_buf[CLIENT_MGR_BUF_SIZE];
    uint8_t ipc_rx_buf[CLIENT_MGR_BUF_SIZE];  // receive buffer of the local endpoint
};
static_assert(offsetof(client_mgr_cfg, vaps) == 20);
static_assert(offsetof(client_mgr_cfg, ctrlr_msg_buf) == 1748);
static_assert(offsetof(client_mgr_cfg, ipc_rx_buf) == 1748 + CLIENT_MGR_BUF_SIZE);

extern "C" client_mgr_cfg g_cfg;

#endif
