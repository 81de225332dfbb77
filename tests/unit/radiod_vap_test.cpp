// One VAP between a hostapd that the test plays and a kernel that has no wireless.
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <string>
#include <vector>

#include "tests/unit/radiod_vap_rig.h"

namespace {

using namespace radiod;

constexpr char ann_scans[] = "<3>RX-PROBE-REQUEST sa=02:aa:00:00:00:01 signal=-40",
               ann_is_polled[] = "POLL_STA 02:aa:00:00:00:01",
               ann_is_sent_away[] = "DISASSOCIATE 02:aa:00:00:00:01 reason=4";

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

TEST_F(radiod_vap, asks_about_a_station_that_scans_when_the_daemon_has_time) {
    start();
    start_hostapd("FT-PSK");
    daemon_has_time_ = false;
    hostapd_->report(ann_scans);
    settle();
    EXPECT_TRUE(wanted_.empty());
    daemon_has_time_ = true;
    hostapd_->report(ann_scans);
    EXPECT_TRUE(run_until([this] { return !wanted_.empty(); }));
}

TEST_F(radiod_vap, asks_about_a_station_that_came_before_the_daemon) {
    vap &office = start();
    start_hostapd("WPA-PSK");
    office.acl_answered(ann, true, true);  // by an earlier daemon
    ann_connects();
    announcements_.all_again();
    wanted_.clear();
    announced_.clear();
    hostapd_->report("<3>AP-STA-POLL-OK 02:aa:00:00:00:01");
    EXPECT_TRUE(run_until([this] { return !announced_.empty(); }));
    EXPECT_EQ(wanted_, std::vector{ann});
}

TEST_F(radiod_vap, reads_the_settings_of_a_hostapd_that_has_read_its_configuration_again) {
    vap &office = start();
    start_hostapd("WPA-PSK");
    EXPECT_FALSE(office.rules().fetches_pmk);
    hostapd_->answers["GET_CONFIG"] = "ssid=office\nkey_mgmt=WPA-EAP\n";
    hostapd_->commands.clear();
    for (int second = 0; second < 10; ++second) {
        office.tick();
    }
    EXPECT_TRUE(run_until([&] { return office.rules().fetches_pmk; }));
    EXPECT_TRUE(was_sent("SET notify_mgmt_frames 1"));
}

TEST_F(radiod_vap, sends_a_station_away_when_hostapd_answers_again) {
    vap &office = start();
    start_hostapd("WPA-PSK");
    ann_connects();
    announced_.clear();
    hostapd_.reset();
    EXPECT_EQ(office.send_away(ann, 5).error, 0);
    start_hostapd("WPA-PSK");
    ASSERT_TRUE(run_until([this] { return was_sent("DISASSOCIATE 02:aa:00:00:00:01 reason=5"); }));
    ann_leaves();
    EXPECT_TRUE(announced_.empty()) << "the daemon has sent her away itself";
}

TEST_F(radiod_vap, enters_long_lists_into_a_hostapd_that_comes_back) {
    vap &office = start();
    start_hostapd("WPA-PSK");
    constexpr std::size_t stations = control::queue_max + 100;
    for (std::size_t i = 0; i < stations; ++i) {
        office.acl_changed({{4, 0, 0, 0, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)}}, false);
    }
    const auto entered = [this] {
        return std::ranges::count_if(hostapd_->commands,
                                     [](const std::string &each) { return each.starts_with("DENY_ACL ADD_MAC"); });
    };
    EXPECT_TRUE(run_until([&] { return entered() == stations; }));
    hostapd_.reset();
    start_hostapd("WPA-PSK");
    EXPECT_TRUE(run_until([&] { return entered() == stations; }));
}

TEST_F(radiod_vap, keeps_a_station_that_sleeps_after_a_restart) {
    start();
    start_hostapd("WPA-PSK");
    ann_connects();
    announcements_.all_again();
    tick(60);
    EXPECT_GT(times_sent(ann_is_polled), 10) << "the slower polls";
    EXPECT_FALSE(was_sent(ann_is_sent_away));
    EXPECT_EQ(announcements_.silent({.ifname = "lo", .bssid = vaps_.front().bssid()}), std::vector{ann});
    hostapd_->report("<3>AP-STA-POLL-OK 02:aa:00:00:00:01");
    EXPECT_TRUE(run_until([this] { return announcements_.silent({"lo", vaps_.front().bssid()}).empty(); }));
}

}  // namespace
