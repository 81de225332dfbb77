// Local messages: what the processes of an access point send each other over local IPC, byte for byte. All integers are
// big-endian.
#ifndef WIRE_LOCAL_MESSAGES_H
#define WIRE_LOCAL_MESSAGES_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"
#include "wire/local_ipc.h"

// Local message ids: what arrives at "/kx/ipc/client_mgr". Notifications unless marked.
enum : uint32_t {
    KX_MSG_ID_SYSMON_HB = 13,
    KX_MSG_ID_SYS_READY = 16,
    KX_MSG_ID_SYS_INIT = 17,
    KX_MSG_ID_LOG_CFG_GET = 28,  // request
    KX_MSG_ID_LOG_CFG_SET = 29,
    KX_MSG_ID_CLIENT_TBL_DUMP = 59,  // request
    KX_MSG_ID_VAP_INIT = 60,
    KX_MSG_ID_VAP_UPDATE = 61,
    KX_MSG_ID_CLIENT_ASSOCIATION = 63,
    KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION = 64,
    KX_MSG_ID_CLIENT_DISASSOCIATION = 65,
    KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION = 66,
    KX_MSG_ID_APCOMM_MSG = 123,
    KX_MSG_ID_CLIENT_MGR_PMK_INFO = 150,
    KX_MSG_ID_CLIENT_IP = 161,
    KX_MSG_ID_MAC_ACL_AUTH = 195,
};

// Local messages that the captive-portal application gets.
enum : uint32_t {
    CAPTIVE_MSG_GUEST_AUTHENTICATED = 67,
    CAPTIVE_MSG_ASSOCIATION = 166,
    CAPTIVE_MSG_FOREIGN_ASSOCIATION = 167,
    CAPTIVE_MSG_DISASSOCIATION = 168,
    CAPTIVE_MSG_FOREIGN_DISASSOCIATION = 169,
};

// Sub-types of pmk_info_message.
enum : uint32_t {
    HOSTAPD_PMK_FETCH = 1,
    HOSTAPD_PMK_ADD = 2,
    HOSTAPD_PMK_FETCH_RESP = 129,
};

// Payload of KX_MSG_ID_CLIENT_ASSOCIATION, KX_MSG_ID_CLIENT_DISASSOCIATION and KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION.
struct assoc_notification {
    uint8_t unused[16];
    uint8_t client[6];
    uint8_t bssid[6];
    be32 ip;  // of the association: written by the handler
};
static_assert(sizeof(assoc_notification) == 32 && offsetof(assoc_notification, client) == 16);

// Payload of KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION; the foreign disassociation is read through it as well when it is
// reported to the controller.
struct foreign_assoc_notification {
    uint8_t unused[16];
    uint8_t client[6];
    uint8_t bssid[6];
    uint8_t last_bssid[6];
    be32 ip;  // written by the handler
};
static_assert(sizeof(foreign_assoc_notification) == 38 && offsetof(foreign_assoc_notification, last_bssid) == 28);

// Payload of KX_MSG_ID_CLIENT_IP, followed by the NUL-terminated name of the interface that serves the address.
struct client_ip_notification {
    uint8_t client[6];
    uint8_t unused[2];
    be32 ip;
};
static_assert(sizeof(client_ip_notification) == 12 && offsetof(client_ip_notification, ip) == 8);

// Payload of KX_MSG_ID_CLIENT_MGR_PMK_INFO, and what hostapd is sent.
struct pmk_info_message {
    be32 sub_type;
    uint8_t bssid[6];       // the VAP the client is on
    uint8_t prev_bssid[6];  // of a fetch
    uint8_t client[6];
    uint8_t pmk[32];  // of an add; of a fetch, filled in by the daemon
};
static_assert(sizeof(pmk_info_message) == 54 && offsetof(pmk_info_message, pmk) == 22);

// Payload of KX_MSG_ID_MAC_ACL_AUTH, followed by data_len bytes of opaque data.
struct acl_auth_request {
    uint8_t client[6];
    uint8_t bssid[6];
    be32 data_len;
};
static_assert(sizeof(acl_auth_request) == 16);

// What the captive-portal application gets.
struct captive_message {
    ipc_hdr hdr;
    uint8_t client[6];
    char text[34];     // NUL-terminated
    be32 portal_flag;  // 0: the client has to pass the portal
};
static_assert(sizeof(captive_message) == 56 && offsetof(captive_message, portal_flag) == 52);

// hostapd command, handed to the platform's hostapd control service.
struct hostapd_command {
    be32 code;
    pmk_info_message info;
    uint8_t zero[1038];
};
static_assert(sizeof(hostapd_command) == 1096);

#endif
