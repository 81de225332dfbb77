// What the client table and the ACL cache share: a fixed array of slots, found by MAC address through hash chains that
// link slots by index, with a list of free slots, of used ones and, while a delete runs, of deleted ones.
//
// A table is described by a type T:
//
//   T::slot                       the record; its links are named as in client_info
//   T::SIZE                       number of slots, and of buckets
//   T::slots(), T::keys(), T::buckets()   the arrays
//   T::free_index(), T::last_used(), T::last_deleted()   the heads of the lists, -1 when empty
//   T::key(slot), T::key_text(slot)                      the MAC address and its text of 18 bytes
//   T::erase(slot)                puts the data of a free slot in
//   T::warn_loop(bucket)          says on standard output that a chain has no end
//   T::restore(index)             takes an overwritten slot back from the deleted list, where the table does that
//   T::trace_list_steps           whether the steps on the used and the deleted list are traced
//   T::names                      what the operations are called in traces
#ifndef CLIENT_MGR_TABLES_SLOT_TABLE_H
#define CLIENT_MGR_TABLES_SLOT_TABLE_H

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstring>

#include "client_mgr/base/log.h"
#include "client_mgr/tables/slot_key.h"
#include "wire/mac_address.h"

inline constexpr int32_t NO_SLOT = -1;

inline constexpr uint32_t SLOT_USED = 0x1;
inline constexpr uint32_t SLOT_DELETED = 0x2;

struct slot_table_names {
    const char *find;
    const char *add;
    const char *lock_add;
    const char *hash_add;
    const char *used_list_add;
    const char *update;
    const char *get;
    const char *remove;
    const char *mark;
    const char *clear;
    const char *hash_delete;
    const char *deleted_list_delete;
};

#define CM_TRACE_ENTER(name) CM_LOG(LOG_TRACE, ">>>>> %s() %d", name, __LINE__)
#define CM_TRACE_LEAVE(name) CM_LOG(LOG_TRACE, "<<<<< %s() %d", name, __LINE__)

inline bool mac_equal(const uint8_t *a, const uint8_t *b) { return memcmp(a, b, 6) == 0; }

// Bucket of a MAC address among 2048. The mixed value stays below 4096, so the product is never negative.
inline uint32_t mac_hash(const uint8_t *mac) {
    const uint32_t x = static_cast<uint32_t>(mac[0] ^ mac[1] << 2 ^ mac[2] << 4 ^ mac[3] ^ mac[4] << 2 ^ mac[5] << 4);
    return x * 593 % 2048;
}

template <class T>
class slot_table {
    using slot = typename T::slot;

    static constexpr size_t data_size = offsetof(slot, hash_index);

    static slot &at(int32_t idx) { return T::slots()[idx]; }
    static slot_key &key_at(int32_t idx) { return T::keys()[idx]; }
    static bool in_range(int32_t idx) { return static_cast<uint32_t>(idx) < static_cast<uint32_t>(T::SIZE); }

    // --- lists of slots, newest first

    static void push_newest(int32_t &newest, int32_t idx) {
        at(idx).prev = newest;
        at(idx).next = NO_SLOT;
        if (newest != NO_SLOT) {
            at(newest).next = idx;
        }
        newest = idx;
    }

    static void unlink(int32_t &newest, int32_t idx) {
        const slot &s = at(idx);
        if (s.prev != NO_SLOT) {
            at(s.prev).next = s.next;
        }
        if (s.next != NO_SLOT) {
            at(s.next).prev = s.prev;
        }
        if (newest == idx) {
            newest = s.prev;
        }
    }

    static int32_t pop_free() {
        const int32_t idx = T::free_index();
        if (idx != NO_SLOT) {
            T::free_index() = at(idx).next;
        }
        return idx;
    }

    static void push_free(int32_t idx) {
        at(idx).next = T::free_index();
        at(idx).prev = NO_SLOT;
        T::free_index() = idx;
    }

    // --- hash chains: walked along the keys. A record's hash_next repeats the link for who looks at the record alone.

    static void set_hash_next(int32_t idx, int32_t next) {
        key_at(idx).next = static_cast<int16_t>(next);
        at(idx).hash_next = next;
    }

    static void hash_add(int32_t idx) {
        CM_TRACE_ENTER(T::names.hash_add);
        slot &s = at(idx);
        CM_LOG(LOG_TRACE, ">>>>> Client idx %d mac:" MAC_FMT, idx, MAC_ARG(T::key(s)));
        int32_t &head = T::buckets()[s.hash_index];
        s.hash_prev = NO_SLOT;
        set_hash_next(idx, head);
        if (head != NO_SLOT) {
            at(head).hash_prev = idx;
        }
        head = idx;
        CM_LOG(LOG_TRACE, "<<<<< Index %d", idx);
        CM_TRACE_LEAVE(T::names.hash_add);
    }

