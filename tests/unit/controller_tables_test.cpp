// The indices of the site's tables agree with walks over the tables after random events.
#include <gtest/gtest.h>

#include <map>

#include "tests/unit/controller_random_site.h"

namespace {

using namespace controller;
using controller_test::random_site;

constexpr unsigned sites = 12;
constexpr unsigned steps = 1500;

// Number of clients of each access point, and the stations that each access point holds, by walks.
struct walked {
    explicit walked(const site_tables &over) {
        for (const auto &[mac, of] : over.stations()) {
            if (of->client) {
                clients[of->client->now.ap]++;
                guests[of->client->guest]++;
            }
            for (const access_point *each : site_tables::all_holders(*of)) {
                held[each->mac].insert(mac);
            }
        }
    }

    std::map<mac_address, std::size_t> clients;
    std::map<guest_state, std::size_t> guests;
    std::map<mac_address, std::set<mac_address>> held;
};

void expect_agreement(const site_tables &tables) {
    walked found(tables);
    for (const auto &[mac, ap] : tables.aps()) {
        EXPECT_EQ(ap->clients, found.clients[mac]);
        std::set<mac_address> held;
        held.insert(ap->holds.begin(), ap->holds.end());
        held.insert(ap->listed.begin(), ap->listed.end());
        EXPECT_EQ(held, found.held[mac]);
    }
    for (const guest_state each :
         {guest_state::none, guest_state::waiting, guest_state::approved, guest_state::unknown}) {
        EXPECT_EQ(tables.guests(each), found.guests[each]);
    }
}

TEST(SiteTables, agree_with_walks_after_random_events) {
    for (unsigned seed = 0; seed < sites; seed++) {
        random_site random(seed);
        std::size_t sent = 0;
        for (unsigned step = 0; step < steps; step++) {
            sent += random.step().size();
            if (step % 7 != 0) {
                continue;
            }
            ASSERT_EQ(random.site.tables().find_inconsistency(), "") << "seed " << seed << ", step " << step;
        }
        expect_agreement(random.site.tables());
        EXPECT_GT(sent, steps / 10);
        EXPECT_GT(random.site.roams(), 0u);
    }
}

TEST(SiteTables, forget_stations_that_nobody_holds) {
    random_site random(1);
    while (random.site.tables().clients() < 5) {
        static_cast<void>(random.step());
    }
    for (unsigned ap = 0; ap < 6; ap++) {
        random.site.ap_up({2, 0, 0, 0, static_cast<std::uint8_t>(ap), 0});
    }
    for (unsigned station = 0; station < 24; station++) {
        try {
            static_cast<void>(random.site.remove({6, 0, 0, 0, 0, static_cast<std::uint8_t>(station)}));
        } catch (const refused &) {
        }
    }
    EXPECT_EQ(random.site.tables().clients(), 0u);
    EXPECT_EQ(random.site.tables().find_inconsistency(), "");
}

}  // namespace
