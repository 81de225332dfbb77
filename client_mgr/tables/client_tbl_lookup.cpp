// Lookups by text, by slot and over all clients. They change nothing.

#include "client_mgr/tables/client_tbl_lookup.h"

#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/base/text.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "client_mgr/tables/trace_scope.h"
#include "wire/mac_address.h"

namespace {

constexpr uint32_t client_data_size = offsetof(client_info, hash_index);

bool in_use(const client_info &rec) { return (rec.entry_flag & CLIENT_TBL_ENTRY_USED) != 0; }

int32_t client_tbl_lock_find_client_str(const char *mac_text) {
    const trace_scope trace;
    uint8_t mac[6];
    client_mgr_mac_str_to_bin(mac_text, mac);
    return client_tbl_lock_find_client_bin(mac);
}

}  // namespace

int client_tbl_char_to_ascii(char c) { return client_mgr_char_to_ascii(c); }

int32_t client_tbl_find_client_str(const char *mac_text) {
    const trace_scope trace;
    return client_tbl_lock_find_client_str(mac_text);
}

int32_t client_tbl_find_client(const uint8_t *mac) {
    CM_LOG(LOG_EVENT, ">>>>> cl_mac:" MAC_FMT, mac_arg(mac));
    const int32_t idx = client_tbl_lock_find_client_bin(mac);
    CM_LOG(LOG_EVENT, "<<<<< Client Index %d", idx);
    return idx;
}

client_info *client_tbl_client_get(int32_t idx, int32_t *prev) {
    CM_LOG(LOG_TRACE, ">>>>> Client index %d", idx);
    if (static_cast<uint32_t>(idx) >= CLIENT_TBL_SIZE) {
        return nullptr;
    }
    client_info *rec = &client_info_tbl[idx];
    if (prev != nullptr) {
        *prev = rec->prev;
    }
    CM_LOG(LOG_TRACE, "<<<<< cl mac:" MAC_FMT, mac_arg(rec->cl_mac.bytes));
    return rec;
}

client_info *client_tbl_get_first(int32_t *prev) { return client_tbl_client_get(client_tbl_last_used, prev); }

int32_t client_tbl_lock_client_get_num_entries(void) {
    const trace_scope trace;
    int32_t count = 0;
    for (const client_info &rec : client_info_tbl) {
        if (in_use(rec)) {
            count++;
        }
    }
    return count;
}

void client_tbl_get_all(uint8_t *buf, uint32_t *len) {
    const trace_scope trace;
    uint32_t need = client_data_size;
    for (const client_info &rec : client_info_tbl) {
        // The test precedes every slot, used or not. So a buffer with room for exactly the stored records gets no
        // count, unless the last slot is in use.
        if (need > *len) {
            CM_LOG(LOG_EVENT, "<<<<< No space left in the buffer");
            return;
        }
        if (!in_use(rec)) {
            continue;
        }
        memcpy(buf, &rec, client_data_size);
        buf += client_data_size;
        need += client_data_size;
    }
    *len = need - client_data_size;
}