    static void hash_delete(int32_t idx) {
        CM_TRACE_ENTER(T::names.hash_delete);
        slot &s = at(idx);
        CM_LOG(LOG_TRACE, ">>>>> Client idx %d mac:" MAC_FMT, idx, MAC_ARG(T::key(s)));
        int32_t &head = T::buckets()[mac_hash(T::key(s))];
        const int32_t next = key_at(idx).next;
        if (s.hash_prev != NO_SLOT) {
            set_hash_next(s.hash_prev, next);
        }
        if (next != NO_SLOT) {
            at(next).hash_prev = s.hash_prev;
        }
        if (head == idx) {
            head = next;
        }
        s.hash_prev = NO_SLOT;
        set_hash_next(idx, NO_SLOT);
        CM_TRACE_LEAVE(T::names.hash_delete);
    }

    // --- the steps of add and delete

    static void copy_mac_to_key(int32_t idx) { memcpy(key_at(idx).mac, T::key(at(idx)), sizeof(slot_key::mac)); }

    static void copy_data(int32_t idx, const slot &from) {
        slot &to = at(idx);
        if (&to != &from) {  // callers may copy a slot onto itself
            memcpy(&to, &from, data_size);
        }
        copy_mac_to_key(idx);
    }

    static void erase_data(int32_t idx) {
        T::erase(at(idx));
        copy_mac_to_key(idx);
    }

    static int32_t lock_add(const slot &rec) {
        const uint8_t *mac = T::key(rec);
        CM_TRACE_ENTER(T::names.lock_add);
        CM_LOG(LOG_TRACE, ">>>>> Adding client:" MAC_FMT, MAC_ARG(mac));
        int32_t idx = find(mac);
        if (idx != NO_SLOT) {
            overwrite(idx, rec);
            CM_LOG(LOG_EVENT, "<<<<< %s: Overwrite existing client:" MAC_FMT ", idx %d", T::names.lock_add,
                   MAC_ARG(T::key(at(idx))), idx);
        } else {
            idx = insert(rec);
        }
        CM_TRACE_LEAVE(T::names.lock_add);
        return idx;
    }

    static void overwrite(int32_t idx, const slot &rec) {
        copy_data(idx, rec);
        mac_to_text(T::key(at(idx)), T::key_text(at(idx)));
        T::restore(idx);
    }

    static int32_t insert(const slot &rec) {
        const int32_t idx = pop_free();
        if (idx < 0) {
            CM_LOG(LOG_EVENT, "<<<<< %s No Free entry in list ", T::names.lock_add);
            return NO_SLOT;
        }
        slot &s = at(idx);
        s.hash_index = mac_hash(T::key(rec));
        copy_data(idx, rec);
        mac_to_text(T::key(s), T::key_text(s));
        s.entry_flag |= SLOT_USED;
        hash_add(idx);
        used_list_add(idx);
        CM_LOG(LOG_EVENT, "<<<<< %s: Added client:" MAC_FMT ", idx %d", T::names.lock_add, MAC_ARG(T::key(s)), idx);
        return idx;
    }

    static int32_t mark_deleted(int32_t idx) {
        CM_TRACE_ENTER(T::names.mark);
        CM_LOG(LOG_EVENT, ">>>>> Index %d", idx);
        const int32_t result = try_mark_deleted(idx);
        CM_TRACE_LEAVE(T::names.mark);
        return result;
    }

    static int32_t try_mark_deleted(int32_t idx) {
        if (!in_range(idx) || (at(idx).entry_flag & SLOT_USED) == 0) {
            return NO_SLOT;
        }
        slot &s = at(idx);
        if ((s.entry_flag & SLOT_DELETED) != 0) {
            CM_LOG(LOG_EVENT, "<<<<< %s: Already deleted mac %.18s", T::names.mark, T::key_text(s));
            return NO_SLOT;
        }
        unlink(T::last_used(), idx);
        push_newest(T::last_deleted(), idx);
        s.entry_flag |= SLOT_DELETED;
        return idx;
    }

    // A slot that mark_deleted marked.
    static void clear(int32_t idx) {
        CM_TRACE_ENTER(T::names.clear);
        CM_LOG(LOG_EVENT, ">>>>> Client index %d", idx);
        hash_delete(idx);
        deleted_list_delete(idx);
        push_free(idx);
        erase_data(idx);
        at(idx).entry_flag = 0;
        at(idx).hash_index = 0;
        CM_TRACE_LEAVE(T::names.clear);
    }

public:
    // Empties the table; the free list hands slots out in ascending order.
    static void init() {
        memset(T::slots(), 0, sizeof(slot) * static_cast<size_t>(T::SIZE));
        for (int32_t i = 0; i < T::SIZE; i++) {
            slot &s = at(i);
            T::buckets()[i] = NO_SLOT;
            erase_data(i);
            set_hash_next(i, NO_SLOT);
            s.hash_prev = NO_SLOT;
            s.next = i + 1;
            s.prev = NO_SLOT;
        }
        at(T::SIZE - 1).next = NO_SLOT;
        T::last_deleted() = NO_SLOT;
        T::last_used() = NO_SLOT;
        T::free_index() = 0;
    }

