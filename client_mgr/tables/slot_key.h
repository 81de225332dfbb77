// What a search in a slot table reads: the MAC addresses and the links of the chains, packed so densely that all of
// them stay in the nearest cache, where the records do not fit.
#ifndef CLIENT_MGR_TABLES_SLOT_KEY_H
#define CLIENT_MGR_TABLES_SLOT_KEY_H

#include <cstdint>

// The key of the slot with the same index.
struct slot_key {
    uint8_t mac[6];  // as in the record
    int16_t next;    // slot behind this one in its chain, -1 at the end
};
static_assert(sizeof(slot_key) == 8);

#endif
