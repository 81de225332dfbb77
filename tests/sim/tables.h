// Whether the tables are sound: what holds between any two calls of their functions.
#ifndef TESTS_SIM_TABLES_H
#define TESTS_SIM_TABLES_H

#include <string>
#include <vector>

#include "bytes.h"

namespace sim {

// One sentence per fault: each slot is on exactly one list, lists and chains are linked in both directions, a chain
// holds the slots of its bucket alone, a MAC address is stored once, and a free slot is empty.
std::vector<std::string> client_table_faults();
std::vector<std::string> acl_cache_faults();

// The slots of the used list, newest first; of the free list, next first.
std::vector<int> used_clients();
std::vector<int> free_clients();
std::vector<int> used_acl_entries();
std::vector<int> free_acl_entries();

// The bucket of a MAC address, by the published formula.
int bucket_of(const uint8_t *mac);
// The `n`th (0 to 2047) of a family of MAC addresses that all belong into bucket 0.
bytes mac_of_bucket_0(unsigned n);
// The `n`th (0 to 4095) of a family spread over the buckets.
bytes mac_number(unsigned n);

}  // namespace sim

#endif
