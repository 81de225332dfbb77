// The client table and the containers that could replace it, all with the same interface:
//
//   add(client)      copies the 88 bytes of client data and writes the MAC address as text; the address is new
//   remove(mac)      the address is in the table
//   find(mac)        a pointer or slot of the client; null or -1 when there is none
//
// All of them look clients up by the six bytes of the MAC address.
#ifndef TESTS_BENCH_TABLE_BENCH_RIVALS_H
#define TESTS_BENCH_TABLE_BENCH_RIVALS_H

#include <absl/container/flat_hash_map.h>
#include <uthash.h>

#include <array>
#include <boost/unordered/unordered_flat_map.hpp>
#include <cstdint>
#include <cstring>
#include <memory>
#include <unordered_map>
#include <vector>

#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "client_mgr/tables/hash_chain.h"
#include "client_mgr/tables/slot_table.h"
#include "wire/mac_address.h"

namespace bench {

inline constexpr std::size_t most_clients = CLIENT_TBL_SIZE;

// What the others store.
struct client_data {
    client_data() = default;
    explicit client_data(const client_info &client) {
        std::memcpy(static_cast<void *>(this), &client, sizeof *this);
        mac_to_text(mac.data(), text);
    }

    mac_address mac;
    char text[18];
    std::array<std::uint8_t, 64> rest;
};
static_assert(sizeof(client_data) == offsetof(client_info, hash_index));

class daemon_table {
public:
    static constexpr const char *name = "client_tbl";
    daemon_table() { client_tbl_init(); }
    void add(const client_info &client) { client_tbl_mac_add(&client); }
    void remove(const mac_address &mac) { client_tbl_drv_mac_delete(client_tbl_lock_find_client_bin(mac.data())); }
    std::int32_t find(const mac_address &mac) { return client_tbl_lock_find_client_bin(mac.data()); }
};

// A walk from record to record over the same table.
class record_walk : public daemon_table {
public:
    static constexpr const char *name = "record walk";
    [[gnu::noinline]] std::int32_t find(const mac_address &mac) {
        std::int32_t at = client_hash_tbl[tables::mac_hash(mac)];
        for (int steps = 0; at != tables::NO_SLOT && steps < CLIENT_TBL_SIZE; steps++) {
            if (client_info_tbl[at].cl_mac == mac) {
                return at;
            }
            at = client_info_tbl[at].hash_next;
        }
        return tables::NO_SLOT;
    }
};

// A map by the address as a number, with the hash function that its library provides for numbers.
template <class Map>
class map_table {
public:
    void add(const client_info &client) { map_.emplace(number(client.cl_mac), client); }
    void remove(const mac_address &mac) { map_.erase(number(mac)); }
    const client_data *find(const mac_address &mac) {
        auto found = map_.find(number(mac));
        return found == map_.end() ? nullptr : &found->second;
    }

private:
    static std::uint64_t number(const mac_address &mac) {
        std::uint64_t all = 0;
        std::memcpy(&all, mac.data(), mac.size());
        return all;
    }

    Map map_{most_clients};
};

struct std_table : map_table<std::unordered_map<std::uint64_t, client_data>> {
    static constexpr const char *name = "std::unordered_map";
};
struct absl_table : map_table<absl::flat_hash_map<std::uint64_t, client_data>> {
    static constexpr const char *name = "absl::flat_hash_map";
};
struct boost_table : map_table<boost::unordered_flat_map<std::uint64_t, client_data>> {
    static constexpr const char *name = "boost::unordered_flat_map";
};

// A fixed number of nodes, none of them allocated while the table is in use.
template <class Node>
class node_pool {
public:
    node_pool() : nodes_(new Node[most_clients]) {
        for (std::size_t i = 0; i < most_clients; i++) {
            free_.push_back(&nodes_[i]);
        }
    }
    Node *take() {
        Node *node = free_.back();
        free_.pop_back();
        return node;
    }
    void give_back(Node *node) { free_.push_back(node); }

private:
    std::unique_ptr<Node[]> nodes_;
    std::vector<Node *> free_;
};

// Its macros are C of another style.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wconversion"
#pragma GCC diagnostic ignored "-Wshadow"
#pragma GCC diagnostic ignored "-Wimplicit-fallthrough"
class uthash_table {
public:
    static constexpr const char *name = "uthash";
    uthash_table() = default;
    uthash_table(const uthash_table &) = delete;
    uthash_table &operator=(const uthash_table &) = delete;
    ~uthash_table() { HASH_CLEAR(hh, all_); }
    void add(const client_info &client) {
        node *added = pool_.take();
        added->data = client_data(client);
        HASH_ADD(hh, all_, data.mac, sizeof(mac_address), added);
    }
    void remove(const mac_address &mac) {
        node *removed = find(mac);
        HASH_DELETE(hh, all_, removed);
        pool_.give_back(removed);
    }
    struct node {
        client_data data;
        UT_hash_handle hh;
    };
    node *find(const mac_address &mac) {
        node *found = nullptr;
        HASH_FIND(hh, all_, mac.data(), sizeof(mac_address), found);
        return found;
    }

private:
    node_pool<node> pool_;
    node *all_ = nullptr;
};
#pragma GCC diagnostic pop

// 256 buckets by the last byte, each a singly linked list, newest first.
class last_byte_table {
public:
    static constexpr const char *name = "256 buckets";
    void add(const client_info &client) {
        node *added = pool_.take();
        node *&head = buckets_[client.cl_mac[5]];
        added->data = client_data(client);
        added->next = head;
        head = added;
    }
    void remove(const mac_address &mac) {
        node **link = &buckets_[mac[5]];
        while ((*link)->data.mac != mac) {
            link = &(*link)->next;
        }
        node *removed = *link;
        *link = removed->next;
        pool_.give_back(removed);
    }
    const client_data *find(const mac_address &mac) {
        for (const node *at = buckets_[mac[5]]; at != nullptr; at = at->next) {
            if (at->data.mac == mac) {
                return &at->data;
            }
        }
        return nullptr;
    }

private:
    struct node {
        client_data data;
        node *next;
    };
    node_pool<node> pool_;
    std::array<node *, 256> buckets_{};
};

}  // namespace bench

#endif
