// What access points are told about clients on another VLAN than their home VLAN.
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <random>

#include "tests/unit/controller_random_site.h"
#include "tests/unit/controller_site_rig.h"

namespace {

using namespace controller;
using namespace controller_test;

const lines nothing;
constexpr int grace = roaming_peers::grace;

site_rig carrying_site() {
    site_rig rig;
    for (const mac_address &ap : {A, B, C}) {
        rig.carries(ap);
    }
    rig.extract_frames();
    return rig;
}

// s1 came from a10 of A.
site_rig roamed_to_b20() {
    site_rig rig = carrying_site();
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    return rig;
}

lines ticks(site_rig &rig, int number) {
    for (int i = 0; i < number; i++) {
        rig.tick();
    }
    return rig.extract_frames();
}

TEST(RoamingPeers, are_told_to_both_ends_once) {
    site_rig rig = roamed_to_b20();
    EXPECT_EQ(rig.extract_frames(), (lines{"A home s1 10 10.0.0.11", "B foreign s1 10 10.0.0.10"}));
    rig.gets_address(B, b20, s1, ip1);
    EXPECT_EQ(ticks(rig, 30), nothing);
}

TEST(RoamingPeers, need_another_vlan) {
    site_rig rig = carrying_site();
    rig.associates(A, a10, s1);
    rig.roams_in(B, b10, s1, a10);
    rig.associates(A, a10, s2);
    rig.associates(B, b20, s2);
    EXPECT_EQ(rig.extract_frames(), nothing);
}

TEST(RoamingPeers, follow_the_client) {
    site_rig rig = roamed_to_b20();
    rig.extract_frames();
    rig.roams_in(C, c30, s1, b20);
    EXPECT_EQ(rig.extract_frames(),
              (lines{"A home s1 10 10.0.0.12", "B gone s1 0 0.0.0.0", "C foreign s1 10 10.0.0.10"}));
    rig.roams_in(A, a10, s1, c30);
    EXPECT_EQ(rig.extract_frames(), (lines{"A gone s1 0 0.0.0.0", "C gone s1 0 0.0.0.0"}));
}

TEST(RoamingPeers, end_when_another_access_point_of_the_home_vlan_takes_the_client) {
    site_rig rig = roamed_to_b20();
    rig.extract_frames();
    rig.roams_in(C, c10, s1, b20);
    EXPECT_EQ(rig.extract_frames(), (lines{"A gone s1 0 0.0.0.0", "B gone s1 0 0.0.0.0"}));
}

TEST(RoamingPeers, end_when_the_client_leaves) {
    site_rig rig = roamed_to_b20();
    rig.extract_frames();
    rig.roamed_leaves(B, b20, s1);
    EXPECT_EQ(rig.extract_frames(), (lines{"A gone s1 0 0.0.0.0", "B gone s1 0 0.0.0.0"}));
}

TEST(RoamingPeers, are_one_access_point_when_the_client_is_on_its_other_vap) {
    site_rig rig = carrying_site();
    rig.associates(A, a10, s1);
    rig.roams_in(A, a20, s1, a10);
    EXPECT_EQ(rig.extract_frames(), lines{"A local s1 10 0.0.0.0"});
    rig.roams_in(A, a10, s1, a20);
    EXPECT_EQ(rig.extract_frames(), lines{"A gone s1 0 0.0.0.0"});
}

TEST(RoamingPeers, need_two_access_points_that_carry) {
    site_rig rig;
    rig.carries(A);
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    EXPECT_EQ(rig.extract_frames(), (lines{"A begin none 0 0.0.0.0", "A end none 0 0.0.0.0"}));
    rig.carries(B);
    EXPECT_EQ(rig.extract_frames(),
              (lines{"A home s1 10 10.0.0.11", "B foreign s1 10 10.0.0.10", "B begin none 0 0.0.0.0",
                     "B foreign s1 10 10.0.0.10", "B end none 0 0.0.0.0"}));
}

TEST(RoamingPeers, keep_a_lost_one_for_a_while) {
    site_rig rig = roamed_to_b20();
    rig.extract_frames();
    rig.site.ap_down(A);
    EXPECT_EQ(ticks(rig, grace - 1), nothing);
    EXPECT_EQ(ticks(rig, 1), lines{"B gone s1 0 0.0.0.0"});
    rig.comes_up(A);
    rig.carries(A);
    EXPECT_EQ(rig.extract_frames(),
              (lines{"A home s1 10 10.0.0.11", "B foreign s1 10 10.0.0.10", "A begin none 0 0.0.0.0",
                     "A home s1 10 10.0.0.11", "A end none 0 0.0.0.0"}));
}

TEST(RoamingPeers, get_everything_anew_through_a_new_tunnel) {
    site_rig rig = roamed_to_b20();
    rig.associates(C, c10, s2);
    rig.roams_in(B, b20, s2, c10);
    rig.extract_frames();
    rig.site.ap_down(B);
    rig.comes_up(B, {{b20, s1, ip1}, {b20, s2, ip1}});
    rig.carries(B);
    EXPECT_EQ(rig.extract_frames(),
              (lines{"B foreign s1 10 10.0.0.10", "B foreign s2 10 10.0.0.12", "B begin none 0 0.0.0.0",
                     "B foreign s1 10 10.0.0.10", "B foreign s2 10 10.0.0.12", "B end none 0 0.0.0.0"}));
}

// The controller or its network was away: B is back before A.
TEST(RoamingPeers, wait_for_each_other_before_all_is_replaced) {
    site_rig rig = roamed_to_b20();
    rig.site.ap_down(A);
    rig.site.ap_down(B);
    ticks(rig, grace + 1);
    rig.comes_up(B, {{b20, s1, ip1}});
    rig.carries(B);
    EXPECT_EQ(ticks(rig, 2 * grace - 1), nothing);
    EXPECT_EQ(ticks(rig, 1), (lines{"B begin none 0 0.0.0.0", "B end none 0 0.0.0.0"}));
}

TEST(RoamingPeers, change_with_an_address) {
    site_rig rig = roamed_to_b20();
    rig.site.ap_down(A);
    rig.comes_up(A);
    rig.extract_frames();
    rig.carries(A, 0x0a0000ff);
    const lines told = rig.extract_frames();
    EXPECT_EQ(std::ranges::count(told, "B foreign s1 10 10.0.0.255"), 1);
}

TEST(RoamingPeers, end_when_the_vaps_get_one_vlan) {
    site_rig rig = roamed_to_b20();
    rig.extract_frames();
    record config(record_type::bulk_vap_config);
    config.body.set("bssid", b20).set("vlan", 10);
    rig.handle(B, {config});
    EXPECT_EQ(rig.extract_frames(), (lines{"A gone s1 0 0.0.0.0", "B gone s1 0 0.0.0.0"}));
}

// --- where a station has its home

const std::string s1_entry = "     client=s1 home_bssid=a10 home_vlan=10 ip=0.0.0.0 flags=0";

TEST(HomeQuestion, is_answered_after_the_entry) {
    site_rig rig = carrying_site();
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.asks_home(B, s1, b20), lines{"B ROAMING_MGR_CLIENT_BULK_INFO\n" + s1_entry});
    EXPECT_EQ(rig.extract_frames(), lines{"B answer s1 at b20 home a10 10"});
    EXPECT_EQ(rig.asks_home(B, s1, b20), lines{"B ROAMING_MGR_CLIENT_BULK_INFO\n" + s1_entry});
}

