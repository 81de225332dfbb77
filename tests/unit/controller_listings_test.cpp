// Pages of listings: complete, in order, bounded in their work, and filtered.
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "controller/listings.h"
#include "controller/site.h"
#include "tests/unit/controller_site_rig.h"

namespace {

using namespace controller;
using namespace controller_test;

constexpr std::size_t many = 10'000;

mac_address numbered(std::size_t number) {
    return {6, 1, 0, 0, static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)};
}

record config_of(const mac_address &bssid, const std::string &ssid) {
    record made(record_type::bulk_vap_config);
    made.body.set("bssid", bssid).set("vlan", 10u);
    made.body.set("ssid", std::span(reinterpret_cast<const std::uint8_t *>(ssid.data()), ssid.size()));
    return made;
}

record association_of(const mac_address &station, const mac_address &bssid) {
    record made(record_type::client_assoc);
    made.body.set("client", station).set("bssid", bssid).set("ip", ip1);
    return made;
}

// Two access points with an SSID each, "hall" and "yard". Most stations are in the hall.
class Listings : public testing::Test {
protected:
    Listings() {
        site_.name_ap(A, "hall");
        site_.name_ap(B, "back yard");
        for (const mac_address &each : {A, B}) {
            site_.ap_up(each);
        }
        handle(A, {config_of(a10, "office"), config_of(a20, "guests")});
        handle(B, {config_of(b10, "yard")});
    }

    void handle(const mac_address &ap, std::vector<item> records) {
        static_cast<void>(site_.handle({ap, 100, std::move(records)}));
    }
    void fill_hall() {
        for (std::size_t i = 0; i < many; i++) {
            handle(A, {association_of(numbered(i), a10)});
        }
    }

    // All rows of a listing, page by page.
    template <class Row, class Query>
    static std::vector<Row> walk(Query wanted, const auto &list, std::size_t *pages = nullptr) {
        std::vector<Row> all;
        do {
            const page<Row> one = list(wanted);
            EXPECT_LE(one.rows.size(), wanted.page.limit);
            all.insert(all.end(), one.rows.begin(), one.rows.end());
            EXPECT_NE(one.next, wanted.page.cursor.empty() ? "first" : wanted.page.cursor);
            wanted.page.cursor = one.next;
            if (pages != nullptr) {
                ++*pages;
            }
        } while (!wanted.page.cursor.empty());
        return all;
    }
    std::vector<mac_address> clients(const named_words &filters, std::size_t *pages = nullptr) const {
        std::vector<mac_address> found;
        const auto list = [this](const client_query &wanted) { return list_clients(site_.tables(), wanted); };
        for (const client_row &each : walk<client_row>(parse_client_query(filters), list, pages)) {
            found.push_back(each.client);
        }
        return found;
    }
    std::vector<std::string> access_points_named(const named_words &filters) const {
        std::vector<std::string> found;
        const auto list = [this](const ap_query &wanted) {
            return list_access_points(links_, enrolled_, &site_.tables(), wanted);
        };
        for (const ap_row &each : walk<ap_row>(parse_ap_query(filters), list)) {
            found.push_back(each.name);
        }
        return found;
    }

    site site_;
    access_points links_;
    enrolments enrolled_;
};

TEST_F(Listings, give_every_client_once_and_in_order) {
    fill_hall();
    std::size_t pages = 0;
    const auto all = clients({}, &pages);
    EXPECT_EQ(all.size(), many);
    EXPECT_TRUE(std::ranges::is_sorted(all));
    EXPECT_EQ(std::ranges::adjacent_find(all), all.end());
    EXPECT_EQ(pages, many / page_rows_max);
    EXPECT_EQ(clients({{"limit", "7"}}), all);
}

TEST_F(Listings, give_the_same_from_the_end) {
    fill_hall();
    for (const named_words &filters : {named_words{}, {{"limit", "7"}}, {{"mac", "0601000001"}}, {{"ap", "hall"}}}) {
        auto forwards = clients(filters);
        std::ranges::reverse(forwards);
        named_words wanted = filters;
        wanted["order"] = "descending";
        EXPECT_EQ(clients(wanted), forwards);
    }
    const auto last = list_clients(site_.tables(), parse_client_query({{"order", "descending"}, {"limit", "1"}}));
    ASSERT_EQ(last.rows.size(), 1u);
    EXPECT_EQ(last.rows.front().client, numbered(many - 1));
    // Cursors that are not in the range.
    for (const char *order : {"ascending", "descending"}) {
        for (const char *cursor : {"00:00:00:00:00:00", "ff:ff:ff:ff:ff:ff"}) {
            const auto rows =
                list_clients(site_.tables(),
                             parse_client_query({{"mac", "060100000001"}, {"order", order}, {"cursor", cursor}}))
                    .rows.size();
            EXPECT_EQ(rows, (*cursor == '0') == (*order == 'a') ? 1u : 0u) << order << ' ' << cursor;
        }
    }
    EXPECT_THROW(parse_client_query({{"order", "random"}}), refused);
}

