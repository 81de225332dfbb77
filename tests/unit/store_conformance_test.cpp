// What every store does. A new kind of store joins the list at the end.
#include <gtest/gtest.h>

#include "tests/unit/store_rig.h"

namespace {

using namespace store_test;

constexpr mac_address ap1 = {2, 0, 0, 0, 0xa, 0};
constexpr mac_address bssid1 = {2, 0, 0, 0, 0xa, 1};
constexpr mac_address bssid2 = {2, 0, 0, 0, 0xa, 2};
constexpr mac_address s1 = {6, 0, 0, 0, 0, 1};
constexpr mac_address s2 = {6, 0, 0, 0, 0, 2};
constexpr std::uint32_t ip1 = 0x0a000001;

client at(const mac_address &bssid, std::uint32_t ip = 0) {
    const place here = {ap1, bssid};
    return {.home = here, .now = here, .home_vlan = 10, .ip = ip, .guest = guest_state::none};
}

client_change happened(client_event what, const mac_address &mac, const client &state) { return {mac, what, state}; }

client_change associated(const mac_address &mac, std::uint32_t ip = 0) {
    return happened(client_event::associated, mac, at(bssid1, ip));
}

class conformance : public testing::TestWithParam<store_kind> {
protected:
    store_rig store{GetParam()};
};

// Of stores whose contents outlive the process.
class keeping : public conformance {};
class keeping_pmks : public conformance {};
class keeping_nothing : public conformance {};

TEST_P(conformance, starts_empty) {
    EXPECT_EQ(store->load(), contents{});
    EXPECT_TRUE(store->history(std::nullopt, {}).empty());
    EXPECT_TRUE(store->audit({}).empty());
    EXPECT_EQ(store->status().fault, "");
    EXPECT_EQ(store->status().keeps, GetParam().keeps);
    EXPECT_FALSE(store->wants_snapshot());
}

TEST_P(conformance, history_comes_newest_first) {
    EXPECT_EQ(store.write({associated(s1)}), "");
    store.now += std::chrono::seconds(2);
    EXPECT_EQ(store.write({associated(s2), happened(client_event::roamed, s1, at(bssid2, ip1))}), "");
    const auto all = store->history(std::nullopt, {});
    ASSERT_EQ(all.size(), 3u);
    const history_entry newest = {3, store.now, s1, client_event::roamed, {ap1, bssid2}, ip1};
    EXPECT_EQ(all[0], newest);
    EXPECT_EQ(all[1].mac, s2);
    EXPECT_EQ(all[2].at, store.now - std::chrono::seconds(2));
    const auto of_s1 = store->history(s1, {});
    ASSERT_EQ(of_s1.size(), 2u);
    EXPECT_EQ(of_s1[0], newest);
    EXPECT_EQ(of_s1[1].number, 1u);
}

TEST_P(conformance, corrections_are_not_in_the_history) {
    EXPECT_EQ(store.write({happened(client_event::corrected, s1, at(bssid1))}), "");
    EXPECT_TRUE(store->history(s1, {}).empty());
}

TEST_P(conformance, history_is_paged) {
    std::vector<change> changes(5, associated(s1));
    changes.insert(changes.begin() + 2, associated(s2));
    EXPECT_EQ(store.write(changes), "");
    const auto first = store->history(s1, {std::nullopt, 2});
    ASSERT_EQ(first.size(), 2u);
    const auto second = store->history(s1, {first.back().number, 2});
    ASSERT_EQ(second.size(), 2u);
    const auto third = store->history(s1, {second.back().number, 2});
    ASSERT_EQ(third.size(), 1u);
    EXPECT_EQ(third.back().number, 1u);
    EXPECT_TRUE(store->history(s1, {third.back().number, 2}).empty());
    EXPECT_TRUE(store->history(s1, {std::nullopt, 0}).empty());
}

TEST_P(conformance, a_page_is_bounded) {
    EXPECT_EQ(store.write(std::vector<change>(page_limit_max + 5, associated(s1))), "");
    EXPECT_EQ(store->history(s1, {std::nullopt, page_limit_max + 5}).size(), page_limit_max);
    EXPECT_EQ(store->history(std::nullopt, {std::nullopt, page_limit_max + 5}).size(), page_limit_max);
    EXPECT_EQ(store.write(std::vector<change>(page_limit_max + 5, audit_entry{"anna", "approve", "", "ok"})), "");
    EXPECT_EQ(store->audit({std::nullopt, page_limit_max + 5}).size(), page_limit_max);
}

TEST_P(conformance, audit_is_paged_newest_first) {
    EXPECT_EQ(store.write({audit_entry{"anna", "approve", "06:00:00:00:00:01", "ok"}}), "");
    store.now += std::chrono::seconds(1);
    EXPECT_EQ(store.write({audit_entry{"ben", "remove", "06:00:00:00:00:02", "is not on the site"}}), "");
    const auto newest = store->audit({std::nullopt, 1});
    ASSERT_EQ(newest.size(), 1u);
    EXPECT_EQ(newest[0], (audit_record{2, store.now, {"ben", "remove", "06:00:00:00:00:02", "is not on the site"}}));
    const auto older = store->audit({newest[0].number, 10});
    ASSERT_EQ(older.size(), 1u);
    EXPECT_EQ(older[0].entry.who, "anna");
    EXPECT_EQ(older[0].at, store.now - std::chrono::seconds(1));
}

TEST_P(conformance, nothing_to_write_is_done) { EXPECT_EQ(store.write({}), ""); }

TEST_P(keeping_nothing, refuses_copies) {
    EXPECT_NE(store.backup(store.file("copy")), "");
    EXPECT_NE(store.export_to(store.file("lines")), "");
    EXPECT_NE(store.restore(store.file("copy")), "");
}

TEST_P(keeping, clients_come_back) {
    const client roamed = {.home = {ap1, bssid1},
                           .now = {ap1, bssid2},
                           .home_vlan = std::nullopt,
                           .ip = 0xffffffff,
                           .guest = guest_state::approved};
    EXPECT_EQ(store.write({associated(s2), associated(s1), happened(client_event::approved, s1, roamed)}), "");
    const contents kept = store.reopen();
    EXPECT_EQ(kept.clients, (std::vector<stored_client>{{s1, roamed}, {s2, at(bssid1)}}));
}

TEST_P(keeping, clients_that_left_do_not_come_back) {
    EXPECT_EQ(store.write({associated(s1), associated(s2)}), "");
    EXPECT_EQ(store.write({happened(client_event::left, s1, at(bssid1))}), "");
    EXPECT_EQ(store.reopen().clients, (std::vector<stored_client>{{s2, at(bssid1)}}));
    EXPECT_EQ(store->history(s1, {}).size(), 2u);
    EXPECT_EQ(store.write({associated(s1)}), "");
    EXPECT_EQ(store.reopen().clients.size(), 2u);
}

TEST_P(keeping, history_and_its_numbers_go_on) {
    EXPECT_EQ(store.write({associated(s1), audit_entry{"anna", "approve", "", "ok"}}), "");
    store.reopen();
    EXPECT_EQ(store.write({associated(s1), audit_entry{"anna", "remove", "", "ok"}}), "");
    const auto all = store->history(s1, {});
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].number, 2u);
    ASSERT_EQ(store->audit({}).size(), 2u);
    EXPECT_EQ(store->audit({})[0].number, 2u);
}