TEST(HomeQuestion, of_a_client_that_is_there_sends_no_entry) {
    site_rig rig = roamed_to_b20();
    rig.extract_frames();
    EXPECT_EQ(rig.asks_home(B, s1, b20), nothing);
    EXPECT_EQ(rig.extract_frames(), lines{"B answer s1 at b20 home a10 10"});
}

TEST(HomeQuestion, without_a_home_on_another_vlan) {
    site_rig rig = carrying_site();
    rig.associates(A, a10, s1);
    rig.associates(B, b20, s2);
    rig.is_guest(B, b20, s2);
    for (const auto &[ap, station, bssid] : {std::tuple(B, s1, b10), {A, s2, a10}, {B, s3, b20}, {B, s1, stranger}}) {
        EXPECT_EQ(rig.asks_home(ap, station, bssid), nothing);
        const lines answer = rig.extract_frames();
        ASSERT_EQ(answer.size(), 1u);
        EXPECT_TRUE(answer[0].ends_with("home none 0")) << answer[0];
    }
}

TEST(HomeQuestion, renews_an_entry_of_a_client_that_has_another_home_by_now) {
    site_rig rig = carrying_site();
    rig.associates(A, a10, s1);
    rig.asks_home(B, s1, b20);
    rig.associates(C, c10, s1);
    EXPECT_EQ(rig.asks_home(B, s1, b10),
              lines{"B ROAMING_MGR_CLIENT_BULK_INFO\n     client=s1 home_bssid=c10 home_vlan=10 ip=0.0.0.0 flags=0"});
}

