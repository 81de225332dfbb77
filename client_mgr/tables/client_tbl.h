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
    // The client's data, which add and update copy from the caller's record.
    mac_address cl_mac;       // the key
    char cl_mac_str[18];      // cl_mac as "02:00:00:00:10:00"; written by an add
    mac_address home_bssid;   // VAP of the client's home access point
    mac_address assoc_bssid;  // VAP the client is on; zero when only the controller reported the client
    int32_t home_vlan;
    int32_t assoc_vlan;  // of the VAP the client is on
    be32 cl_ip;          // IPv4 address
    int32_t bssid_idx;   // index into g_cfg.vaps
    uint8_t pmk[32];
    uint32_t flag;  // CLIENT_FLAG_*

    // The table's links. Add and update ignore those of the caller's record.
    uint32_t hash_index;  // bucket; 0 on a free slot
    int32_t hash_next;    // the older neighbour in the bucket's chain
    int32_t hash_prev;    // the newer neighbour in the bucket's chain
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

// Adds the client, or overwrites the data of the slot with its MAC address. Writes the slot's cl_mac_str from cl_mac.
// Returns the slot, or -1 when the table is full.
int32_t client_tbl_mac_add(const client_info *info);

// Adds the client when idx is -1. Otherwise copies the data, cl_mac_str included, into slot idx, which is not checked
// and must come from a lookup of the same MAC address. `info` may be the slot itself.
void client_tbl_mac_update(const client_info *info, int32_t idx);

// Returns the record of `mac` and stores its slot in *idx. When there is none, returns null and leaves *idx as it is.
// The record is the table's own: a change takes effect at once, and later lookups compare with its cl_mac and follow
// its hash_next. Once the client is deleted, its data are zero and bssid_idx is -1.
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
