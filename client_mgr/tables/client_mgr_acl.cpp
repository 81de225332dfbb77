#include "client_mgr/tables/client_mgr_acl.h"

#include <cstddef>
#include <cstdio>

#include "client_mgr/base/log.h"
#include "client_mgr/base/seconds.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/hash_chain.h"
#include "client_mgr/tables/slot_operations.h"
#include "client_mgr/tables/slot_table.h"
#include "client_mgr/tables/trace_scope.h"
#include "kx/kx_eloop.h"
#include "wire/mac_address.h"

acl_cache_entry client_acl_cache[ACL_CACHE_SIZE];
int32_t client_acl_hash[ACL_CACHE_SIZE];
int32_t client_mgr_acl_free_index;
int32_t client_mgr_acl_last_used = tables::NO_SLOT;
int32_t client_mgr_acl_last_deleted = tables::NO_SLOT;

namespace {

static_assert(ACL_CACHE_ENTRY_USED == tables::SLOT_USED && ACL_CACHE_ENTRY_DELETED == tables::SLOT_DELETED);

struct verdicts {
    using slot = acl_cache_entry;
    static constexpr auto &slots = client_acl_cache;
    static constexpr auto &buckets = client_acl_hash;
    static constexpr auto &free_index = client_mgr_acl_free_index;
    static constexpr auto &last_used = client_mgr_acl_last_used;
    static constexpr auto &last_deleted = client_mgr_acl_last_deleted;
    static constexpr auto key = &acl_cache_entry::acl_mac;
    static constexpr auto key_text = &acl_cache_entry::acl_mac_str;
    static constexpr acl_cache_entry empty = tables::empty_slot<acl_cache_entry>();
    static constexpr tables::operation_names names = {
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

    static void warn_loop(uint32_t bucket) {
        const int32_t head = client_acl_hash[bucket];
        printf(" detected likely loop. hash_index=%u, client_acl_hash[%u]=%d\n", bucket, bucket, head);
        printf(" client_acl_cache[%d].hash_next=%d\n", head, client_acl_cache[head].hash_next);
        fflush(stdout);
    }

    // Unlike the client table, the cache leaves an overwritten slot on the deleted list.
    static void restore(int32_t) {}
};

// An entry from the future, after the clock was set back, is valid.
bool expired(const acl_cache_entry &e, int32_t now) { return seconds_since(e.timestamp, now) >= ACL_CACHE_VALID_SECS; }

}  // namespace

void client_mgr_acl_cache_init(void) {
    const trace_scope trace;
    tables::init<verdicts>();
}

uint32_t client_mgr_acl_hash_func(const uint8_t *mac) { return tables::mac_hash(mac_at(mac)); }

int client_mgr_acl_bin_to_str(const uint8_t *mac, char *dst) { return mac_to_text(mac, dst); }

int32_t client_mgr_acl_mac_add(const acl_cache_entry *e) { return tables::add<verdicts>(*e); }

void client_mgr_acl_mac_update(const acl_cache_entry *e, int32_t idx) { tables::update<verdicts>(*e, idx); }

acl_cache_entry *client_mgr_acl_get_fast(const uint8_t *mac, int32_t *idx) {
    const int32_t now = current_seconds();
    return tables::get<verdicts>(mac_at(mac), idx, [now](const acl_cache_entry &e) { return !expired(e, now); });
}

acl_lookup find_acl_entry(const mac_address &mac) {
    acl_lookup found;
    found.record = client_mgr_acl_get_fast(mac.bytes, &found.slot);
    return found;
}

int32_t client_mgr_acl_drv_mac_delete(int32_t idx) { return tables::remove<verdicts>(idx); }

void client_mgr_acl_cache_expire(void *, void *) {
    const trace_scope trace;
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
}
