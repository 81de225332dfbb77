// Lists of slots. The used and the deleted list are doubly linked: `prev` is the older neighbour, `next` the newer. The
// free list is singly linked through `next`; `prev` is -1.
#ifndef CLIENT_MGR_TABLES_SLOT_LIST_H
#define CLIENT_MGR_TABLES_SLOT_LIST_H

#include <cstdint>

#include "client_mgr/tables/slot_table.h"

namespace tables {

template <slot S>
void push_newest(S *slots, int32_t &newest, int32_t idx) {
    slots[idx].prev = newest;
    slots[idx].next = NO_SLOT;
    if (newest != NO_SLOT) {
        slots[newest].next = idx;
    }
    newest = idx;
}

// Leaves the links of the slot itself as they are.
template <slot S>
void unlink(S *slots, int32_t &newest, int32_t idx) {
    const S &s = slots[idx];
    if (s.prev != NO_SLOT) {
        slots[s.prev].next = s.next;
    }
    if (s.next != NO_SLOT) {
        slots[s.next].prev = s.prev;
    }
    if (newest == idx) {
        newest = s.prev;
    }
}

// Returns -1 when the list is empty.
template <slot S>
int32_t pop_free(const S *slots, int32_t &first) {
    const int32_t idx = first;
    if (idx != NO_SLOT) {
        first = slots[idx].next;
    }
    return idx;
}

// The slot is empty, so its `prev` is -1 already.
template <slot S>
void push_free(S *slots, int32_t &first, int32_t idx) {
    slots[idx].next = first;
    first = idx;
}

}  // namespace tables

#endif