TEST_F(Listings, go_on_after_a_client_that_has_left) {
    for (std::size_t i = 0; i < 5; i++) {
        handle(A, {association_of(numbered(i), a10)});
    }
    const auto first = list_clients(site_.tables(), parse_client_query({{"limit", "2"}}));
    ASSERT_EQ(first.rows.back().client, numbered(1));
    static_cast<void>(site_.remove(numbered(1)));
    const auto second = list_clients(site_.tables(), parse_client_query({{"limit", "2"}, {"cursor", first.next}}));
    ASSERT_EQ(second.rows.size(), 2u);
    EXPECT_EQ(second.rows.front().client, numbered(2));
}

TEST_F(Listings, filter_clients) {
    handle(A, {association_of(s1, a10), association_of(s2, a20)});
    handle(B, {association_of(s3, b10)});
    record guest(record_type::client_guest_assoc);
    guest.body.set("client", s2).set("bssid", a20);
    handle(A, {guest});
    site_.name_client(s3, "Till 2");
    site_.name_client(stranger, "till 3");  // not on the site
    using macs = std::vector<mac_address>;
    EXPECT_EQ(clients({}), (macs{s1, s2, s3}));
    EXPECT_EQ(clients({{"mac", "06:00:00:00:00:02"}}), macs{s2});
    EXPECT_EQ(clients({{"mac", "0600000000"}}), (macs{s1, s2, s3}));
    EXPECT_EQ(clients({{"mac", "07"}}), macs{});
    EXPECT_EQ(clients({{"ap", "hall"}}), (macs{s1, s2}));
    EXPECT_EQ(clients({{"ap", kx::format_mac(B)}}), macs{s3});
    EXPECT_EQ(clients({{"ap", "hall"}, {"ssid", "guests"}}), macs{s2});
    EXPECT_EQ(clients({{"ssid", "yard"}}), macs{s3});
    EXPECT_EQ(clients({{"ssid", "yar"}}), macs{});
    EXPECT_EQ(clients({{"state", "waiting"}}), macs{s2});
    EXPECT_EQ(clients({{"state", "none"}}), (macs{s1, s3}));
    EXPECT_EQ(clients({{"name", "tILL"}}), macs{s3});
    EXPECT_EQ(clients({{"name", "tILL"}, {"ap", "hall"}}), macs{});
    EXPECT_THROW(clients({{"ap", "cellar"}}), refused);
    EXPECT_THROW(clients({{"bssid", "1"}}), refused);
}

TEST_F(Listings, pass_over_a_bounded_number_of_clients_for_a_rare_one) {
    fill_hall();
    const mac_address last = {6, 2, 0, 0, 0, 0};
    handle(B, {association_of(last, b10)});
    std::size_t pages = 0;
    EXPECT_EQ(clients({{"ssid", "yard"}}, &pages), std::vector{last});
    EXPECT_GT(pages, 4u);
    EXPECT_LT(pages, 8u);
    pages = 0;
    EXPECT_EQ(clients({{"ap", "back yard"}}, &pages), std::vector{last});
    EXPECT_EQ(pages, 1u);
}

TEST_F(Listings, show_names_and_places) {
    handle(A, {association_of(s1, a10)});
    record roam(record_type::foreign_client_assoc);
    roam.body.set("client", s1).set("bssid", c10).set("last_bssid", a10).set("ip", ip1);
    site_.ap_up(C);
    handle(C, {roam});
    const auto row = find_client_row(site_.tables(), s1);
    ASSERT_TRUE(row);
    EXPECT_EQ(row->now.where, (place{C, c10}));
    EXPECT_EQ(row->now.ap_name + row->now.ssid, "");
    EXPECT_FALSE(find_client_row(site_.tables(), stranger));
}

TEST_F(Listings, filter_access_points) {
    links_.add(1, {.name = "hall", .mac = A, .address = "192.0.2.1:1", .certificate_end = {}});
    links_.add(2, {.name = "back yard", .mac = B, .address = "192.0.2.1:2", .certificate_end = {}});
    EXPECT_EQ(links_.identify(1, A), access_points::claim::bound);
    site_.name_ap(C, "cellar");
    using names = std::vector<std::string>;
    EXPECT_EQ(access_points_named({}), (names{"hall", "back yard", "cellar"}));
    EXPECT_EQ(access_points_named({{"limit", "1"}}), (names{"hall", "back yard", "cellar"}));
    EXPECT_EQ(access_points_named({{"state", "up"}}), names{"hall"});
    EXPECT_EQ(access_points_named({{"state", "connecting"}}), names{"back yard"});
    EXPECT_EQ(access_points_named({{"state", "down"}}), names{"cellar"});
    EXPECT_EQ(access_points_named({{"name", "AL"}}), names{"hall"});
    EXPECT_EQ(access_points_named({{"mac", "02:00:00:00:0b"}}), names{"back yard"});
    const auto passive = list_access_points(links_, enrolled_, nullptr, parse_ap_query({{"state", "up"}}));
    ASSERT_EQ(passive.rows.size(), 1u);
    EXPECT_EQ(passive.rows[0].name, "hall");
}

