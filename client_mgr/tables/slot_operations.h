// The operations that change a table.
#ifndef CLIENT_MGR_TABLES_SLOT_OPERATIONS_H
#define CLIENT_MGR_TABLES_SLOT_OPERATIONS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/tables/hash_chain.h"
#include "client_mgr/tables/slot_list.h"
#include "client_mgr/tables/slot_table.h"
#include "client_mgr/tables/trace_scope.h"
#include "wire/mac_address.h"

namespace tables {

// Empties the table. The free list then returns slots in ascending order.
template <slot_table T>
void init() {
    for (int32_t i = 0; i < SLOTS; i++) {
        T::buckets[i] = NO_SLOT;
        at<T>(i) = T::empty;
        at<T>(i).next = i + 1;
    }
    at<T>(SLOTS - 1).next = NO_SLOT;
    T::last_deleted = NO_SLOT;
    T::last_used = NO_SLOT;
    T::free_index = 0;
}

// --- steps on the lists

template <slot_table T>
void used_list_add(int32_t idx) {
    const trace_scope trace(T::names.used_list_add);
    push_newest(T::slots, T::last_used, idx);
}

template <slot_table T>
void deleted_list_delete(int32_t idx) {
    const trace_scope trace(T::names.deleted_list_delete);
    unlink(T::slots, T::last_deleted, idx);
}

// --- add and update

// Copies the data in front of the links. `from` may be the slot itself.
template <slot_table T>
void copy_data(int32_t idx, const typename T::slot &from) {
    auto &to = at<T>(idx);
    if (&to != &from) {
        memcpy(&to, &from, offsetof(typename T::slot, hash_index));
    }
}

template <slot_table T>
void copy_data_and_write_text(int32_t idx, const typename T::slot &from) {
    copy_data<T>(idx, from);
    mac_to_text((from.*T::key).bytes, at<T>(idx).*T::key_text);
}

// Returns -1 when the table is full.
template <slot_table T>
int32_t insert(const typename T::slot &rec) {
    const mac_address &mac = rec.*T::key;
    const int32_t idx = pop_free(T::slots, T::free_index);
    if (idx < 0) {
        CM_LOG(LOG_EVENT, "<<<<< %s No Free entry in list ", T::names.lock_add);
        return NO_SLOT;
    }
    at<T>(idx).hash_index = mac_hash(mac);
    copy_data_and_write_text<T>(idx, rec);
    at<T>(idx).entry_flag |= SLOT_USED;
    hash_add<T>(idx);
    used_list_add<T>(idx);
    CM_LOG(LOG_EVENT, "<<<<< %s: Added client:" MAC_FMT ", idx %d", T::names.lock_add, mac_arg(mac), idx);
    return idx;
}

template <slot_table T>
int32_t overwrite_or_insert(const typename T::slot &rec) {
    const mac_address &mac = rec.*T::key;
    const trace_scope trace(T::names.lock_add);
    CM_LOG(LOG_TRACE, ">>>>> Adding client:" MAC_FMT, mac_arg(mac));
    const int32_t idx = find<T>(mac);
    if (idx == NO_SLOT) {
        return insert<T>(rec);
    }
    copy_data_and_write_text<T>(idx, rec);
    T::restore(idx);
    CM_LOG(LOG_EVENT, "<<<<< %s: Overwrite existing client:" MAC_FMT ", idx %d", T::names.lock_add, mac_arg(mac), idx);
    return idx;
}

// Adds the record, or overwrites the data of the slot with its MAC address. Returns the slot, or -1 when the table is
// full.
template <slot_table T>
int32_t add(const typename T::slot &rec) {
    const mac_address &mac = rec.*T::key;
    const trace_scope trace(T::names.add);
    CM_LOG(LOG_TRACE, ">>>>> Adding cl mac:" MAC_FMT, mac_arg(mac));
    const int32_t idx = overwrite_or_insert<T>(rec);
    CM_LOG(LOG_TRACE, "Added client mac:" MAC_FMT ", cl idx %d", mac_arg(mac), idx);
    return idx;
}

// Copies the data into slot `idx`, which is not checked; adds the record when idx is -1.
template <slot_table T>
void update(const typename T::slot &rec, int32_t idx) {
    const mac_address &mac = rec.*T::key;
    const trace_scope trace(T::names.update);
    CM_LOG(LOG_TRACE, ">>>>> Updating client:" MAC_FMT " idx: %d", mac_arg(mac), idx);
    if (idx == NO_SLOT) {
        add<T>(rec);
        return;
    }
    copy_data<T>(idx, rec);
    T::restore(idx);
    CM_LOG(LOG_EVENT, "<<<<< %s: Overwrite existing client:" MAC_FMT ", idx %d", T::names.update, mac_arg(mac), idx);
}

// --- delete

// Moves the slot from the used list to the deleted list. Returns idx, or -1 when the slot is not in use.
template <slot_table T>
int32_t mark_deleted(int32_t idx) {
    const trace_scope trace(T::names.mark);
    CM_LOG(LOG_EVENT, ">>>>> Index %d", idx);
    if (static_cast<uint32_t>(idx) >= SLOTS || (at<T>(idx).entry_flag & SLOT_USED) == 0) {
        return NO_SLOT;
    }
    auto &s = at<T>(idx);
    if ((s.entry_flag & SLOT_DELETED) != 0) {
        CM_LOG(LOG_EVENT, "<<<<< %s: Already deleted mac %.18s", T::names.mark, s.*T::key_text);
        return NO_SLOT;
    }
    unlink(T::slots, T::last_used, idx);
    push_newest(T::slots, T::last_deleted, idx);
    s.entry_flag |= SLOT_DELETED;
    return idx;
}

// Frees a slot that is marked as deleted.
template <slot_table T>
void clear(int32_t idx) {
    const trace_scope trace(T::names.clear);
    CM_LOG(LOG_EVENT, ">>>>> Client index %d", idx);
    hash_delete<T>(idx);
    deleted_list_delete<T>(idx);
    memcpy(&at<T>(idx), &T::empty, sizeof T::empty);  // gcc 12 compiles the assignment to a slower "rep stos"
    push_free(T::slots, T::free_index, idx);
}

// Frees the slot. Returns idx, or -1 when the slot is not in use.
template <slot_table T>
int32_t remove(int32_t idx) {
    const trace_scope trace(T::names.remove);
    CM_LOG(LOG_EVENT, ">>>>> Client Index %d", idx);
    const int32_t marked = mark_deleted<T>(idx);
    if (marked >= 0) {
        clear<T>(marked);
    }
    return marked;
}

}  // namespace tables

#endif
