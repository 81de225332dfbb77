// The store of a running site while the disk fails or the power is lost, at every write.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

#include "controller/store/sqlite/sqlite_store.h"
#include "tests/unit/faulty_vfs.h"
#include "tests/unit/store_model.h"

namespace {

using namespace store_test;
using fault = faulty_vfs::fault;

// A random site that runs with a store. Some of its changes are to be confirmed.
class running_site {
public:
    explicit running_site(unsigned seed) : random_(seed), choice_(seed) {
        random_.site.record_changes();
        states_.push_back({});
    }

    // One event. False when its changes were not confirmed as they should be.
    bool step(store_rig &with) {
        static_cast<void>(random_.step());
        std::vector<change> changes = random_.site.changes();
        random_.site.forget_changes();
        model_.apply(changes);
        states_.push_back(model_.state());
        if (choice_() % 3 != 0) {
            with->write(changes);
            return true;
        }
        changes.emplace_back(audit_entry{"anna", "step", std::to_string(states_.size()), "ok"});
        audits_++;
        if (!with.write(changes).empty()) {
            return false;
        }
        confirmed_ = states_.size() - 1;
        confirmed_audits_ = audits_;
        return true;
    }

    // Everything that was confirmed is there, and nothing is there by halves.
    void check(store_rig &with, const contents &stored) const {
        const auto found = std::find(states_.begin() + static_cast<std::ptrdiff_t>(confirmed_), states_.end(), stored);
        EXPECT_NE(found, states_.end());
        EXPECT_GE(with->audit({std::nullopt, page_limit_max}).size(), confirmed_audits_);
        check_restart(stored);
    }
    void check_complete(store_rig &with, const contents &stored) const {
        EXPECT_EQ(stored, model_.state());
        EXPECT_EQ(with->audit({std::nullopt, page_limit_max}).size(), audits_);
        EXPECT_EQ(with->history(std::nullopt, {std::nullopt, page_limit_max}).size(), model_.history());
        check_restart(stored);
    }

private:
    // Every access point of the stored clients is asked for its report.
    static void check_restart(const contents &stored) {
        site restarted;
        restarted.load(stored);
        EXPECT_EQ(restarted.tables().find_inconsistency(), "");
        EXPECT_EQ(state_of(restarted), stored);
        const std::size_t aps = restarted.tables().aps().size();
        for (const auto &[mac, ap] : restarted.tables().aps()) {
            restarted.ap_up(mac);
            EXPECT_TRUE(ap->checks.awaits_report());
        }
        EXPECT_EQ(restarted.unsettled(), aps);
        EXPECT_EQ(restarted.tables().find_inconsistency(), "");
    }

