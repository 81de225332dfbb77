// The table of wireless clients: 2048 records, found by MAC address.
#ifndef CLIENT_MGR_TABLES_CLIENT_TBL_H
#define CLIENT_MGR_TABLES_CLIENT_TBL_H

#include <cstddef>
#include <cstdint>

#include "wire/big_endian.h"
#include "wire/mac_address.h"

// client_info::flag
enum : uint32_t {
    CLIENT_FLAG_LOCAL = 0x01,    // associated to a VAP of this access point as its home
    CLIENT_FLAG_FOREIGN = 0x02,  // learnt from the controller, or asked of it: the home is another access point
    CLIENT_FLAG_TUNNEL = 0x08,   // bridged through the tunnel, because its VLAN differs from its home VLAN
    CLIENT_FLAG_PMK = 0x10,      // pmk is valid
    CLIENT_FLAG_GUEST = 0x20,    // associated to a guest VAP and not authorised yet
};

// client_info::entry_flag
enum : uint32_t {
    CLIENT_TBL_ENTRY_USED = 0x1,
    CLIENT_TBL_ENTRY_DELETED = 0x2,  // only while a delete runs
};

inline constexpr int32_t CLIENT_TBL_SIZE = 2048;

// One client. Integers in the host's order; indexes are -1 for none.
struct client_info {
    // The client's data: what add and update take from the caller.
    mac_address cl_mac;       // the key
    char cl_mac_str[18];      // cl_mac as "02:00:00:00:10:00"; written by an add
    mac_address home_bssid;   // VAP of the client's home access point
    mac_address assoc_bssid;  // VAP the client is on; zero for a client known by the controller's word alone
    int32_t home_vlan;
    int32_t assoc_vlan;  // of the VAP the client is on
    be32 cl_ip;          // IPv4 address
    int32_t bssid_idx;   // index into g_cfg.vaps
    uint8_t pmk[32];
    uint32_t flag;  // CLIENT_FLAG_*

    // The table's links; never taken from a caller.
    uint32_t hash_index;  // bucket; 0 on a free slot
    int32_t hash_next;    // chain of the bucket, newest first; a lookup follows the same link in slot_key
    int32_t hash_prev;
    int32_t next;         // used and deleted list: the newer neighbour; free list: the next free slot
    int32_t prev;         // used and deleted list: the older neighbour
    uint32_t entry_flag;  // CLIENT_TBL_ENTRY_*
};
static_assert(sizeof(client_info) == 112 && offsetof(client_info, hash_index) == 88);

extern "C" {

// Empties the table. Runs before every other function of this header. Returns 0.
int client_tbl_init(void);

// Bucket (0 to 2047) of a MAC address.
uint32_t client_tbl_hash_func(const uint8_t *mac);

// Writes `mac` as lower-case text with ':' and a NUL into `dst`, which has at least 18 bytes. Returns 17.
int client_tbl_bin_to_str(const uint8_t *mac, char *dst);

// Adds the client, or overwrites the data of the slot that holds its MAC address; cl_mac_str is made anew from cl_mac.
// Returns the slot, or -1 when the table is full.
int32_t client_tbl_mac_add(const client_info *info);

// With idx -1 an add. With any other idx the data are copied into that slot as they stand: idx must come from a lookup
// of the same MAC address and is not checked. `info` may be the slot itself.
void client_tbl_mac_update(const client_info *info, int32_t idx);

// The record of `mac`, with its slot in *idx; null, with *idx untouched, when there is none. The pointer points into
// the table and is for reading: changes go through client_tbl_mac_update, which keeps what a lookup searches in step
// with the record. Once the client is deleted it shows an erased record: zero, and bssid_idx -1.
client_info *client_tbl_client_get_fast(const uint8_t *mac, int32_t *idx);

// Frees the slot. Returns idx, or -1 when no client is in it.
int32_t client_tbl_drv_mac_delete(int32_t idx);
}

// What a lookup found: the record and its slot; null and -1 when there is no such client.
struct client_lookup {
    client_info *record = nullptr;
    int32_t slot = -1;

    explicit operator bool() const { return record != nullptr; }
};

// client_tbl_client_get_fast for a caller that has no slot yet: its trace shows the slot as -1.
client_lookup find_client(const mac_address &mac);

#endif
