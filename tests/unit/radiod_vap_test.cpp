// One VAP between a hostapd that the test plays and a kernel that has no wireless.
#include <gtest/gtest.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

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
    start();
    start_hostapd("WPA-PSK");
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
    constexpr std::size_t stations = 2 * control::queue_max;
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
    EXPECT_TRUE(was_sent(ann_is_polled));
    EXPECT_FALSE(was_sent(ann_is_sent_away));
    port_ = if_nametoindex("lo");
    tick(10);
    EXPECT_FALSE(was_sent(ann_is_sent_away)) << "it was heard here last";
    EXPECT_EQ(announcements_.silent({.ifname = "lo", .bssid = vaps_.front().bssid()}), std::vector{ann});
    hostapd_->report("<3>AP-STA-POLL-OK 02:aa:00:00:00:01");
    EXPECT_TRUE(run_until([this] { return announcements_.silent({"lo", vaps_.front().bssid()}).empty(); }));
}

TEST_F(radiod_vap, sends_a_silent_station_away_that_was_heard_elsewhere) {
    start();
    start_hostapd("WPA-PSK");
    ann_connects();
    port_ = if_nametoindex("lo") + 1;
    tick(10);
    EXPECT_FALSE(was_sent(ann_is_sent_away)) << "nothing was restarted";
    announcements_.all_again();
    tick(announcer::polls_max - 1);
    EXPECT_FALSE(was_sent(ann_is_sent_away)) << "it may answer yet";
    tick(3);
    EXPECT_EQ(times_sent(ann_is_sent_away), 1);
}

TEST(radiod_bridge, an_interface_without_a_bridge_has_no_port) {
    EXPECT_EQ(find_bridge_port(if_nametoindex("lo"), ann), std::nullopt);
}

TEST(radiod_bridge, reads_where_a_station_was_heard) {
    struct {
        nlmsghdr head;
        ndmsg entry;
    } message{.head = {.nlmsg_len = sizeof message,
                       .nlmsg_type = RTM_NEWNEIGH,
                       .nlmsg_flags = 0,
                       .nlmsg_seq = 0,
                       .nlmsg_pid = 0},
              .entry = {}};
    message.entry.ndm_family = AF_BRIDGE;
    message.entry.ndm_ifindex = 7;
    EXPECT_EQ(parse_bridge_entry(message.head), 7u);
    message.entry.ndm_state = NUD_PERMANENT;
    EXPECT_EQ(parse_bridge_entry(message.head), std::nullopt) << "the bridge's own address";
    message.entry.ndm_state = 0;
    message.head.nlmsg_len = sizeof(nlmsghdr);
    EXPECT_EQ(parse_bridge_entry(message.head), std::nullopt);
}

}  // namespace