TEST_P(keeping_pmks, pmks_come_back) {
    EXPECT_TRUE(store->status().keeps_pmks);
    EXPECT_EQ(store.write({pmk_change{s1, bytes(32, 1)}, pmk_change{s2, bytes(32, 2)}}), "");
    EXPECT_EQ(store.write({pmk_change{s1, bytes(32, 3)}, pmk_change{s2, std::nullopt}}), "");
    EXPECT_EQ(store.reopen().pmks, (std::vector<stored_pmk>{{s1, bytes(32, 3)}}));
}

TEST_P(keeping, access_lists_come_back) {
    EXPECT_EQ(
        store.write({acl_default{std::nullopt, verdict::deny}, acl_default{0xffffffff, verdict::allow},
                     acl_default{1, verdict::deny}, acl_entry{1, s2, verdict::allow}, acl_entry{1, s1, verdict::deny},
                     acl_entry{1, s1, verdict::allow}, acl_entry{0xffffffff, s1, verdict::deny}}),
        "");
    EXPECT_EQ(store.write({acl_entry{1, s2, std::nullopt}}), "");
    const contents kept = store.reopen();
    EXPECT_EQ(kept.acl_defaults, (std::vector<acl_default>{
                                     {std::nullopt, verdict::deny}, {1, verdict::deny}, {0xffffffff, verdict::allow}}));
    EXPECT_EQ(kept.acl_entries, (std::vector<acl_entry>{{1, s1, verdict::allow}, {0xffffffff, s1, verdict::deny}}));
    EXPECT_EQ(store.write({acl_cleared{}, acl_default{7, verdict::deny}}), "");
    const contents cleared = store.reopen();
    EXPECT_EQ(cleared.acl_defaults, (std::vector<acl_default>{{7, verdict::deny}}));
    EXPECT_TRUE(cleared.acl_entries.empty());
}

