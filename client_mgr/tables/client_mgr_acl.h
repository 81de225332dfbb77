// The cache of the controller's MAC ACL verdicts: 2048 entries, found by MAC address for 30 seconds.
#ifndef CLIENT_MGR_TABLES_CLIENT_MGR_ACL_H
#define CLIENT_MGR_TABLES_CLIENT_MGR_ACL_H

#include <cstddef>
#include <cstdint>

#include "wire/mac_address.h"

// acl_cache_entry::state
enum : int32_t {
    ACL_STATE_DENIED = 0,
    ACL_STATE_ALLOWED = 1,
    ACL_STATE_PENDING = 2,  // asked, no verdict yet
};

// acl_cache_entry::entry_flag
enum : uint32_t {
    ACL_CACHE_ENTRY_USED = 0x1,
    ACL_CACHE_ENTRY_DELETED = 0x2,  // only while a delete runs
};

inline constexpr int32_t ACL_CACHE_SIZE = 2048;
inline constexpr int32_t ACL_CACHE_VALID_SECS = 30;
inline constexpr unsigned ACL_CACHE_SWEEP_SECS = 60;

// One verdict. Integers in the host's order; indexes are -1 for none.
struct acl_cache_entry {
    // The data, which add and update copy from the caller's entry.
    mac_address acl_mac;   // the key
    char acl_mac_str[18];  // acl_mac as text; written by an add
    int32_t timestamp;     // seconds of time(): when the request was sent or the verdict arrived
    int32_t state;         // ACL_STATE_*

    // The cache's links, as in client_info.
    uint32_t hash_index;
    int32_t hash_next;
    int32_t hash_prev;
    int32_t next;
    int32_t prev;
    uint32_t entry_flag;  // ACL_CACHE_ENTRY_*
};
static_assert(sizeof(acl_cache_entry) == 56 && offsetof(acl_cache_entry, hash_index) == 32);

extern "C" {

// Empties the cache. Runs before every other function of this header.
void client_mgr_acl_cache_init(void);

// As client_tbl_hash_func and client_tbl_bin_to_str.
uint32_t client_mgr_acl_hash_func(const uint8_t *mac);
int client_mgr_acl_bin_to_str(const uint8_t *mac, char *dst);

// Adds the entry, or overwrites the entry of its MAC address, whatever its age. Returns the slot, or -1 when the cache
// is full.
int32_t client_mgr_acl_mac_add(const acl_cache_entry *e);

// Adds the entry when idx is -1. Otherwise copies the data into slot idx, which is not checked and must come from a
// lookup of the same MAC address.
void client_mgr_acl_mac_update(const acl_cache_entry *e, int32_t idx);

// Returns the entry of `mac` that is less than 30 seconds old and stores its slot in *idx. When there is none, returns
// null and leaves *idx as it is. Also returns pending entries. The entry is the cache's own.
acl_cache_entry *client_mgr_acl_get_fast(const uint8_t *mac, int32_t *idx);

// Frees the slot. Returns idx, or -1 when no entry is in it.
int32_t client_mgr_acl_drv_mac_delete(int32_t idx);

// Timer callback: frees every entry of 30 seconds or more and arms the next run in 60 seconds.
void client_mgr_acl_cache_expire(void *ctx1, void *ctx2);
}

// What a lookup found: the entry and its slot; null and -1 when there is no valid entry.
struct acl_lookup {
    acl_cache_entry *record = nullptr;
    int32_t slot = -1;

    explicit operator bool() const { return record != nullptr; }
};

// client_mgr_acl_get_fast for a caller that has no slot yet: its trace shows the slot as -1.
acl_lookup find_acl_entry(const mac_address &mac);

#endif
