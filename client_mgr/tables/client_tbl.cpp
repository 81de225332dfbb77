#include "client_mgr/tables/client_tbl.h"

#include <cstddef>
#include <cstdio>

#include "client_mgr/base/log.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "client_mgr/tables/hash_chain.h"
#include "client_mgr/tables/slot_operations.h"
#include "client_mgr/tables/slot_table.h"
#include "client_mgr/tables/trace_scope.h"
#include "wire/mac_address.h"

client_info client_info_tbl[CLIENT_TBL_SIZE];
int32_t client_hash_tbl[CLIENT_TBL_SIZE];
int32_t client_tbl_free_index;
int32_t client_tbl_last_used = tables::NO_SLOT;
int32_t client_tbl_last_deleted = tables::NO_SLOT;

namespace {

static_assert(CLIENT_TBL_ENTRY_USED == tables::SLOT_USED && CLIENT_TBL_ENTRY_DELETED == tables::SLOT_DELETED);

constexpr client_info no_client() {
    auto s = tables::empty_slot<client_info>();
    s.bssid_idx = -1;
    return s;
}

struct clients {
    using slot = client_info;
    static constexpr auto &slots = client_info_tbl;
    static constexpr auto &buckets = client_hash_tbl;
    static constexpr auto &free_index = client_tbl_free_index;
    static constexpr auto &last_used = client_tbl_last_used;
    static constexpr auto &last_deleted = client_tbl_last_deleted;
    static constexpr auto key = &client_info::cl_mac;
    static constexpr auto key_text = &client_info::cl_mac_str;
    static constexpr client_info empty = no_client();
    static constexpr tables::operation_names names = {
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

    // The texts start with another module's name on purpose: programs that read the console search for it.
    static void warn_loop(uint32_t bucket) {
        const int32_t head = client_hash_tbl[bucket];
        printf("ap_mgr_lock_find_client_bin: detected likely loop. hash_index=%u, client_hash_tbl[%u]=%d\n", bucket,
               bucket, head);
        printf("ap_mgr_lock_find_client_bin: client_info_tbl[%d].hash_next=%d\n", head,
               client_info_tbl[head].hash_next);
        fflush(stdout);
    }

    static void restore(int32_t idx);
};

// The slot is on the deleted list.
void client_tbl_lock_mac_restore(int32_t idx) {
    const trace_scope trace;
    CM_LOG(LOG_TRACE, ">>>>> Client index %d", idx);
    tables::deleted_list_delete<clients>(idx);
    tables::used_list_add<clients>(idx);
    client_info_tbl[idx].entry_flag &= ~CLIENT_TBL_ENTRY_DELETED;
}

void clients::restore(int32_t idx) {
    if ((client_info_tbl[idx].entry_flag & CLIENT_TBL_ENTRY_DELETED) != 0) {
        client_tbl_lock_mac_restore(idx);
    }
}

}  // namespace

int client_tbl_init(void) {
    const trace_scope trace;
    tables::init<clients>();
    return 0;
}

uint32_t client_tbl_hash_func(const uint8_t *mac) { return tables::mac_hash(mac_at(mac)); }

int client_tbl_bin_to_str(const uint8_t *mac, char *dst) { return mac_to_text(mac, dst); }

int32_t client_tbl_mac_add(const client_info *info) { return tables::add<clients>(*info); }

void client_tbl_mac_update(const client_info *info, int32_t idx) { tables::update<clients>(*info, idx); }

client_info *client_tbl_client_get_fast(const uint8_t *mac, int32_t *idx) {
    return tables::get<clients>(mac_at(mac), idx, [](const client_info &) { return true; });
}

client_lookup find_client(const mac_address &mac) {
    client_lookup found;
    found.record = client_tbl_client_get_fast(mac.bytes, &found.slot);
    return found;
}

int32_t client_tbl_drv_mac_delete(int32_t idx) { return tables::remove<clients>(idx); }

int32_t client_tbl_lock_find_client_bin(const uint8_t *mac) { return tables::find<clients>(mac_at(mac)); }
