// Local messages: what the processes of an access point send each other over local IPC, byte for byte. All integers are
// big-endian.
#ifndef WIRE_LOCAL_MESSAGES_H
#define WIRE_LOCAL_MESSAGES_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"
#include "wire/local_ipc.h"
#include "wire/mac_address.h"

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

// A client and the VAP that it associated to or left.
struct association {
    mac_address client;
    mac_address bssid;
    be32 ip;  // the client's IPv4 address, 0 when unknown
};
static_assert(sizeof(association) == 16);

// A client that came from another access point.
struct reassociation {
    mac_address client;
    mac_address bssid;
    mac_address last_bssid;  // the BSS that it came from
    be32 ip;
};
static_assert(sizeof(reassociation) == 22);

// Payload of KX_MSG_ID_CLIENT_ASSOCIATION, KX_MSG_ID_CLIENT_DISASSOCIATION and KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION.
// The handler of an association writes the address.
struct assoc_notification {
    uint8_t unused[16];
    association event;
};
static_assert(sizeof(assoc_notification) == 32);

// Payload of KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, whose handler writes the address. A foreign disassociation is
// reported to the controller as if its payload had this layout too.
struct foreign_assoc_notification {
    uint8_t unused[16];
    reassociation event;
};
static_assert(sizeof(foreign_assoc_notification) == 38);

// Payload of KX_MSG_ID_CLIENT_IP, followed by the NUL-terminated name of the interface that serves the address.
struct client_ip_notification {
    mac_address client;
    uint8_t unused[2];
    be32 ip;
};
static_assert(sizeof(client_ip_notification) == 12 && offsetof(client_ip_notification, ip) == 8);

// Payload of KX_MSG_ID_CLIENT_MGR_PMK_INFO, and what hostapd is sent.
struct pmk_info_message {
    be32 sub_type;
    mac_address bssid;       // the VAP the client is on
    mac_address prev_bssid;  // of a fetch
    mac_address client;
    uint8_t pmk[32];  // of an add; of a fetch, filled in by the daemon
};
static_assert(sizeof(pmk_info_message) == 54 && offsetof(pmk_info_message, pmk) == 22);

// Payload of KX_MSG_ID_MAC_ACL_AUTH, followed by data_len bytes of opaque data.
struct acl_auth_request {
    mac_address client;
    mac_address bssid;
    be32 data_len;
};
static_assert(sizeof(acl_auth_request) == 16);

// What the captive-portal application gets.
struct captive_message {
    ipc_hdr hdr;
    mac_address client;
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
