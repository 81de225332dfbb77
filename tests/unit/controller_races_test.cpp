// Crossing messages, lost tunnels and restarts of the controller.
#include <gtest/gtest.h>

#include "tests/unit/controller_site_rig.h"

namespace {

using namespace controller;
using namespace controller_test;

const lines nothing;
const lines ask_a = {"A CLIENT_MGR_REQ_BULK_INFO"};
const std::string s1_home = "at a10 of A, home a10 of A VLAN 10, 0.0.0.0";

lines remove_from(const char *ap, const char *station) {
    return {std::string(ap) + " CLIENT_MGR_REMOVE_CLIENT_BULK_INFO\n     client=" + station +
            " home_vlan=0 ip=0.0.0.0 flags=0"};
}

lines treat_as_associated(const char *ap, const char *bssid) {
    return {std::string(ap) + " CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC\n     client=s1 bssid=" + bssid +
            " home_vlan=0 ip=0.0.0.0 flags=0"};
}

const std::string s1_at_b = "at b10 of B, home b10 of B VLAN 10, 0.0.0.0";

lines entry_for(const char *ap, const std::string &entry) {
    return {std::string(ap) + " CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS\n     client=s1 " + entry};
}

// The maximum number of stations of a10 that the driver lists.
std::vector<station_at> crowd() {
    std::vector<station_at> stations;
    for (unsigned n = 0; n < 105; n++) {
        stations.push_back({a10, {6, 0, 0, 2, 0, static_cast<std::uint8_t>(n)}, ip1});
    }
    return stations;
}

// Number of ticks until a report is requested from A; 11 when none is requested within 10.
int ticks_until_asked(site_rig &rig) {
    int ticks = 1;
    while (ticks <= 10 && rig.tick() != ask_a) {
        ticks++;
    }
    return ticks;
}

// s1 moved from A to B and back to A. The notice of its move may reach A before or after its return.
site_rig returned() {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.associates(B, b10, s1).size(), 1u);
    EXPECT_EQ(rig.associates(A, a10, s1), ask_a);
    EXPECT_EQ(rig.where(s1), s1_at_b);
    EXPECT_EQ(rig.site.unsettled(), 1u);
    return rig;
}

TEST(CrossedRemoval, is_found_out_by_a_report) {
    site_rig rig = returned();
    EXPECT_EQ(rig.gets_address(A, a10, s1, ip1), nothing);
    EXPECT_EQ(rig.where(s1), s1_at_b);
    EXPECT_EQ(rig.reports(A, {{a10, s1, ip1}}),
              lines{"B CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=1 client=s1 new_bssid=a10 new_vlan=10"});
    EXPECT_EQ(rig.where(s1), "at a10 of A, home a10 of A VLAN 10, 10.0.0.1");
    EXPECT_EQ(rig.site.unsettled(), 0u);
    EXPECT_EQ(ticks_until_asked(rig), 11);
}

TEST(CrossedRemoval, is_not_seen_in_a_report_that_may_lack_stations) {
    site_rig rig = returned();
    EXPECT_EQ(rig.reports(A, crowd()),
              lines{"B CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=1 client=s1 new_bssid=a10 new_vlan=10"});
    EXPECT_EQ(rig.where(s1), s1_home);
    EXPECT_EQ(rig.site.unsettled(), 0u);
}

TEST(CrossedRemoval, that_took_the_station_from_the_table_alone_gives_it_back) {
    site_rig rig = returned();
    EXPECT_EQ(rig.reports(A, {{a10, s1}}),
              (lines{"B CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=1 client=s1 new_bssid=a10 new_vlan=10",
                     treat_as_associated("A", "a10")[0]}));
    EXPECT_EQ(rig.where(s1), s1_home);
}

TEST(CrossedRemoval, that_took_the_station_leaves_nobody) {
    site_rig rig = returned();
    EXPECT_EQ(rig.reports(A), nothing);  // one empty report may result from a driver failure
    EXPECT_EQ(rig.site.unsettled(), 1u);
    EXPECT_EQ(rig.tick(), ask_a);
    EXPECT_EQ(rig.reports(A), remove_from("B", "s1"));
    EXPECT_EQ(rig.where(s1), "unknown");
    EXPECT_EQ(rig.site.unsettled(), 0u);
}

TEST(CrossedRemoval, followed_by_a_new_association_starts_anew) {
    site_rig rig = returned();
    EXPECT_EQ(rig.reports(A), nothing);
    EXPECT_EQ(rig.associates(A, a10, s1), ask_a);
    EXPECT_EQ(rig.reports(A), nothing);
    EXPECT_EQ(rig.tick(), ask_a);
    EXPECT_EQ(rig.reports(A, {{a10, s1, ip1}}).size(), 1u);
    EXPECT_EQ(rig.where(s1), s1_home);
}

