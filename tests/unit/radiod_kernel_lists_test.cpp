// What the kernel lists, and what radiod makes of it. hostapd and the kernel are the test's.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "radiod/vap_kernel.h"
#include "tests/unit/radiod_vap_rig.h"
#include "tests/unit/simulated_kernel.h"

namespace {

using namespace std::chrono_literals;
using namespace radiod;

constexpr char ann_is_lost[] = "DEAUTHENTICATE 02:aa:00:00:00:01 reason=7";
constexpr char ann_at_hostapd[] = "02:aa:00:00:00:01\nflags=[AUTH][ASSOC][AUTHORIZED]\naid=1\n";
constexpr unsigned compare_period = 5;  // ticks

TEST(radiod_patience, is_one_for_all_that_a_list_of_stations_needs) {
    constexpr int answers_in_time = 2;
    simulated_kernel slow(nl80211::patience / (answers_in_time + 1) + 1ms);
    slow.bssid = {2, 0, 0, 0, 0x10, 1};
    slow.vlan_interfaces = {6, 7, 8};
    nl80211 kernel = slow.nl80211();
    vap_kernel office(kernel, "wlan0");
    office.use(5, slow.bssid);
    EXPECT_FALSE(office.list(std::vector{ann})) << "an incomplete list is none";
    EXPECT_GE(slow.requests(), 1);
    EXPECT_LE(slow.requests(), answers_in_time + 1);
}

class kernel_lists : protected simulated_kernel, public radiod_vap {
protected:
    kernel_lists() : radiod_vap(nl80211()) {}

    // The VAP has compared hostapd with the kernel.
    void start_both() {
        start().on_synchronised = [] {};
        start_hostapd("WPA-PSK");
        ASSERT_TRUE(run_until([this] { return vaps_.front().is_synchronised() && was_sent("STA-FIRST"); }));
        settle();
    }
};

TEST_F(kernel_lists, a_station_that_the_kernel_loses_is_sent_away_by_hostapd) {
    has_stations({ann});
    start_both();
    ASSERT_TRUE(vaps_.front().has_station(ann));
    has_stations({});
    vaps_.front().kernel_lost(ann);
    tick(1);
    EXPECT_FALSE(was_sent(ann_is_lost)) << "hostapd may be about to add it again";
    ASSERT_TRUE(run_until([this] {
        vaps_.front().tick();
        return !vaps_.front().has_station(ann);
    }));
    EXPECT_TRUE(run_until([this] { return was_sent(ann_is_lost); }));
}

TEST_F(kernel_lists, a_station_that_hostapd_reports_as_gone_is_not_sent_away) {
    has_stations({ann});
    start_both();
    has_stations({});
    ann_leaves();
    vaps_.front().kernel_lost(ann);
    tick(compare_period);
    EXPECT_FALSE(was_sent(ann_is_lost));
}

TEST_F(kernel_lists, a_station_that_the_kernel_lost_before_radiod_started_is_sent_away) {
    hostapd_answers_["STA-FIRST"] = ann_at_hostapd;
    hostapd_answers_["STA-NEXT 02:aa:00:00:00:01"] = "02:aa:00:00:00:02\nflags=[AUTH][ASSOC][AUTHORIZED]\n";
    hostapd_answers_["STA-NEXT 02:aa:00:00:00:02"] = "02:aa:00:00:00:03\nflags=[AUTH]\n";
    hostapd_answers_["STA-NEXT 02:aa:00:00:00:03"] = std::string("\x81\0\xff", 3);
    has_stations({{2, 0xaa, 0, 0, 0, 2}});
    start_both();
    tick(compare_period);
    EXPECT_TRUE(was_sent(ann_is_lost));
    EXPECT_FALSE(was_sent("DEAUTHENTICATE 02:aa:00:00:00:02 reason=7")) << "the kernel has it";
    EXPECT_FALSE(was_sent("DEAUTHENTICATE 02:aa:00:00:00:03 reason=7")) << "it has not associated";
    tick(compare_period);
    EXPECT_EQ(times_sent(ann_is_lost), 1);
}

TEST_F(kernel_lists, a_station_that_comes_back_at_once_is_not_sent_away) {
    hostapd_answers_["STA-FIRST"] = ann_at_hostapd;
    start_both();
    has_stations({ann});
    tick(compare_period);
    EXPECT_FALSE(was_sent(ann_is_lost));
}

}  // namespace
