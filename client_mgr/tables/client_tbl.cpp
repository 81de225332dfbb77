

#include "client_mgr/tables/client_tbl.h"

#include "client_mgr/base/log.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "client_mgr/tables/slot_key.h"
#include "client_mgr/tables/slot_table.h"
#include "wire/mac_address.h"

client_info client_info_tbl[CLIENT_TBL_SIZE];
slot_key client_key_tbl[CLIENT_TBL_SIZE];
int32_t client_hash_tbl[CLIENT_TBL_SIZE];
int32_t client_tbl_free_index;
int32_t client_tbl_last_used = NO_SLOT;
int32_t client_tbl_last_deleted = NO_SLOT;

namespace {

void client_tbl_restore_deleted(int32_t idx);

constexpr client_info no_client() {
    client_info s = {};
    s.bssid_idx = -1;
    return s;
}
constexpr client_info NO_CLIENT = no_client();

static_assert(CLIENT_TBL_ENTRY_USED == SLOT_USED && CLIENT_TBL_ENTRY_DELETED == SLOT_DELETED);

struct clients {
    using slot = client_info;
    static constexpr int32_t SIZE = CLIENT_TBL_SIZE;
    static constexpr bool trace_list_steps = true;
    static constexpr slot_table_names names = {
        .find = "client_tbl_lock_find_client_bin",
        .add = "client_tbl_mac_add",
        .lock_add = "client_tbl_lock_mac_add",
        .hash_add = "client_tbl_lock_hash_tbl_add",
        .used_list_add = "client_tbl_lock_used_list_add",
        .update = "client_tbl_mac_update",
        .get = "client_tbl_client_get_fast",
        .remove = "client_tbl_drv_mac_delete",
        .mark = "client_tbl_lock_mac_delete",
        .clear = "client_tbl_lock_mac_clear",
        .hash_delete = "client_tbl_lock_hash_tbl_delete",
        .deleted_list_delete = "client_tbl_lock_deleted_list_delete",
    };

    static slot *slots() { return client_info_tbl; }
    static slot_key *keys() { return client_key_tbl; }
    static int32_t *buckets() { return client_hash_tbl; }
    static int32_t &free_index() { return client_tbl_free_index; }
    static int32_t &last_used() { return client_tbl_last_used; }
    static int32_t &last_deleted() { return client_tbl_last_deleted; }
    static const uint8_t *key(const slot &s) { return s.cl_mac.bytes; }
    static char *key_text(slot &s) { return s.cl_mac_str; }
    static void erase(slot &s) { memcpy(&s, &NO_CLIENT, offsetof(slot, hash_index)); }
    // The foreign name in both texts is intended: what reads the console looks for it.
    static void warn_loop(uint32_t bucket) {
        const int32_t head = client_hash_tbl[bucket];
        printf("ap_mgr_lock_find_client_bin: detected likely loop. hash_index=%u, client_hash_tbl[%u]=%d\n", bucket,
               bucket, head);
        printf("ap_mgr_lock_find_client_bin: client_info_tbl[%d].hash_next=%d\n", head, client_key_tbl[head].next);
        fflush(stdout);
    }
    static void restore(int32_t idx) { client_tbl_restore_deleted(idx); }
};

using table = slot_table<clients>;

// Of a deleted slot.
void client_tbl_lock_mac_restore(int32_t idx) {
    CM_TRACE_ENTER(__func__);
    CM_LOG(LOG_TRACE, ">>>>> Client index %d", idx);
    table::deleted_list_delete(idx);
    table::used_list_add(idx);
    client_info_tbl[idx].entry_flag &= ~CLIENT_TBL_ENTRY_DELETED;
    CM_TRACE_LEAVE(__func__);
}

void client_tbl_restore_deleted(int32_t idx) {
    if ((client_info_tbl[idx].entry_flag & CLIENT_TBL_ENTRY_DELETED) != 0) {
        client_tbl_lock_mac_restore(idx);
    }
}

}  // namespace

int client_tbl_init(void) {
    CM_TRACE_ENTER(__func__);
    table::init();
    CM_TRACE_LEAVE(__func__);
    return 0;
}

uint32_t client_tbl_hash_func(const uint8_t *mac) { return mac_hash(mac); }

int client_tbl_bin_to_str(const uint8_t *mac, char *dst) { return mac_to_text(mac, dst); }

int32_t client_tbl_mac_add(const client_info *info) { return table::add(*info); }

void client_tbl_mac_update(const client_info *info, int32_t idx) { table::update(*info, idx); }

client_info *client_tbl_client_get_fast(const uint8_t *mac, int32_t *idx) {
    return table::get(mac, idx, [](const client_info &) { return true; });
}

client_lookup find_client(const mac_address &mac) {
    client_lookup found;
    found.record = client_tbl_client_get_fast(mac.bytes, &found.slot);
    return found;
}

int32_t client_tbl_drv_mac_delete(int32_t idx) { return table::remove(idx); }

int32_t client_tbl_lock_find_client_bin(const uint8_t *mac) { return table::find(mac); }
