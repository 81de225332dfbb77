// Which station gets which of hostapd's interfaces for single stations.
#include <gtest/gtest.h>

#include "radiod/interface_pool.h"

namespace {

using namespace std::chrono_literals;
using radiod::interface_pool;
using radiod::number_of_interface;

const kx::mac_address ann{{2, 0xaa, 0, 0, 0, 1}}, ben{{2, 0xaa, 0, 0, 0, 2}}, eve{{2, 0xaa, 0, 0, 0, 3}};
constexpr interface_pool::time_point start{1000s};

interface_pool two_interfaces() {
    interface_pool made;
    made.use({1001, 1002});
    return made;
}

TEST(InterfacePool, gives_each_station_its_own) {
    interface_pool pool = two_interfaces();
    EXPECT_EQ(pool.find(ann), 0);
    EXPECT_EQ(pool.take(ann, start), 1001);
    EXPECT_EQ(pool.take(ben, start), 1002);
    EXPECT_EQ(pool.take(ann, start), 1001);
    EXPECT_EQ(pool.find(ann), 1001);
    EXPECT_EQ(pool.take(eve, start), std::nullopt);
    EXPECT_EQ(pool.find(eve), 0);
}

// hostapd may put the station there again for that long without asking.
TEST(InterfacePool, keeps_a_number_for_a_station_that_has_left) {
    interface_pool pool = two_interfaces();
    pool.take(ann, start);
    pool.take(ben, start);
    pool.arrived(ben, 1002);
    pool.release(ben, start + 1s);
    EXPECT_EQ(pool.find(ben), 0);
    EXPECT_EQ(pool.find_kept(ben), 1002);
    EXPECT_EQ(pool.find_kept(eve), 0);
    EXPECT_EQ(pool.take(eve, start + 30s), std::nullopt);
    EXPECT_EQ(pool.take(ben, start + 30s), 1002);
}

TEST(InterfacePool, gives_away_what_was_free_for_the_longest_time) {
    interface_pool pool = two_interfaces();
    pool.take(ann, start);
    pool.take(ben, start + 1s);
    pool.release(ann, start + 3s);
    pool.release(ben, start + 2s);
    EXPECT_EQ(pool.take(eve, start + 60s), 1002);
}

TEST(InterfacePool, gives_away_what_a_station_never_used) {
    interface_pool pool = two_interfaces();
    pool.take(ann, start);
    pool.take(ben, start);
    pool.arrived(ann, 1001);
    EXPECT_EQ(pool.take(eve, start + interface_pool::kept), 1002);
}

// After a restart of radiod.
TEST(InterfacePool, takes_over_a_station_that_is_there) {
    interface_pool pool = two_interfaces();
    pool.arrived(ann, 1001);
    EXPECT_EQ(pool.take(ben, start + 60s), 1002);
    EXPECT_EQ(pool.take(eve, start + 60s), std::nullopt);
    pool.arrived(eve, 7);  // not one of them
    EXPECT_EQ(pool.find(eve), 0);
}

TEST(InterfacePool, forgets_numbers_that_hostapd_has_no_more) {
    interface_pool pool = two_interfaces();
    pool.take(ann, start);
    pool.take(ben, start);
    pool.use({1002});
    EXPECT_EQ(pool.find(ann), 0);
    EXPECT_EQ(pool.find(ben), 1002);
    EXPECT_FALSE(pool.empty());
}

TEST(InterfaceName, has_the_number) {
    EXPECT_EQ(number_of_interface("wlan0.1001", "wlan0"), 1001);
    EXPECT_EQ(number_of_interface("wlan0_1.4094", "wlan0_1"), 4094);
    for (const char *name : {"wlan0", "wlan0.", "wlan0.0", "wlan0.4095", "wlan0.70000", "wlan0.1x", "wlan01001",
                             "wlan0_1.1001", "eth0.1001", ""}) {
        EXPECT_EQ(number_of_interface(name, "wlan0"), std::nullopt) << name;
    }
}

}  // namespace
