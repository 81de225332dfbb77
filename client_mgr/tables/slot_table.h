// What the client table and the ACL cache have in common: 2048 slots and as many hash buckets. A slot is on one of
// three lists (free, used, deleted), and a used slot is in the chain of its MAC address's bucket. Lists and chains link
// slots by index.
#ifndef CLIENT_MGR_TABLES_SLOT_TABLE_H
#define CLIENT_MGR_TABLES_SLOT_TABLE_H

#include <concepts>
#include <cstdint>

#include "wire/mac_address.h"

namespace tables {

inline constexpr int32_t SLOTS = 2048;
inline constexpr int32_t NO_SLOT = -1;

// entry_flag of a slot; 0 on a free slot.
inline constexpr uint32_t SLOT_USED = 0x1;
inline constexpr uint32_t SLOT_DELETED = 0x2;

// Names of a table's operations in traces. A step with a null name is not traced.
struct operation_names {
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

// A record with the links of a slot; the data are in front of hash_index.
template <class S>
concept slot = requires(S &s) {
    { (s.hash_index) } -> std::same_as<uint32_t &>;
    { (s.hash_next) } -> std::same_as<int32_t &>;
    { (s.hash_prev) } -> std::same_as<int32_t &>;
    { (s.next) } -> std::same_as<int32_t &>;
    { (s.prev) } -> std::same_as<int32_t &>;
    { (s.entry_flag) } -> std::same_as<uint32_t &>;
};

// A slot with zero data, on no list and in no chain.
template <slot S>
constexpr S empty_slot() {
    S s = {};
    s.hash_next = NO_SLOT;
    s.hash_prev = NO_SLOT;
    s.next = NO_SLOT;
    s.prev = NO_SLOT;
    return s;
}

// A type whose static members describe one table.
template <class T>
concept slot_table = slot<typename T::slot> && requires(typename T::slot &s, int32_t idx, uint32_t bucket) {
    { T::slots } -> std::same_as<typename T::slot(&)[SLOTS]>;
    { T::buckets } -> std::same_as<int32_t(&)[SLOTS]>;  // newest slot of each chain
    { T::free_index } -> std::same_as<int32_t &>;       // next slot to be used
    { T::last_used } -> std::same_as<int32_t &>;        // newest slot of each list
    { T::last_deleted } -> std::same_as<int32_t &>;
    { T::empty } -> std::same_as<const typename T::slot &>;  // a free slot but for `next`
    { s.*T::key } -> std::same_as<mac_address &>;
    { s.*T::key_text } -> std::same_as<char(&)[MAC_TEXT_LEN + 1]>;
    { T::names } -> std::same_as<const operation_names &>;
    T::warn_loop(bucket);  // prints that the bucket's chain has no end
    T::restore(idx);       // moves an overwritten slot from the deleted list to the used list, if it is there
};

template <slot_table T>
typename T::slot &at(int32_t idx) {
    return T::slots[idx];
}

}  // namespace tables

#endif