    controller_test::random_site random_;
    std::mt19937 choice_;
    store_model model_;
    std::vector<contents> states_;  // before the first event and after each
    std::size_t confirmed_ = 0;     // index into `states_`
    std::size_t audits_ = 0;
    std::size_t confirmed_audits_ = 0;
};

// Number of the disk's operations in a run without fault.
std::uint64_t run_until(faulty_vfs &disk, store_rig &store, running_site &site, int steps) {
    for (int step = 0; step < steps && site.step(store); step++) {
    }
    const std::uint64_t operations = disk.operations();
    store.end();
    return operations;
}

TEST(StoreFaults, power_is_lost_at_every_write) {
    constexpr int steps = 40;
    std::uint64_t operations = 1;
    for (std::uint64_t at = 0; at < operations; at++) {
        faulty_vfs disk;
        store_rig store(in_sqlite(), disk.name());
        running_site site(7);
        disk.fail(fault::power_loss, at);
        operations = std::max(operations, run_until(disk, store, site, steps));
        disk.power_returns(static_cast<unsigned>(at));
        SCOPED_TRACE("operation " + std::to_string(at));
        site.check(store, store.reopen());
        EXPECT_EQ(store.write({audit_entry{"anna", "go on", "", "ok"}}), "");
    }
    EXPECT_GT(operations, 50u);
}

TEST(StoreFaults, power_is_lost_while_the_file_is_made) {
    std::uint64_t operations = 1;
    for (std::uint64_t at = 0; at < operations; at++) {
        faulty_vfs disk;
        disk.fail(fault::power_loss, at);
        private_directory directory;
        const auto open = [&] {
            sqlite_store made(
                {directory.file("store"), std::nullopt, {}, [] {}, memory_store::now_on_system_clock, disk.name()});
            operations = std::max(operations, disk.operations());
            return made.load();
        };
        try {
            static_cast<void>(open());
        } catch (const store_error &) {
            operations = std::max(operations, at + 2);
        }
        disk.power_returns(static_cast<unsigned>(at));
        EXPECT_EQ(open(), contents{}) << "operation " << at;
    }
    EXPECT_GT(operations, 10u);
}

void expect_it_catches_up(fault how, std::uint64_t first) {
    for (std::uint64_t at = first; at < 100; at += 12) {
        SCOPED_TRACE("operation " + std::to_string(at));
        faulty_vfs disk;
        store_rig store(in_sqlite(), disk.name());
        running_site site(7);
        disk.fail(how, at, 4);
        bool failed = false;
        for (int step = 0; step < 40; step++) {
            failed = !site.step(store) || failed;
        }
        disk.work();
        EXPECT_TRUE(failed);
        for (int tries = 0; !store.write({}).empty() && tries < 100; tries++) {
        }
        EXPECT_EQ(store->status().fault, "");
        EXPECT_GT(store->status().faults, 0u);
        site.check_complete(store, store.reopen());
    }
}

TEST(StoreFaults, it_catches_up_after_errors_of_the_disk) { expect_it_catches_up(fault::input_output, 0); }

TEST(StoreFaults, it_catches_up_after_a_full_disk) { expect_it_catches_up(fault::disk_full, 5); }

// History gets lost when more changes come than the queue can hold; the clients do not.
TEST(StoreFaults, a_long_fault_loses_history_only) {
    faulty_vfs disk;
    store_rig store(in_sqlite(), disk.name());
    disk.fail(fault::disk_full, 0);
    contents expected;
    for (unsigned number = 0; number < 80000; number++) {
        const mac_address mac = {6,
                                 0,
                                 0,
                                 static_cast<std::uint8_t>(number >> 16),
                                 static_cast<std::uint8_t>(number >> 8),
                                 static_cast<std::uint8_t>(number)};
        store->write(std::vector<change>{client_change{mac, client_event::associated, {}}});
        expected.clients.push_back({mac, {}});
    }
    EXPECT_NE(store.write({audit_entry{"anna", "look", "", "ok"}}).find("disk is full"), std::string::npos);
    EXPECT_GT(store->status().history_lost, 10000u);
    EXPECT_FALSE(store->wants_snapshot());
    disk.work();
    for (int tries = 0; !store->wants_snapshot() && tries < 1000; tries++) {
        store.write({});
    }
    ASSERT_TRUE(store->wants_snapshot());
    store->write_snapshot(expected.clients, {});
    EXPECT_EQ(store.write({}), "");
    EXPECT_FALSE(store->wants_snapshot());
    EXPECT_EQ(store->status().fault, "");
    EXPECT_EQ(store.reopen(), expected);
    EXPECT_EQ(store->audit({}).size(), 1u);
}

// STORE_HISTORIES sets their number.
TEST(StoreFaults, random_histories_match_the_model) {
    const char *const wanted = std::getenv("STORE_HISTORIES");
    const unsigned histories = wanted == nullptr ? 200 : static_cast<unsigned>(std::strtoul(wanted, nullptr, 10));
    std::mt19937 random(1);
    for (unsigned seed = 0; seed < histories; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        faulty_vfs disk;
        store_rig store(in_sqlite(), disk.name());
        running_site site(seed);
        const bool power_fails = random() % 2 == 0;
        disk.fail(fault::power_loss, power_fails ? random() % 150 : ~std::uint64_t{0});
        run_until(disk, store, site, 30);
        if (power_fails) {
            disk.power_returns(seed);
            site.check(store, store.reopen());
        } else {
            site.check_complete(store, store.reopen());
        }
    }
}

}  // namespace