    // Slot of `mac`, whatever its state, or -1. Gives up on a chain after as many steps as there are slots.
    static int32_t find(const uint8_t *mac) {
        CM_TRACE_ENTER(T::names.find);
        CM_LOG(LOG_EVENT, ">>> %s %d:Client mac:" MAC_FMT, T::names.find, __LINE__, MAC_ARG(mac));
        const uint32_t bucket = mac_hash(mac);
        int32_t steps = 0;
        // As wide as a pointer: so a step need not widen it before the load that it waits for.
        intptr_t i = T::buckets()[bucket];
        while (i != NO_SLOT && steps < T::SIZE) {
            steps++;
            const slot_key &key = T::keys()[i];
            if (mac_equal(key.mac, mac)) {
                const auto idx = static_cast<int32_t>(i);
                CM_LOG(LOG_EVENT, "<<< %s %d: client indx %d", T::names.find, __LINE__, idx);
                CM_TRACE_LEAVE(T::names.find);
                return idx;
            }
            i = key.next;
        }
        if (steps == T::SIZE) {
            T::warn_loop(bucket);
        }
        CM_TRACE_LEAVE(T::names.find);
        return NO_SLOT;
    }

    static int32_t add(const slot &rec) {
        const uint8_t *mac = T::key(rec);
        CM_TRACE_ENTER(T::names.add);
        CM_LOG(LOG_TRACE, ">>>>> Adding cl mac:" MAC_FMT, MAC_ARG(mac));
        const int32_t idx = lock_add(rec);
        CM_LOG(LOG_TRACE, "Added client mac:" MAC_FMT ", cl idx %d", MAC_ARG(mac), idx);
        CM_TRACE_LEAVE(T::names.add);
        return idx;
    }

    static void update(const slot &rec, int32_t idx) {
        CM_TRACE_ENTER(T::names.update);
        CM_LOG(LOG_TRACE, ">>>>> Updating client:" MAC_FMT " idx: %d", MAC_ARG(T::key(rec)), idx);
        if (idx == NO_SLOT) {
            add(rec);
        } else {
            copy_data(idx, rec);
            T::restore(idx);
            CM_LOG(LOG_EVENT, "<<<<< %s: Overwrite existing client:" MAC_FMT ", idx %d", T::names.update,
                   MAC_ARG(T::key(at(idx))), idx);
        }
        CM_TRACE_LEAVE(T::names.update);
    }

    // The slot of `mac` that `accept` takes, with its index in *idx; null, with *idx untouched, when there is none.
    // The walk has no step limit and does not look at entry_flag.
    template <class Accept>
    static slot *get(const uint8_t *mac, int32_t *idx, Accept accept) {
        CM_TRACE_ENTER(T::names.get);
        CM_LOG(LOG_TRACE, ">>>>> Client MAC:" MAC_FMT " idx: %d", MAC_ARG(mac), *idx);
        for (int32_t i = T::buckets()[mac_hash(mac)]; i != NO_SLOT; i = key_at(i).next) {
            if (!mac_equal(key_at(i).mac, mac) || !accept(at(i))) {
                continue;
            }
            *idx = i;
            CM_TRACE_LEAVE(T::names.get);
            return &at(i);
        }
        CM_LOG(LOG_TRACE, "<<<<< Invalid client MAC, returning NULL");
        CM_TRACE_LEAVE(T::names.get);
        return nullptr;
    }

    static int32_t remove(int32_t idx) {
        CM_TRACE_ENTER(T::names.remove);
        CM_LOG(LOG_EVENT, ">>>>> Client Index %d", idx);
        const int32_t result = mark_deleted(idx);
        if (result >= 0) {
            clear(result);
        }
        CM_TRACE_LEAVE(T::names.remove);
        return result;
    }

    static void used_list_add(int32_t idx) {
        if constexpr (T::trace_list_steps) {
            CM_TRACE_ENTER(T::names.used_list_add);
        }
        push_newest(T::last_used(), idx);
        if constexpr (T::trace_list_steps) {
            CM_TRACE_LEAVE(T::names.used_list_add);
        }
    }

    static void deleted_list_delete(int32_t idx) {
        if constexpr (T::trace_list_steps) {
            CM_TRACE_ENTER(T::names.deleted_list_delete);
        }
        unlink(T::last_deleted(), idx);
        if constexpr (T::trace_list_steps) {
            CM_TRACE_LEAVE(T::names.deleted_list_delete);
        }
    }
};

#endif
