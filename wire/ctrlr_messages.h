// Controller messages: a header and records, byte for byte. All integers are big-endian.
#ifndef WIRE_CTRLR_MESSAGES_H
#define WIRE_CTRLR_MESSAGES_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"
#include "wire/local_messages.h"
#include "wire/mac_address.h"

// Controller record types.
enum : uint8_t {
    CLIENT_MGR_BULK_INFO = 0,                    // sent
    CLIENT_MGR_BULK_VAP_CONFIG = 1,              // sent
    CLIENT_MGR_CLIENT_ASSOC = 2,                 // sent
    CLIENT_MGR_CLIENT_DISASSOC = 3,              // sent
    CLIENT_MGR_CLIENT_IP = 4,                    // sent
    CLIENT_MGR_FOREIGN_CLIENT_ASSOC = 5,         // sent
    CLIENT_MGR_FOREIGN_CLIENT_DISASSOC = 6,      // sent
    CLIENT_MGR_CLIENT_MOVE_NOTIFY = 9,           // received
    ROAMING_MGR_CLIENT_BULK_INFO = 10,           // received
    CLIENT_MGR_PMK_ADD = 11,                     // sent
    CLIENT_MGR_PMK_FETCH = 12,                   // sent
    CLIENT_MGR_CLIENT_INFO_FETCH = 13,           // sent
    CLIENT_MGR_PMK_FETCH_SUCCESS = 14,           // received
    CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS = 15,   // received
    CLIENT_MGR_REQ_BULK_INFO = 16,               // received
    CLIENT_MGR_REMOVE_CLIENT_BULK_INFO = 17,     // received
    CLIENT_MGR_CLIENT_GUEST_AUTH = 24,           // received
    CLIENT_MGR_CLIENT_GUEST_ASSOC = 25,          // sent
    CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC = 26,  // received
    CLIENT_MGR_CLIENT_ACL_AUTH_REQ = 27,         // sent
    CLIENT_MGR_CLIENT_ACL_AUTH_RESP = 28,        // received
};

// Controller message header; `recs` records follow at offset hdr_len.
struct ctrlr_msg_hdr {
    uint8_t version;  // 1
    uint8_t hdr_len;  // 14
    uint8_t msg_type;
    be16 recs;
    uint8_t reserved;
    be16 tot_len;  // of the message, this header included
    mac_address ap_mac;
};
static_assert(sizeof(ctrlr_msg_hdr) == 14 && offsetof(ctrlr_msg_hdr, tot_len) == 6);

// Controller record header; the body starts rec_hdr_len bytes, the next record rec_len bytes after it.
struct ctrlr_rec_hdr {
    uint8_t rec_type;
    uint8_t rec_hdr_len;  // 4
    be16 rec_len;         // of the record, this header included
};
static_assert(sizeof(ctrlr_rec_hdr) == 4);

// Types 2 to 6 and 25.
struct client_update_message {
    ctrlr_msg_hdr hdr;
    ctrlr_rec_hdr rec;
    reassociation body;  // last_bssid is zero but for the foreign updates
};
static_assert(sizeof(client_update_message) == 40);

// Types 11, 12 and 13.
struct client_key_message {
    ctrlr_msg_hdr hdr;
    ctrlr_rec_hdr rec;
    mac_address client;
    mac_address bssid;
    uint8_t zero[6];
    uint8_t pmk[32];  // zero but for type 11
};
static_assert(sizeof(client_key_message) == 68 && offsetof(client_key_message, pmk) == 36);

// A VAP's record of type 1, and how its record of type 0 begins.
struct vap_record {
    ctrlr_rec_hdr rec;
    mac_address bssid;
    char ssid[32];
    be32 vlan;
};
static_assert(sizeof(vap_record) == 46 && offsetof(vap_record, vlan) == 42);

struct vap_update_message {
    ctrlr_msg_hdr hdr;
    vap_record vap;
};
static_assert(sizeof(vap_update_message) == 60);

// Type 0, followed by `stations` station_entry.
struct vap_client_list_record {
    vap_record vap;
    be16 stations;
    uint8_t zero[6];
};
static_assert(sizeof(vap_client_list_record) == 54);

struct station_entry {
    uint8_t zero[6];
    mac_address mac;
    be32 ip;
};
static_assert(sizeof(station_entry) == 16);

// Body of types 10, 14, 15, 17 and 26: a count and as many entries.
struct client_entry {
    mac_address client;
    mac_address home_bssid;
    mac_address bssid;  // the VAP the client is on
    be32 home_vlan;
    be32 ip;
    uint8_t pmk[32];
    be32 flags;
};
static_assert(sizeof(client_entry) == 62 && offsetof(client_entry, flags) == 58);

enum : uint32_t {
    CLIENT_ENTRY_PMK = 0x1,    // client_entry::pmk is valid
    CLIENT_ENTRY_GUEST = 0x2,  // the client is a guest that has not passed the portal
};

// Body of type 9; the rest is there for kind 2 alone.
struct move_notify_body {
    uint8_t kind;  // 1: the client moved away; 2: it moved, but its home is here
    mac_address client;
};
static_assert(sizeof(move_notify_body) == 7);

struct moved_body {
    move_notify_body head;
    mac_address old_bssid;
    mac_address new_bssid;
    uint8_t new_vlan;
};
static_assert(sizeof(moved_body) == 20 && offsetof(moved_body, new_bssid) == 13);

// Body of type 24.
struct guest_auth_body {
    mac_address client;
};
static_assert(sizeof(guest_auth_body) == 6);

// Body of types 27 and 28, followed by the opaque data: 128 bytes in type 27, data_len bytes in type 28.
struct acl_auth_body {
    be32 verdict;  // 1: allowed; of the request: 0xffffffff
    mac_address client;
    mac_address bssid;
    mac_address ap_mac;
    be32 vap_index;
    be32 radius_idx;
    be32 mac_acl_idx;
    be32 radius_acl_type;
    be32 data_len;
};
static_assert(sizeof(acl_auth_body) == 42 && offsetof(acl_auth_body, data_len) == 38);

inline constexpr uint32_t ACL_AUTH_DATA_MAX = 128;

// Type 27.
struct acl_auth_message {
    ctrlr_msg_hdr hdr;
    ctrlr_rec_hdr rec;
    acl_auth_body body;
    uint8_t data[ACL_AUTH_DATA_MAX];
};
static_assert(sizeof(acl_auth_message) == 188 && offsetof(acl_auth_message, data) == 60);

#endif
