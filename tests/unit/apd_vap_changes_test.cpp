#include <gtest/gtest.h>

#include "apd/vap_changes.h"

namespace {

using apd::find_vap_changes;
using apd::vap_changes;

kx::vap_config vap(const std::string &ifname, std::uint16_t vlan) {
    kx::vap_config made;
    made.ifname = ifname;
    made.ssid = "office";
    made.vlan = vlan;
    return made;
}

const std::vector<kx::vap_config> before{vap("wlan0", 10), vap("wlan1", 20)};

TEST(vap_changes_of, equal_lists_are_empty) { EXPECT_EQ(find_vap_changes(before, before), (vap_changes{{}, false})); }

TEST(vap_changes_of, a_changed_and_an_added_vap_contain_both) {
    EXPECT_EQ(find_vap_changes(before, {vap("wlan0", 10), vap("wlan1", 21), vap("wlan2", 30)}),
              (vap_changes{{"wlan1", "wlan2"}, false}));
}

TEST(vap_changes_of, a_vap_include_every_field) {
    for (auto change :
         {+[](kx::vap_config &it) { it.ssid = "guests"; }, +[](kx::vap_config &it) { it.enabled = false; },
          +[](kx::vap_config &it) { it.captive = "x"; }, +[](kx::vap_config &it) { it.vap_attr = 1; },
          +[](kx::vap_config &it) { it.radius_index = 1; }, +[](kx::vap_config &it) { it.mac_acl_index = 1; },
          +[](kx::vap_config &it) { it.radius_acl_type = 1; },
          +[](kx::vap_config &it) { it.bssid = kx::mac_address{2}; }}) {
        auto after = before;
        change(after[1]);
        EXPECT_EQ(find_vap_changes(before, after), (vap_changes{{"wlan1"}, false}));
    }
}

TEST(vap_changes_of, removed_or_reordered_vaps_require_a_reload) {
    EXPECT_EQ(find_vap_changes(before, {before[1]}), (vap_changes{{}, true}));
    EXPECT_EQ(find_vap_changes(before, {before[1], before[0]}), (vap_changes{{}, true}));
    EXPECT_EQ(find_vap_changes(before, {}), (vap_changes{{}, true}));
}

TEST(vap_changes_of, a_removed_and_a_changed_vap_contain_the_changed_one) {
    EXPECT_EQ(find_vap_changes(before, {vap("wlan1", 21)}), (vap_changes{{"wlan1"}, false}));
}

}  // namespace
