// One VAP between a hostapd that the test plays and a kernel that has no wireless.
#include <gtest/gtest.h>
#include <linux/genetlink.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "radiod/vap.h"
#include "tests/unit/hostapd_rig.h"

namespace {

using namespace std::chrono_literals;
using namespace radiod;

const mac_address ann{{2, 0xaa, 0, 0, 0, 1}};
constexpr char ann_scans[] = "<3>RX-PROBE-REQUEST sa=02:aa:00:00:00:01 signal=-40";

class radiod_vap : public private_root, protected event_rig {
protected:
    vap &start(const std::string &ifname = "lo") {
        kx::vap_config config;
        config.ifname = ifname;
        config.mac_acl_index = 1;
        vap_.emplace(config, root(), vap::shared{base.get(), kernel_, announcements_, journal_, false});
        vap_->on_verdict_wanted = [this](const mac_address &station) { wanted_.push_back(station); };
        return *vap_;
    }
    // Returns when hostapd has been asked for everything.
    void start_hostapd(const std::string &suites) {
        hostapd_.emplace(base.get(), root() + "/lo");
        hostapd_->answers["GET_CONFIG"] = "ssid=office\nkey_mgmt=" + suites + "\n";
        ASSERT_TRUE(run_until([this] { return vap_->is_served() && was_sent("GET_CONFIG"); }));
        settle();
    }
    bool was_sent(const std::string &command) const {
        return std::ranges::find(hostapd_->commands, command) != hostapd_->commands.end();
    }

    // A family of every kernel, which does not have the command that lists stations.
    nl80211 kernel_{generic_family{.id = GENL_ID_CTRL, .groups = {}}};
    announcer announcements_{[](const kx::notification &) {}, false};
    station_journal journal_{root() + "/stations"};
    std::optional<simulated_hostapd> hostapd_;
    std::optional<vap> vap_;
    std::vector<mac_address> wanted_;
};

TEST_F(radiod_vap, answers_with_an_error_when_the_kernel_lists_no_stations) {
    vap &office = start();
    EXPECT_NE(office.list_stations().error, 0) << "hostapd does not run";
    start_hostapd("WPA-PSK");
    const auto begin = std::chrono::steady_clock::now();
    const kx::driver_answer answer = office.list_stations();
    EXPECT_LT(std::chrono::steady_clock::now() - begin, nl80211::patience);
    EXPECT_NE(answer.error, 0);
    EXPECT_TRUE(answer.data.empty());
    EXPECT_FALSE(office.is_synchronised());
}

TEST_F(radiod_vap, has_no_address_without_an_interface_and_sends_no_stranger_away) {
    const vap &none = start("none0");
    EXPECT_EQ(none.give_address().error, ENODEV);
    EXPECT_EQ(start().send_away(ann, 5).error, ENOENT);
}

TEST_F(radiod_vap, asks_about_stations_that_may_come_by_ft) {
    start();
    start_hostapd("FT-PSK WPA-PSK");
    ASSERT_TRUE(run_until([this] { return was_sent("ATTACH probe_rx_events=1"); }));
    hostapd_->report(ann_scans);
    hostapd_->report(ann_scans);
    EXPECT_TRUE(run_until([this] { return !wanted_.empty(); }));
    settle();
    EXPECT_EQ(wanted_, std::vector<mac_address>{ann});
}

TEST_F(radiod_vap, asks_about_nobody_beforehand_without_ft) {
    vap &office = start();
    start_hostapd("WPA-PSK WPA-EAP");
    office.radio_enabled();  // asks again, after the first reply
    ASSERT_TRUE(run_until([this] { return std::ranges::count(hostapd_->commands, "GET_CONFIG") == 2; }));
    EXPECT_FALSE(was_sent("ATTACH probe_rx_events=1"));
}

}  // namespace