TEST(CrossedRemoval, of_a_guest_keeps_it_waiting) {
    site_rig rig = returned();
    EXPECT_EQ(rig.is_guest(A, a10, s1), nothing);
    rig.reports(A, {{a10, s1, ip1}});
    EXPECT_EQ(rig.guest(s1), guest_state::waiting);
}

// A record that the access point sent before it processed the notice, such as a late roam from an answer, moves no
// client.
TEST(CrossedRemoval, and_a_late_roam_move_nobody) {
    site_rig rig;
    rig.associates(B, b20, s1);
    EXPECT_EQ(rig.fetches(A, a10, s1).size(), 1u);
    rig.associates(C, c30, s1);
    EXPECT_EQ(rig.roams_in(A, a10, s1, b20), ask_a);
    EXPECT_EQ(rig.reports(A), nothing);
    EXPECT_EQ(rig.tick(), ask_a);
    EXPECT_EQ(rig.reports(A), nothing);
    EXPECT_EQ(rig.where(s1), "at c30 of C, home c30 of C VLAN 30, 0.0.0.0");
}

TEST(CrossedRemoval, is_not_suspected_long_after) {
    for (int age : {20, 21}) {
        site_rig rig;
        rig.associates(A, a10, s1);
        EXPECT_EQ(rig.associates(B, b10, s1).size(), 1u);
        for (int i = 0; i < age; i++) {
            EXPECT_EQ(rig.tick(), nothing);
        }
        rig.associates(A, a10, s1);
        EXPECT_EQ(rig.where(s1), age == 20 ? s1_at_b : s1_home);
        EXPECT_EQ(rig.site.unsettled(), age == 20 ? 1u : 0u);
    }
}

TEST(CrossedRemoval, of_a_station_that_came_and_left_leaves_nobody) {
    site_rig rig = returned();
    EXPECT_EQ(rig.leaves(A, a10, s1), remove_from("B", "s1"));
    EXPECT_EQ(rig.site.unsettled(), 0u);
    EXPECT_EQ(rig.where(s1), "unknown");
}

TEST(CrossedRemoval, of_a_station_that_asks_for_it_is_over) {
    site_rig rig = returned();
    EXPECT_EQ(rig.fetches(A, a10, s1).size(), 1u);
    EXPECT_EQ(rig.site.unsettled(), 0u);
    rig.roams_in(A, a10, s1, b10);
    EXPECT_EQ(rig.where(s1), s1_home);
}

TEST(CrossedRemoval, of_a_station_that_leaves_its_former_access_point_late_is_kept) {
    site_rig rig = returned();
    EXPECT_EQ(rig.leaves(B, b10, s1), nothing);
    EXPECT_EQ(rig.where(s1), "unknown");
    EXPECT_EQ(rig.reports(A, {{a10, s1, ip1}}), nothing);
    EXPECT_EQ(rig.where(s1), s1_home);
}

TEST(CrossedRemoval, of_a_station_that_went_on_concerns_nobody) {
    site_rig rig = returned();
    EXPECT_EQ(rig.associates(C, c10, s1).size(), 2u);
    EXPECT_EQ(rig.site.unsettled(), 0u);
    EXPECT_EQ(rig.reports(A), nothing);
    EXPECT_EQ(rig.where(s1), "at c10 of C, home c10 of C VLAN 10, 0.0.0.0");
}

TEST(CrossedRemoval, is_not_judged_by_a_report_asked_for_before) {
    site_rig rig = returned();
    rig.associates(A, a10, s2);
    rig.associates(B, b10, s2);
    EXPECT_EQ(rig.associates(A, a10, s2), nothing);  // a report is already awaited
    EXPECT_EQ(rig.reports(A, {{a10, s1, ip1}, {a10, s2, ip1}}),
              (lines{"B CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=1 client=s1 new_bssid=a10 new_vlan=10", ask_a[0]}));
    EXPECT_EQ(rig.where(s2), s1_at_b);
    EXPECT_EQ(rig.reports(A, {{a10, s1, ip1}, {a10, s2, ip1}}).size(), 1u);
    EXPECT_EQ(rig.where(s2), s1_home);
}

// A processes the notice that the station is elsewhere after it reported the station's return.
TEST(CrossedMoveToAnotherVlan, is_put_right) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    rig.roams_in(B, b20, s1, a10, ip1);
    rig.roams_in(A, a10, s1, b20, ip1);
    EXPECT_EQ(rig.tick(), entry_for("A", "home_bssid=a10 bssid=a10 home_vlan=10 ip=10.0.0.1 flags=0"));
    EXPECT_EQ(rig.roams_in(A, a10, s1, a10, ip1), nothing);
    EXPECT_EQ(ticks_until_asked(rig), 5);
    EXPECT_EQ(rig.reports(A, {{a10, s1, ip1}}), nothing);
    EXPECT_EQ(rig.site.unsettled(), 0u);
}

