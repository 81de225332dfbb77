#include "table_copy.h"

#include <cstring>

#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"

namespace sim {
namespace {

template <class Slot>
struct table {
    Slot *slots;
    int32_t *buckets;
    std::array<int32_t *, 3> heads;

    std::array<int32_t, 3> values() const { return {*heads[0], *heads[1], *heads[2]}; }
};

table<client_info> table_of(const client_info *) {
    return {
        client_info_tbl, client_hash_tbl, {&client_tbl_free_index, &client_tbl_last_used, &client_tbl_last_deleted}};
}

table<acl_cache_entry> table_of(const acl_cache_entry *) {
    return {client_acl_cache,
            client_acl_hash,
            {&client_mgr_acl_free_index, &client_mgr_acl_last_used, &client_mgr_acl_last_deleted}};
}

}  // namespace

template <class Slot>
void table_copy<Slot>::take() {
    const table<Slot> live = table_of(slots_);
    memcpy(slots_, live.slots, sizeof slots_);
    memcpy(buckets_, live.buckets, sizeof buckets_);
    heads_ = live.values();
    taken_ = true;
}

template <class Slot>
void table_copy<Slot>::put_back() const {
    const table<Slot> live = table_of(slots_);
    memcpy(live.slots, slots_, sizeof slots_);
    memcpy(live.buckets, buckets_, sizeof buckets_);
    for (size_t i = 0; i < heads_.size(); i++) {
        *live.heads[i] = heads_[i];
    }
}

template <class Slot>
bool table_copy<Slot>::is_current() const {
    const table<Slot> live = table_of(slots_);
    return taken_ && heads_ == live.values() && memcmp(live.slots, slots_, sizeof slots_) == 0 &&
           memcmp(live.buckets, buckets_, sizeof buckets_) == 0;
}

template class table_copy<client_info>;
template class table_copy<acl_cache_entry>;

}  // namespace sim