TEST_P(keeping, names_come_back) {
    EXPECT_EQ(store.write({client_name{s2, "printer"}, client_name{s1, "Anna's phone"}}), "");
    EXPECT_EQ(store.write({client_name{s2, ""}}), "");
    EXPECT_EQ(store.reopen().names, (std::vector<client_name>{{s1, "Anna's phone"}}));
}

TEST_P(keeping, access_points_come_back) {
    const enrolled_ap first = {ap1, "hall", "-----BEGIN CERTIFICATE-----\n", "main site", false};
    enrolled_ap second = {s2, "N\xc3\xb6rdlich; DROP TABLE '\"", "", "", false};
    EXPECT_EQ(store.write({second, first}), "");
    second.revoked = true;
    EXPECT_EQ(store.write({second}), "");
    EXPECT_EQ(store.reopen().aps, (std::vector<enrolled_ap>{first, second}));
    EXPECT_EQ(store.write({erased_ap{ap1}}), "");
    EXPECT_EQ(store.reopen().aps, (std::vector<enrolled_ap>{second}));
}

TEST_P(keeping, operators_and_tokens_come_back) {
    const operator_account anna = {"anna", role::admin, "hash of anna"};
    const operator_account ben = {"ben", role::operator_, ""};
    const api_token open = {"t1", "anna", role::viewer, "hash 1", "for the graphs", store.now, std::nullopt};
    const api_token limited = {
        "t2", "ben", role::operator_, "hash 2", "", store.now, store.now + std::chrono::hours(1)};
    EXPECT_EQ(store.write({ben, anna, limited, open}), "");
    const contents kept = store.reopen();
    EXPECT_EQ(kept.operators, (std::vector<operator_account>{anna, ben}));
    EXPECT_EQ(kept.tokens, (std::vector<api_token>{open, limited}));
    EXPECT_EQ(store.write({erased_operator{"ben"}, operator_account{"anna", role::viewer, "other"}}), "");
    const contents left = store.reopen();
    EXPECT_EQ(left.operators, (std::vector<operator_account>{{"anna", role::viewer, "other"}}));
    EXPECT_EQ(left.tokens, (std::vector<api_token>{open}));
    EXPECT_EQ(store.write({erased_token{"t1"}}), "");
    EXPECT_TRUE(store.reopen().tokens.empty());
}

TEST_P(keeping, a_snapshot_replaces_clients_and_pmks) {
    EXPECT_EQ(store.write({associated(s1), associated(s2), pmk_change{s1, bytes(32, 1)}}), "");
    store->write_snapshot({{s2, at(bssid2)}}, {{s2, bytes(32, 2)}});
    EXPECT_EQ(store.write({}), "");
    const bool pmks = store->status().keeps_pmks;
    const contents kept = store.reopen();
    EXPECT_EQ(kept.clients, (std::vector<stored_client>{{s2, at(bssid2)}}));
    EXPECT_EQ(kept.pmks, pmks ? (std::vector<stored_pmk>{{s2, bytes(32, 2)}}) : std::vector<stored_pmk>{});
}

TEST_P(keeping, a_backup_is_restored_while_it_runs) {
    EXPECT_EQ(store.write({associated(s1), operator_account{"anna", role::admin, "hash"}}), "");
    const contents before = store.reopen();
    EXPECT_EQ(store.backup(store.file("copy")), "");
    EXPECT_NE(store.backup(store.file("copy")), "");  // exists
    EXPECT_EQ(store.write({associated(s2), erased_operator{"anna"}}), "");
    EXPECT_EQ(store.restore(store.file("copy")), "");
    EXPECT_EQ(store->load(), before);
    EXPECT_EQ(store->history(std::nullopt, {}).size(), 1u);
    EXPECT_EQ(store.write({associated(s2)}), "");
    EXPECT_EQ(store.reopen().clients.size(), 2u);
}

TEST_P(keeping, a_useless_backup_changes_nothing) {
    EXPECT_EQ(store.write({associated(s1)}), "");
    EXPECT_NE(store.restore(store.file("missing")), "");
    EXPECT_EQ(store.reopen().clients.size(), 1u);
    EXPECT_EQ(store.write({associated(s2)}), "");
}

std::string name_of_kind(const testing::TestParamInfo<store_kind> &of) { return of.param.name; }

INSTANTIATE_TEST_SUITE_P(stores, conformance, testing::Values(in_memory(), in_sqlite(), in_sqlite_without_key()),
                         name_of_kind);
INSTANTIATE_TEST_SUITE_P(stores, keeping, testing::Values(in_sqlite(), in_sqlite_without_key()), name_of_kind);
INSTANTIATE_TEST_SUITE_P(stores, keeping_pmks, testing::Values(in_sqlite()), name_of_kind);
INSTANTIATE_TEST_SUITE_P(stores, keeping_nothing, testing::Values(in_memory()), name_of_kind);

}  // namespace
