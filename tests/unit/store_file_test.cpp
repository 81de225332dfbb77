// The store in a file: versions, damage, locks, rights, and how long history is kept.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "controller/store/sqlite/sqlite_store.h"
#include "tests/unit/store_rig.h"

namespace {

using namespace store_test;

constexpr mac_address ap1 = {2, 0, 0, 0, 0xa, 0};
constexpr mac_address ap2 = {2, 0, 0, 0, 0xb, 0};
constexpr mac_address bssid1 = {2, 0, 0, 0, 0xa, 1};
constexpr mac_address bssid2 = {2, 0, 0, 0, 0xb, 2};
constexpr mac_address s1 = {6, 0, 0, 0, 0, 1};
constexpr mac_address s2 = {6, 0, 0, 0, 0, 2};
const client at_bssid1 = {.home = {ap1, bssid1}, .now = {ap1, bssid1}, .home_vlan = 10};

change associated(const mac_address &mac) { return client_change{mac, client_event::associated, at_bssid1}; }

mac_address station(unsigned number) {
    return {6,
            0,
            0,
            static_cast<std::uint8_t>(number >> 16),
            static_cast<std::uint8_t>(number >> 8),
            static_cast<std::uint8_t>(number)};
}

// Runs statements on a database that no store uses.
void run(const std::string &file, const std::string &statements) {
    sqlite3 *database = nullptr;
    ASSERT_EQ(sqlite3_open(file.c_str(), &database), SQLITE_OK);
    EXPECT_EQ(sqlite3_exec(database, statements.c_str(), nullptr, nullptr, nullptr), SQLITE_OK)
        << sqlite3_errmsg(database);
    sqlite3_close(database);
}

std::int64_t number(const std::string &file, const std::string &query) {
    return sqlite::connection(file, sqlite::connection::mode::read).number(query);
}

class StoreFile : public testing::Test {
protected:
    std::string error_of_reopening() {
        try {
            store.reopen();
            return "";
        } catch (const store_error &why) {
            return why.what();
        }
    }
    std::string file() const { return store.file("store"); }