TEST(HomeQuestion, has_no_home_at_an_access_point_that_has_gone) {
    site_rig rig = carrying_site();
    rig.associates(A, a10, s1);
    rig.site.ap_down(A);
    ticks(rig, grace);
    EXPECT_EQ(rig.asks_home(B, s1, b20), nothing);
    EXPECT_EQ(rig.extract_frames(), lines{"B answer s1 at b20 home none 0"});
}

TEST(HomeQuestion, keeps_the_report_of_the_roam_that_follows) {
    site_rig rig = carrying_site();
    rig.associates(A, a10, s1);
    rig.asks_home(B, s1, b20);
    rig.roams_in(B, b20, s1, a10);
    EXPECT_EQ(rig.where(s1), "at b20 of B, home a10 of A VLAN 10, 0.0.0.0");
}

// --- random runs

// What the access points have after the frames that reached them.
class told_access_points {
public:
    void take(const outbox &sent) {
        for (const outgoing &each : sent) {
            if (const auto frame = kx::read_roaming_frame<kx::roaming_peer>(each.frame)) {
                apply(each.ap, *frame);
            }
        }
    }
    const std::map<mac_address, std::string> &of(const mac_address &ap) { return told_[ap]; }

private:
    void apply(const mac_address &ap, const kx::roaming_peer &frame) {
        const auto role = kx::roaming_role(frame.role);
        if (role == kx::roaming_role::begin) {
            stated_[ap].clear();
        } else if (role == kx::roaming_role::end) {
            std::erase_if(told_[ap], [&](const auto &each) { return !stated_[ap].contains(each.first); });
        } else if (role == kx::roaming_role::gone) {
            told_[ap].erase(frame.client);
        } else {
            stated_[ap].insert(frame.client);
            told_[ap][frame.client] = std::to_string(frame.role) + ' ' + std::to_string(std::uint16_t(frame.vlan)) +
                                      ' ' + std::to_string(std::uint32_t(frame.peer));
        }
    }

    std::map<mac_address, std::map<mac_address, std::string>> told_;
    std::map<mac_address, std::set<mac_address>> stated_;
};

std::uint32_t address_of(const mac_address &ap) { return 0x0a000001u + ap[4]; }

std::map<mac_address, std::string> expected(const site_tables &tables, const mac_address &ap) {
    std::map<mac_address, std::string> made;
    for (const auto &[mac, station] : tables.stations()) {
        if (!station->client || !station->client->home_vlan || !tables.vlan_of(station->client->now) ||
            *tables.vlan_of(station->client->now) == *station->client->home_vlan) {
            continue;
        }
        const client &known = *station->client;
        const bool is_home = known.home.ap == ap;
        const bool is_local = known.home.ap == known.now.ap;
        if (is_home || known.now.ap == ap) {
            const char *role = is_local ? "3" : is_home ? "1" : "2";
            const std::uint32_t peer = is_local ? 0 : address_of(is_home ? known.now.ap : known.home.ap);
            made[mac] = std::string(role) + ' ' + std::to_string(*known.home_vlan) + ' ' + std::to_string(peer);
        }
    }
    return made;
}

// Tunnels come and go, and what was sent through a lost one may be lost with it. Once all tunnels are up, each access
// point has what follows from the tables.
TEST(RoamingPeers, agree_with_the_tables_after_random_events) {
    std::size_t paths = 0;
    for (unsigned seed = 1; seed <= 40; seed++) {
        SCOPED_TRACE("seed " + std::to_string(seed));
        random_site random(seed);
        std::mt19937 dice(seed);
        told_access_points told;
        for (int i = 0; i < 400; i++) {
            if (const mac_address ap = {2, 0, 0, 0, std::uint8_t(dice() % 6), 0}; random.site.tables().find_ap(ap)) {
                told.take(random.site.ap_carries(ap, address_of(ap)));
            }
            const outbox sent = random.step();
            if (dice() % 10 != 0) {
                told.take(sent);
                continue;
            }
            for (const outgoing &lost : sent) {  // with its tunnel
                random.site.ap_down(lost.ap);
            }
        }
        std::vector<mac_address> aps;
        for (const auto &[mac, ap] : random.site.tables().aps()) {
            aps.push_back(mac);
        }
        for (const mac_address &ap : aps) {
            random.site.ap_up(ap);
            told.take(random.site.ap_carries(ap, address_of(ap)));
            told.take(random.site.handle({ap, 100, {}}));
        }
        for (int i = 0; i < 3 * grace; i++) {
            told.take(random.site.tick());
        }
        for (const mac_address &ap : aps) {
            EXPECT_EQ(told.of(ap), expected(random.site.tables(), ap));
            paths += told.of(ap).size();
        }
    }
    EXPECT_GT(paths, 100u);
}

}  // namespace
