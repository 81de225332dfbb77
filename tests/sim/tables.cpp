#include "tables.h"

#include <algorithm>
#include <cstring>

#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"

namespace sim {
namespace {

constexpr int SIZE = 2048;
constexpr int NONE = -1;

const uint8_t *key(const client_info &s) { return s.cl_mac.bytes; }
const uint8_t *key(const acl_cache_entry &s) { return s.acl_mac.bytes; }

constexpr client_info no_client() {
    client_info s = {};
    s.bssid_idx = NONE;
    return s;
}
constexpr client_info NO_CLIENT = no_client();
constexpr acl_cache_entry NO_ENTRY = {};

// The data in front of the links.
bool is_erased(const client_info &s) { return memcmp(&s, &NO_CLIENT, offsetof(client_info, hash_index)) == 0; }
bool is_erased(const acl_cache_entry &s) { return memcmp(&s, &NO_ENTRY, offsetof(acl_cache_entry, hash_index)) == 0; }

uint64_t number_of(const uint8_t *mac) {
    uint64_t number = 0;
    for (int i = 0; i < 6; i++) {
        number = number << 8 | mac[i];
    }
    return number;
}

template <class Slot>
struct inspection {
    const Slot *slots;
    const int32_t *buckets;
    int32_t first_free;
    int32_t newest;
    int32_t newest_deleted;
    std::vector<bool> on_a_list = std::vector<bool>(SIZE);
    std::vector<std::string> faults = {};

    std::vector<int> free_list() {
        std::vector<int> list;
        list.reserve(SIZE);
        for (int i = first_free; i != NONE && step(list, i, "the free list goes astray"); i = slots[i].next) {
            list.push_back(i);
        }
        return list;
    }

    std::vector<int> used_list() {
        std::vector<int> list;
        list.reserve(SIZE);
        for (int i = newest; i != NONE && step(list, i, "the used list goes astray"); i = slots[i].prev) {
            list.push_back(i);
        }
        return list;
    }

    std::vector<std::string> run() {
        const std::vector<int> free = free_list();
        const std::vector<int> used = used_list();
        check(newest_deleted == NONE, "the deleted list is not empty");
        check(free.size() + used.size() == SIZE, "the lists do not hold every slot");
        for (int i : free) {
            check_free(i);
        }
        check_used(used);
        check_chains(used.size());
        return faults;
    }

    void check(bool sound, const char *fault, int slot = NONE) {
        if (!sound && faults.size() < 20) {
            faults.push_back((slot == NONE ? "" : "slot " + std::to_string(slot) + " ") + std::string(fault));
        }
    }

    bool step(const std::vector<int> &list, int i, const char *fault) {
        const bool sound = i >= 0 && i < SIZE && list.size() < SIZE;
        check(sound, fault);
        return sound;
    }

    void take(int i) {
        check(!on_a_list[static_cast<size_t>(i)], "is on two lists", i);
        on_a_list[static_cast<size_t>(i)] = true;
    }

    void check_free(int i) {
        const Slot &s = slots[i];
        take(i);
        check(s.entry_flag == 0, "is free and has a state", i);
        check(is_erased(s), "is free and still has data", i);
        check(s.hash_index == 0, "is free and has a bucket", i);
        check(s.hash_next == NONE && s.hash_prev == NONE, "is free and chained", i);
        check(s.prev == NONE, "is free and has an older neighbour", i);
    }

    void check_used(const std::vector<int> &used) {
        int newer = NONE;
        std::vector<uint64_t> macs;
        macs.reserve(used.size());
        for (int i : used) {
            const Slot &s = slots[i];
            take(i);
            check(s.entry_flag == 1, "is used and has another state", i);
            check(s.next == newer, "has another newer neighbour than the list", i);
            macs.push_back(number_of(key(s)));
            newer = i;
        }
        std::sort(macs.begin(), macs.end());
        check(std::adjacent_find(macs.begin(), macs.end()) == macs.end(), "two used slots have one MAC address");
    }

    void check_chains(size_t used) {
        size_t chained = 0;
        for (int bucket = 0; bucket < SIZE; bucket++) {
            int before = NONE;
            for (int i = buckets[bucket]; i != NONE; i = slots[i].hash_next) {
                if (i < 0 || i >= SIZE || ++chained > SIZE) {
                    return check(false, "is outside the table, in a chain", i);
                }
                const Slot &s = slots[i];
                check((s.entry_flag & 1) != 0, "is chained and not in use", i);
                check(s.hash_prev == before, "has another predecessor than its chain", i);
                check(s.hash_index == static_cast<uint32_t>(bucket), "has another hash_index than its chain's bucket",
                      i);
                check(bucket_of(key(s)) == bucket, "is chained in a bucket that is not its own", i);
                before = i;
            }
        }
        check(chained == used, "the chains do not hold every used slot");
    }
};

inspection<client_info> clients() {
    return {client_info_tbl, client_hash_tbl, client_tbl_free_index, client_tbl_last_used, client_tbl_last_deleted};
}

inspection<acl_cache_entry> acl_entries() {
    return {client_acl_cache, client_acl_hash, client_mgr_acl_free_index, client_mgr_acl_last_used,
            client_mgr_acl_last_deleted};
}

std::vector<std::string> prefixed(const std::string &prefix, std::vector<std::string> faults) {
    for (std::string &fault : faults) {
        fault.insert(0, prefix);
    }
    return faults;
}

}  // namespace

std::vector<std::string> client_table_faults() { return prefixed("client table: ", clients().run()); }

std::vector<std::string> acl_cache_faults() { return prefixed("ACL cache: ", acl_entries().run()); }

std::vector<int> used_clients() { return clients().used_list(); }

std::vector<int> free_clients() { return clients().free_list(); }

std::vector<int> used_acl_entries() { return acl_entries().used_list(); }

std::vector<int> free_acl_entries() { return acl_entries().free_list(); }

int bucket_of(const uint8_t *mac) {
    const int x = mac[0] ^ (mac[1] << 2) ^ (mac[2] << 4) ^ mac[3] ^ (mac[4] << 2) ^ (mac[5] << 4);
    return x * 593 % 2048;
}

bytes mac_of_bucket_0(unsigned n) {
    // Bytes 0 and 3 cancel each other, and so do bytes 1 and 4.
    const auto low = static_cast<uint8_t>(n);
    const auto high = static_cast<uint8_t>(n >> 8);
    return {low, high, 0, low, high, 0};
}

bytes mac_number(unsigned n) { return {0x02, 0x5a, 0x00, 0x00, static_cast<uint8_t>(n >> 8), static_cast<uint8_t>(n)}; }

}  // namespace sim