    store_rig store{in_sqlite()};
};

TEST_F(StoreFile, of_version_1_is_upgraded) {
    store.end();
    std::filesystem::resize_file(file(), 0);
    std::ostringstream statements;
    statements << std::ifstream(SOURCE_DIRECTORY "/store_version_1.sql").rdbuf();
    run(file(), statements.str());
    store.now = wall_time(std::chrono::milliseconds(1728090000000));
    const contents upgraded = store.reopen();
    client approved = at_bssid1;
    approved.guest = guest_state::approved;
    approved.ip = 0x0a000001;
    const client moved = {.home = {ap1, bssid1}, .now = {ap2, bssid2}, .home_vlan = std::nullopt, .ip = 0x0a000002};
    EXPECT_EQ(upgraded.clients, (std::vector<stored_client>{{s1, approved}, {s2, moved}}));
    EXPECT_EQ(upgraded.pmks, (std::vector<stored_pmk>{{s1, bytes(32, 7)}}));
    EXPECT_EQ(upgraded.acl_entries, (std::vector<acl_entry>{{1, s1, verdict::allow}}));
    EXPECT_EQ(upgraded.operators, (std::vector<operator_account>{{"anna", role::admin, "hash"}}));
    EXPECT_EQ(upgraded.aps.size(), 1u);
    EXPECT_EQ(upgraded.tokens.size(), 1u);
    const auto history = store->history(s1, {});
    ASSERT_EQ(history.size(), 3u);
    EXPECT_EQ(history[0].what, client_event::approved);
    EXPECT_EQ(store->history(std::nullopt, {}).size(), 7u);
    EXPECT_EQ(store->audit({}).size(), 1u);
    EXPECT_EQ(number(file(), "SELECT count(*) FROM sqlite_master WHERE name = 'journal_1_mac'"), 1);
    EXPECT_EQ(number(file(), "PRAGMA user_version"), 3);
}

TEST_F(StoreFile, of_a_later_version_is_refused) {
    store.end();
    run(file(), "PRAGMA user_version = 1000");
    EXPECT_NE(error_of_reopening().find("use a newer program"), std::string::npos);
}

TEST_F(StoreFile, of_another_application_is_refused) {
    store.end();
    run(file(), "PRAGMA application_id = 1");
    EXPECT_NE(error_of_reopening().find("another application"), std::string::npos);
}

TEST_F(StoreFile, that_is_damaged_is_refused_and_can_be_set_aside) {
    EXPECT_EQ(store.write({associated(s1)}), "");
    store.end();
    std::ofstream(file()) << "This is no database, however long one looks at it.";
    const std::string why = error_of_reopening();
    EXPECT_NE(why.find(file()), std::string::npos) << why;
    EXPECT_NE(why.find("--store-set-aside"), std::string::npos) << why;
    EXPECT_THROW(store.reopen(), store_damaged);
    store.end();
    EXPECT_EQ(set_aside_store(file()), file() + ".unusable-1");
    EXPECT_EQ(store.reopen(), contents{});
    EXPECT_TRUE(std::filesystem::exists(file() + ".unusable-1"));
}

TEST_F(StoreFile, is_used_by_one_process) {
    EXPECT_THROW(sqlite_store({file(), std::nullopt, {}, [] {}, memory_store::now_on_system_clock, ""}), store_error);
}

TEST_F(StoreFile, with_another_key_is_refused) {
    store.end();
    EXPECT_THROW(sqlite_store({file(), pmk_cipher({9}), {}, [] {}, memory_store::now_on_system_clock, ""}),
                 store_error);
    EXPECT_EQ(error_of_reopening(), "");
}

TEST_F(StoreFile, that_others_may_read_is_refused) {
    store.end();
    chmod(file().c_str(), 0644);
    EXPECT_NE(error_of_reopening(), "");
}

TEST_F(StoreFile, holds_no_pmk_in_the_clear) {
    const bytes pmk = {'s', 'e', 'c', 'r', 'e', 't', ' ', 'o', 'f', ' ', 's', '1', ' ', 's', 'e', 'c'};
    EXPECT_EQ(store.write({pmk_change{s1, pmk}}), "");
    std::ostringstream content;
    for (const char *part : {"", "-wal"}) {
        content << std::ifstream(file() + part).rdbuf();
    }
    EXPECT_GT(content.str().size(), 4096u);
    EXPECT_EQ(content.str().find("secret of s1"), std::string::npos);
}

// Several segments, merged and not merged.
TEST_F(StoreFile, keeps_many_clients_and_their_history) {
    constexpr unsigned clients = 25000;
    std::vector<change> changes;
    for (unsigned number = 0; number < 2 * clients; number++) {
        changes.push_back(associated(station(number % clients)));
        if (changes.size() == 1000) {
            EXPECT_EQ(store.write(changes), "");
            changes.clear();
        }
    }
    EXPECT_EQ(store.write({client_change{station(7), client_event::left, at_bssid1}}), "");
    const contents kept = store.reopen();
    ASSERT_EQ(kept.clients.size(), clients - 1);
    EXPECT_EQ(kept.clients[6].mac, station(6));
    EXPECT_EQ(kept.clients[7].mac, station(8));
    const auto history = store->history(station(7), {});
    ASSERT_EQ(history.size(), 3u);
    EXPECT_EQ(history[0].number, 2 * clients + 1);
    EXPECT_EQ(history[1].number, clients + 8);
    EXPECT_EQ(history[2].number, 8u);
}

TEST_F(StoreFile, forgets_history_of_a_certain_age) {
    EXPECT_EQ(store.write({associated(s1)}), "");
    store.now += std::chrono::hours(24 * 29);
    EXPECT_EQ(store.write({associated(s2)}), "");
    EXPECT_EQ(store->history(std::nullopt, {}).size(), 2u);
    store.now += std::chrono::hours(24 * 2);
    EXPECT_EQ(store->history(std::nullopt, {}).size(), 1u);
    store.now += std::chrono::hours(24 * 29);
    EXPECT_EQ(store.write({}), "");
    EXPECT_EQ(number(file(), "SELECT count(*) FROM sqlite_master WHERE name = 'journal_1'"), 0);
    EXPECT_EQ(store.reopen().clients.size(), 2u);
}

TEST_F(StoreFile, forgets_history_beyond_a_certain_size) {
    store.kept.size = std::uint64_t{4} << 20;
    store.reopen();
    const std::vector<change> changes(4096, associated(s1));
    for (int time = 0; time < 40; time++) {
        EXPECT_EQ(store.write(changes), "");
    }
    EXPECT_LT(store->status().bytes, std::uint64_t{7} << 20);
    const auto newest = store->history(s1, {std::nullopt, 1});
    ASSERT_EQ(newest.size(), 1u);
    EXPECT_EQ(newest[0].number, 40 * 4096u);
    EXPECT_TRUE(store->history(s1, {40000, 1}).empty());
    EXPECT_EQ(store.reopen().clients.size(), 1u);
}

TEST_F(StoreFile, locked_by_another_program_is_written_later) {
    sqlite3 *other = nullptr;
    ASSERT_EQ(sqlite3_open(file().c_str(), &other), SQLITE_OK);
    ASSERT_EQ(sqlite3_exec(other, "BEGIN IMMEDIATE", nullptr, nullptr, nullptr), SQLITE_OK);
    const std::string why = store.write({associated(s1)});
    EXPECT_NE(why.find("not stored yet"), std::string::npos) << why;
    EXPECT_NE(store->status().fault.find("another program holds its lock"), std::string::npos);
    EXPECT_EQ(store->status().waiting, 1u);
    sqlite3_close(other);
    EXPECT_EQ(store.write({associated(s2)}), "");
    EXPECT_EQ(store->status().fault, "");
    EXPECT_GE(store->status().faults, 1u);
    EXPECT_EQ(store.reopen().clients.size(), 2u);
}

TEST_F(StoreFile, exports_no_secrets) {
    EXPECT_EQ(store.write({associated(s1), pmk_change{s1, bytes(32, 0x41)},
                           operator_account{"anna", role::admin, "hash of anna"},
                           api_token{"t1", "anna", role::viewer, "hash of t1", "graphs", store.now, std::nullopt},
                           enrolled_ap{ap1, "hall\xff", "", "", false}, acl_default{1, verdict::deny},
                           acl_entry{1, s1, verdict::allow}, audit_entry{"anna", "approve", "", "ok"}}),
              "");
    EXPECT_EQ(store.export_to(store.file("lines")), "");
    std::ostringstream content;
    content << std::ifstream(store.file("lines")).rdbuf();
    const std::string text = content.str();
    EXPECT_EQ(std::ranges::count(text, '\n'), 8);
    for (const char *type :
         {"client", "access_point", "acl_default", "acl_entry", "operator", "token", "history", "audit"}) {
        EXPECT_NE(text.find(std::string(R"({"type":")") + type + '"'), std::string::npos) << type;
    }
    EXPECT_EQ(text.find("hash of"), std::string::npos);
    EXPECT_EQ(text.find("AAAA"), std::string::npos);
    EXPECT_EQ(text.find("4141"), std::string::npos);
    struct stat status {};
    ASSERT_EQ(stat(store.file("lines").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777u, 0600u);
}

TEST_F(StoreFile, is_not_replaced_by_a_damaged_backup) {
    EXPECT_EQ(store.write({associated(s1)}), "");
    EXPECT_EQ(store.backup(store.file("copy")), "");
    std::filesystem::resize_file(store.file("copy"), 3 * 4096 + 100);
    EXPECT_NE(store.restore(store.file("copy")), "");
    std::ofstream(store.file("copy"), std::ios::trunc) << "text";
    EXPECT_NE(store.restore(store.file("copy")), "");
    EXPECT_EQ(store.reopen().clients.size(), 1u);
}

TEST_F(StoreFile, keeps_revocations_when_a_backup_is_restored) {
    constexpr mac_address before = {2, 0, 0, 0, 1, 0}, later = {2, 0, 0, 0, 2, 0}, reused = {2, 0, 0, 0, 3, 0};
    EXPECT_EQ(store.write({enrolled_ap{before, "hall", "A", "", false}, enrolled_ap{reused, "attic", "B", "", false}}),
              "");
    EXPECT_EQ(store.backup(store.file("copy")), "");
    EXPECT_EQ(store.write({enrolled_ap{before, "hall", "A", "", true}, erased_ap{reused},
                           enrolled_ap{later, "attic", "C", "north", true}}),
              "");
    EXPECT_EQ(store.restore(store.file("copy")), "");
    EXPECT_EQ(store.reopen().aps, (std::vector<enrolled_ap>{{before, "hall", "A", "", true},
                                                            {later, "revoked-020000000200", "C", "north", true},
                                                            {reused, "attic", "B", "", false}}));
}

}  // namespace
