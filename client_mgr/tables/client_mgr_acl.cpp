

#include "client_mgr/tables/client_mgr_acl.h"

#include "client_mgr/base/log.h"
#include "client_mgr/base/seconds.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/slot_key.h"
#include "client_mgr/tables/slot_table.h"
#include "kx/kx_eloop.h"
#include "wire/mac_address.h"

acl_cache_entry client_acl_cache[ACL_CACHE_SIZE];
slot_key client_acl_keys[ACL_CACHE_SIZE];
int32_t client_acl_hash[ACL_CACHE_SIZE];
int32_t client_mgr_acl_free_index;
int32_t client_mgr_acl_last_used = NO_SLOT;
int32_t client_mgr_acl_last_deleted = NO_SLOT;

namespace {

static_assert(ACL_CACHE_ENTRY_USED == SLOT_USED && ACL_CACHE_ENTRY_DELETED == SLOT_DELETED);

struct verdicts {
    using slot = acl_cache_entry;
    static constexpr int32_t SIZE = ACL_CACHE_SIZE;
    static constexpr bool trace_list_steps = false;
    static constexpr slot_table_names names = {
        .find = "client_mgr_acl_lock_find_client_bin",
        .add = "client_mgr_acl_mac_add",
        .lock_add = "client_mgr_acl_lock_mac_add",
        .hash_add = "client_mgr_acl_lock_hash_tbl_add",
        .used_list_add = nullptr,
        .update = "client_mgr_acl_mac_update",
        .get = "client_mgr_acl_get_fast",
        .remove = "client_mgr_acl_drv_mac_delete",
        .mark = "client_mgr_acl_lock_mac_delete",
        .clear = "client_mgr_acl_lock_mac_clear",
        .hash_delete = "client_mgr_acl_lock_hash_tbl_delete",
        .deleted_list_delete = nullptr,
    };

    static slot *slots() { return client_acl_cache; }
    static slot_key *keys() { return client_acl_keys; }
    static int32_t *buckets() { return client_acl_hash; }
    static int32_t &free_index() { return client_mgr_acl_free_index; }
    static int32_t &last_used() { return client_mgr_acl_last_used; }
    static int32_t &last_deleted() { return client_mgr_acl_last_deleted; }
    static const uint8_t *key(const slot &s) { return s.acl_mac.bytes; }
    static char *key_text(slot &s) { return s.acl_mac_str; }
    static void erase(slot &s) { memset(&s, 0, offsetof(slot, hash_index)); }
    static void warn_loop(uint32_t bucket) {
        const int32_t head = client_acl_hash[bucket];
        printf(" detected likely loop. hash_index=%u, client_acl_hash[%u]=%d\n", bucket, bucket, head);
        printf(" client_acl_cache[%d].hash_next=%d\n", head, client_acl_keys[head].next);
        fflush(stdout);
    }
    // Unlike the client table, the cache never takes a slot back from the deleted list.
    static void restore(int32_t) {}
};

using table = slot_table<verdicts>;

// A clock set back makes an entry younger, not invalid.
bool expired(const acl_cache_entry &e, int32_t now) { return seconds_since(e.timestamp, now) >= ACL_CACHE_VALID_SECS; }

}  // namespace

void client_mgr_acl_cache_init(void) {
    CM_TRACE_ENTER(__func__);
    table::init();
    CM_TRACE_LEAVE(__func__);
}

uint32_t client_mgr_acl_hash_func(const uint8_t *mac) { return mac_hash(mac); }

int client_mgr_acl_bin_to_str(const uint8_t *mac, char *dst) { return mac_to_text(mac, dst); }

int32_t client_mgr_acl_mac_add(const acl_cache_entry *e) { return table::add(*e); }

void client_mgr_acl_mac_update(const acl_cache_entry *e, int32_t idx) { table::update(*e, idx); }

acl_cache_entry *client_mgr_acl_get_fast(const uint8_t *mac, int32_t *idx) {
    const int32_t now = current_seconds();
    return table::get(mac, idx, [now](const acl_cache_entry &e) { return !expired(e, now); });
}

acl_lookup find_acl_entry(const mac_address &mac) {
    acl_lookup found;
    found.record = client_mgr_acl_get_fast(mac.bytes, &found.slot);
    return found;
}

int32_t client_mgr_acl_drv_mac_delete(int32_t idx) { return table::remove(idx); }

void client_mgr_acl_cache_expire(void *, void *) {
    CM_TRACE_ENTER(__func__);
    const int32_t now = current_seconds();
    for (int32_t i = 0; i < ACL_CACHE_SIZE; i++) {
        const acl_cache_entry &e = client_acl_cache[i];
        if ((e.entry_flag & ACL_CACHE_ENTRY_USED) == 0 || !expired(e, now)) {
            continue;
        }
        CM_LOG(LOG_TRACE, "Entry expired %d ", i);
        client_mgr_acl_drv_mac_delete(i);
    }
    kx_eloop_register_timeout(ACL_CACHE_SWEEP_SECS, 0, client_mgr_acl_cache_expire, nullptr, nullptr);
    CM_TRACE_LEAVE(__func__);
}