TEST(CrossedMoveToAnotherVlan, of_a_guest_keeps_it_waiting) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    rig.associates(A, a10, s1);
    rig.is_guest(A, a10, s1);
    EXPECT_EQ(rig.tick(), treat_as_associated("A", "a10"));
}

TEST(CrossedAnswer, that_is_used_late_moves_nobody) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.associates(B, b20, s1).size(), 1u);
    EXPECT_EQ(rig.roams_in(A, a10, s1, a10), nothing);
    EXPECT_EQ(rig.where(s1), "at b20 of B, home b20 of B VLAN 20, 0.0.0.0");
    EXPECT_EQ(rig.site.unsettled(), 0u);
}

TEST(CrossedAnswer, without_the_address_is_put_right) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.fetches(B, b10, s1).size(), 1u);
    rig.gets_address(B, b10, s1, ip1);
    rig.roams_in(B, b10, s1, a10);
    EXPECT_EQ(rig.where(s1), "at b10 of B, home b10 of B VLAN 10, 10.0.0.1");
    EXPECT_EQ(rig.tick(), entry_for("B", "home_bssid=b10 bssid=b10 home_vlan=10 ip=10.0.0.1 flags=0"));
    rig.roams_in(B, b10, s1, b10, ip1);
    EXPECT_EQ(rig.tick(), nothing);
}

// Only an answer could restore the lost address, and an answer would let the guest in.
TEST(Guest, that_waits_is_told_of_once) {
    site_rig rig({A, B});
    rig.associates(A, a10, s1, ip1);
    rig.is_guest(A, a10, s1);
    rig.site.ap_down(A);
    EXPECT_EQ(rig.comes_up(A, {{a10, s1}}), treat_as_associated("A", "a10"));
    rig.associates(A, a10, s1);
    rig.is_guest(A, a10, s1);
    EXPECT_EQ(rig.tick(), nothing);
}

TEST(CrossedAnswer, is_put_right) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    EXPECT_EQ(rig.fetches(B, b20, s1).size(), 1u);
    rig.associates(B, b20, s1);
    rig.roams_in(B, b20, s1, b20, ip1);  // results from the answer
    EXPECT_EQ(rig.tick(), entry_for("B", "home_bssid=b20 bssid=b20 home_vlan=20 ip=10.0.0.1 flags=0"));
}

TEST(Fetch, of_a_station_that_is_gone_when_the_answer_comes_is_found_out) {
    site_rig rig;
    rig.fetches(A, a10, s1);
    rig.associates(A, a10, s1);
    EXPECT_EQ(ticks_until_asked(rig), 5);
    rig.reports(A);
    EXPECT_EQ(rig.where(s1), s1_home);
    EXPECT_EQ(ticks_until_asked(rig), 1);
    EXPECT_EQ(rig.reports(A), remove_from("A", "s1"));
    EXPECT_EQ(rig.where(s1), "unknown");
}

TEST(Fetch, is_not_judged_by_a_report_that_may_lack_stations) {
    site_rig rig;
    rig.fetches(A, a10, s1);
    rig.associates(A, a10, s1);
    EXPECT_EQ(ticks_until_asked(rig), 5);
    rig.reports(A, crowd());
    EXPECT_EQ(rig.site.unsettled(), 0u);
    EXPECT_EQ(rig.where(s1), s1_home);
}

TEST(Request, is_repeated_until_it_is_answered) {
    site_rig rig(no_access_points);
    rig.site.ap_up(A);
    EXPECT_EQ(rig.tick(), nothing);
    EXPECT_EQ(rig.tick(), nothing);
    EXPECT_EQ(rig.tick(), ask_a);
    EXPECT_EQ(rig.site.unsettled(), 1u);
    EXPECT_EQ(rig.handle(A, {}), nothing);  // an access point without VAPs
    EXPECT_EQ(rig.site.unsettled(), 0u);
    for (int i = 0; i < 4; i++) {
        EXPECT_EQ(rig.tick(), nothing);
    }
}

TEST(Restart, takes_in_what_the_access_points_report) {
    site_rig rig(no_access_points);
    EXPECT_EQ(rig.comes_up(A, {{a10, s1, ip1}}), nothing);
    EXPECT_EQ(rig.comes_up(B, {{b20, s2, ip1 + 1}}), nothing);
    EXPECT_EQ(rig.where(s1), "at a10 of A, home a10 of A VLAN 10, 10.0.0.1");
    EXPECT_EQ(rig.where(s2), "at b20 of B, home b20 of B VLAN 20, 10.0.0.2");
    EXPECT_EQ(rig.guest(s1), guest_state::unknown);
    EXPECT_EQ(texts(rig.site.approve(s1)), lines{"A CLIENT_MGR_CLIENT_GUEST_AUTH client=s1"});
}

