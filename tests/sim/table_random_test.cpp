#include <algorithm>
#include <cstdlib>
#include <map>
#include <random>
#include <string>

#include "arrange.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "sim_test.h"
#include "tables.h"

namespace sim {
namespace {

// CLIENT_MGR_SEED repeats a run.
unsigned seed() {
    const char *wanted = getenv("CLIENT_MGR_SEED");
    return wanted != nullptr ? static_cast<unsigned>(strtoul(wanted, nullptr, 10)) : std::random_device{}();
}

struct clients {
    static int32_t add(const bytes &mac, int32_t value) {
        client_info c = {};
        set_bytes(c.cl_mac, mac);
        c.home_vlan = value;
        return client_tbl_mac_add(&c);
    }
    static void update(const bytes &mac, int32_t idx, int32_t value) {
        client_info c = client_info_tbl[idx];
        set_bytes(c.cl_mac, mac);
        c.home_vlan = value;
        client_tbl_mac_update(&c, idx);
    }
    static int32_t remove(int32_t idx) { return client_tbl_drv_mac_delete(idx); }
    static const client_info *get(const bytes &mac, int32_t *idx) {
        return client_tbl_client_get_fast(mac.data(), idx);
    }
    static int32_t value(const client_info &c) { return c.home_vlan; }
    static std::vector<int> used() { return used_clients(); }
    static std::vector<std::string> faults() { return client_table_faults(); }
};

struct verdicts {
    static int32_t add(const bytes &mac, int32_t value) {
        acl_cache_entry e = {};
        set_bytes(e.acl_mac, mac);
        e.timestamp = INT32_MAX;
        e.state = value;
        return client_mgr_acl_mac_add(&e);
    }
    static void update(const bytes &, int32_t idx, int32_t value) {
        acl_cache_entry e = client_acl_cache[idx];
        e.state = value;
        client_mgr_acl_mac_update(&e, idx);
    }
    static int32_t remove(int32_t idx) { return client_mgr_acl_drv_mac_delete(idx); }
    static const acl_cache_entry *get(const bytes &mac, int32_t *idx) {
        return client_mgr_acl_get_fast(mac.data(), idx);
    }
    static int32_t value(const acl_cache_entry &e) { return e.state; }
    static std::vector<int> used() { return used_acl_entries(); }
    static std::vector<std::string> faults() { return acl_cache_faults(); }
};

// A table beside a map that does the same; a step is one operation on a MAC address of 2200, some in one chain.
template <class Table>
class trial {
public:
    explicit trial(unsigned seed_value) : random(seed_value) {}

    void step(int32_t number) {
        const unsigned pick = below(2200);
        const bytes mac = pick < 100 ? mac_of_bucket_0(pick) : mac_number(pick);
        const auto known = model.find(mac);
        const unsigned action = below(10);
        if (action < 5) {
            add(mac, number);
        } else if (known == model.end()) {
            int32_t idx = -1;
            EXPECT_EQ(nullptr, Table::get(mac, &idx));
        } else if (action < 7) {
            Table::update(mac, known->second.idx, number);
            known->second.value = number;
        } else {
            EXPECT_EQ(known->second.idx, Table::remove(known->second.idx));
            order.erase(std::find(order.begin(), order.end(), known->second.idx));
            model.erase(known);
        }
    }

    void check() {
        EXPECT_EQ(std::vector<std::string>{}, Table::faults());
        EXPECT_EQ(std::vector<int>(order.rbegin(), order.rend()), Table::used());
        for (const auto &[mac, expected] : model) {
            int32_t idx = -1;
            const auto *found = Table::get(mac, &idx);
            ASSERT_NE(nullptr, found) << show(mac);
            EXPECT_EQ(expected.idx, idx) << show(mac);
            EXPECT_EQ(expected.value, Table::value(*found)) << show(mac);
        }
    }

    size_t size() const { return model.size(); }

private:
    struct entry {
        int32_t idx;
        int32_t value;
    };

    unsigned below(unsigned limit) { return std::uniform_int_distribution<unsigned>(0, limit - 1)(random); }

    void add(const bytes &mac, int32_t number) {
        const int32_t idx = Table::add(mac, number);
        const auto known = model.find(mac);
        if (known != model.end()) {
            EXPECT_EQ(known->second.idx, idx);
            known->second.value = number;
        } else if (model.size() == 2048) {
            EXPECT_EQ(-1, idx);
        } else {
            ASSERT_GE(idx, 0);
            model[mac] = {idx, number};
            order.push_back(idx);
        }
    }

    std::mt19937 random;
    std::map<bytes, entry> model;
    std::vector<int> order;  // of the slots in use, oldest first
};

template <class Table>
void run_trial() {
    const unsigned seed_value = seed();
    SCOPED_TRACE("CLIENT_MGR_SEED=" + std::to_string(seed_value));
    site sim(0);
    trial<Table> t(seed_value);
    for (int32_t number = 0; number < 20000 && !testing::Test::HasFailure(); number++) {
        t.step(number);
        if (number % 1000 == 999) {
            t.check();
        }
    }
    EXPECT_GT(t.size(), 1000U) << "the trial got nowhere";
    sim.expect_nothing();
    sim.check_end();
}

}  // namespace

TEST(table_random, the_client_table_behaves_like_a_map) { run_trial<clients>(); }

TEST(table_random, the_acl_cache_behaves_like_a_map) { run_trial<verdicts>(); }

}  // namespace sim