TEST_F(Listings, show_what_access_points_have_lost_and_whether_they_are_revoked) {
    enrolled_.load({{A, "hall", "", "", true}});
    links_.add_losses(A, {.malformed = 1, .frames_ignored = 2});
    links_.add_losses(A, {.messages_unsent = 3});
    const auto all = list_access_points(links_, enrolled_, &site_.tables(), {}).rows;
    ASSERT_EQ(all.size(), 2u);
    EXPECT_EQ(all[0].enrolled, enrolment_state::revoked);
    EXPECT_EQ(all[0].lost.malformed + all[0].lost.frames_ignored + all[0].lost.messages_unsent, 6u);
    EXPECT_EQ(all[1].enrolled, std::nullopt);
    EXPECT_EQ(all[1].lost.malformed, 0u);
}

TEST_F(Listings, do_not_have_an_access_point_that_was_forgotten) {
    handle(A, {association_of(s1, a10), association_of(s2, a20)});
    record roam(record_type::foreign_client_assoc);
    roam.body.set("client", s2).set("bssid", b10).set("last_bssid", a20);
    handle(B, {roam});
    EXPECT_TRUE(site_.forget_ap(A).empty()) << "it is up";
    EXPECT_EQ(access_points_named({}).size(), 2u);
    site_.ap_down(A);
    static_cast<void>(site_.forget_ap(A));
    EXPECT_EQ(access_points_named({}), std::vector<std::string>{"back yard"});
    EXPECT_EQ(clients({}), std::vector<mac_address>{s2});
    EXPECT_EQ(site_.tables().find_client(s2)->home.ap, B);
    EXPECT_EQ(site_.tables().find_inconsistency(), "");
}

TEST_F(Listings, cut_a_page_of_access_points_with_many_vaps) {
    for (std::uint8_t ap = 1; ap <= 5; ap++) {
        const mac_address mac = {2, 0, 0, 1, ap, 0};
        site_.ap_up(mac);
        for (unsigned vap = 0; vap < 500; vap++) {
            handle(mac, {config_of({2, 1, ap, 0, static_cast<std::uint8_t>(vap >> 8), static_cast<std::uint8_t>(vap)},
                                   "office")});
        }
    }
    const auto first = list_access_points(links_, enrolled_, &site_.tables(), parse_ap_query({{"mac", "02:00:00:01"}}));
    EXPECT_EQ(first.rows.size(), 4u);
    EXPECT_EQ(access_points_named({{"mac", "02:00:00:01"}}).size(), 5u);
}

TEST_F(Listings, of_vaps_are_in_order_and_filtered) {
    const auto list = [this](const vap_query &wanted) { return list_vaps(site_.tables(), wanted); };
    const auto bssids = [&](const named_words &filters) {
        std::vector<mac_address> found;
        for (const vap_row &each : walk<vap_row>(parse_vap_query(filters), list)) {
            found.push_back(each.where.where.bssid);
        }
        return found;
    };
    using macs = std::vector<mac_address>;
    EXPECT_EQ(bssids({}), (macs{a10, a20, b10}));
    EXPECT_EQ(bssids({{"limit", "1"}}), (macs{a10, a20, b10}));
    EXPECT_EQ(bssids({{"ap", "hall"}, {"limit", "1"}}), (macs{a10, a20}));
    EXPECT_EQ(bssids({{"ssid", "yard"}}), macs{b10});
}

TEST(AclListing, is_complete_and_filtered) {
    mac_acl lists;
    lists.set(1, s1, verdict::deny);
    lists.set(1, s2, verdict::allow);
    lists.set_default(7, verdict::deny);
    lists.set(7, s1, verdict::allow);
    const auto walk = [&](named_words filters) {
        std::vector<std::string> rows;
        do {
            const auto one = list_mac_acl(lists, parse_acl_query(filters));
            for (const acl_row &each : one.rows) {
                rows.push_back((each.index ? std::to_string(*each.index) : "-") +
                               (each.client ? kx::format_mac(*each.client).substr(14) : "") +
                               (each.decision == verdict::allow ? "+" : "!"));
            }
            filters["cursor"] = one.next;
        } while (!filters["cursor"].empty());
        return rows;
    };
    const std::vector<std::string> all = {"-+", "1+", "1:01!", "1:02+", "7!", "7:01+"};
    EXPECT_EQ(walk({}), all);
    for (const char *limit : {"1", "2", "5"}) {
        EXPECT_EQ(walk({{"limit", limit}}), all);
    }
    EXPECT_EQ(walk({{"index", "7"}, {"limit", "1"}}), (std::vector<std::string>{"7!", "7:01+"}));
    EXPECT_EQ(walk({{"index", "2"}}), std::vector<std::string>{});
    EXPECT_EQ(walk({{"mac", kx::format_mac(s2)}}), (std::vector<std::string>{"-+", "1+", "1:02+", "7!"}));
}

}  // namespace