TEST(Restart, of_a_daemon_has_it_take_its_stations_up_again) {
    site_rig rig(no_access_points);
    EXPECT_EQ(rig.comes_up(A, {{a10, s1}}), treat_as_associated("A", "a10"));
    EXPECT_EQ(rig.associates(A, a10, s1), nothing);
    EXPECT_EQ(rig.where(s1), s1_home);
}

TEST(Restart, of_a_daemon_gives_it_back_the_addresses_it_had) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    rig.site.ap_down(A);
    EXPECT_EQ(rig.comes_up(A, {{a10, s1}}),
              (lines{"A ROAMING_MGR_CLIENT_BULK_INFO\n     client=s1 home_bssid=a10 home_vlan=10 ip=10.0.0.1 flags=0",
                     "A CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS\n     client=s1 home_bssid=a10 bssid=a10 home_vlan=10 "
                     "ip=10.0.0.1 flags=0"}));
}

TEST(Restart, of_a_daemon_has_its_guests_wait_on) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.is_guest(A, a10, s1);
    rig.gets_address(A, a10, s1, ip1);
    rig.site.ap_down(A);
    EXPECT_EQ(rig.comes_up(A, {{a10, s1}}), treat_as_associated("A", "a10"));
}

TEST(LostTunnel, keeps_the_clients) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    rig.site.ap_down(A);
    EXPECT_EQ(rig.comes_up(A, {{a10, s1, ip1}}), nothing);
    EXPECT_EQ(rig.where(s1), "at a10 of A, home a10 of A VLAN 10, 10.0.0.1");
    EXPECT_EQ(rig.site.unsettled(), 0u);
}

TEST(LostTunnel, clients_that_are_gone_when_it_is_back_are_dropped) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    rig.site.ap_down(A);
    EXPECT_EQ(rig.comes_up(A), nothing);
    EXPECT_EQ(rig.tick(), ask_a);
    EXPECT_EQ(rig.reports(A), remove_from("A", "s1"));
    EXPECT_EQ(rig.where(s1), "unknown");
}

TEST(LostTunnel, clients_that_moved_meanwhile_are_taken_from_the_former_access_point) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    rig.site.ap_down(A);
    EXPECT_EQ(rig.associates(B, b10, s1), nothing);
    EXPECT_EQ(rig.comes_up(A), lines{"A CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=1 client=s1 new_bssid=b10 new_vlan=10"});
    EXPECT_EQ(rig.where(s1), "at b10 of B, home b10 of B VLAN 10, 10.0.0.1");
}

TEST(LostTunnel, of_the_home_is_told_of_the_roam_when_it_is_back) {
    site_rig rig;
    rig.associates(A, a10, s1, ip1);
    rig.site.ap_down(A);
    EXPECT_EQ(rig.roams_in(B, b20, s1, a10, ip1), nothing);
    EXPECT_EQ(rig.comes_up(A, {{a10, s1, ip1}}),
              lines{"A CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=2 client=s1 bssid=a10 new_bssid=b20 new_vlan=20"});
    EXPECT_EQ(rig.where(s1), "at b20 of B, home a10 of A VLAN 10, 10.0.0.1");
}

TEST(LostTunnel, clients_that_left_the_site_meanwhile_are_removed) {
    site_rig rig;
    rig.associates(A, a10, s1);
    rig.roams_in(B, b20, s1, a10);
    rig.site.ap_down(A);
    EXPECT_EQ(rig.roamed_leaves(B, b20, s1), nothing);
    EXPECT_EQ(rig.comes_up(A), remove_from("A", "s1"));
}

TEST(LostTunnel, of_an_access_point_that_got_a_list_corrects_the_list) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(texts(rig.site.send_list(C).messages).size(), 1u);
    rig.site.ap_down(C);
    EXPECT_EQ(rig.comes_up(C), nothing);
    rig.site.ap_down(C);
    rig.leaves(A, a10, s1);
    EXPECT_EQ(rig.comes_up(C), remove_from("C", "s1"));
}

TEST(SecondReporter, of_a_client_that_is_elsewhere_is_told_so) {
    site_rig rig;
    rig.associates(A, a10, s1);
    EXPECT_EQ(rig.comes_up(B, {{b10, s1, ip1}}),
              lines{"B CLIENT_MGR_CLIENT_MOVE_NOTIFY kind=1 client=s1 new_bssid=a10 new_vlan=10"});
    EXPECT_EQ(rig.where(s1), s1_home);
}

}  // namespace
