// One VAP between a hostapd that the test plays and a kernel that has no wireless.
#include <gtest/gtest.h>
#include <linux/genetlink.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <net/if.h>

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
        vap_.emplace(config, root(),
                     vap::shared{base.get(), kernel_, announcements_, journal_, false,
                                 [this](unsigned, const mac_address &) { return port_; }});
        vap_->on_verdict_wanted = [this](const mac_address &station) { wanted_.push_back(station); };
        vap_->on_arrival = [](const mac_address &) {};
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

    void start_with_ann() {
        start();
        start_hostapd("WPA-PSK");
        hostapd_->report("<3>AP-STA-CONNECTED 02:aa:00:00:00:01");
        ASSERT_TRUE(run_until([this] { return vap_->has_station(ann); }));
    }
    void tick(unsigned times) {
        for (unsigned i = 0; i < times; i++) {
            vap_->tick();
            settle();
        }
    }
    static constexpr char ann_is_polled[] = "POLL_STA 02:aa:00:00:00:01";
    static constexpr char ann_is_sent_away[] = "DISASSOCIATE 02:aa:00:00:00:01 reason=4";

    // A family of every kernel, which does not have the command that lists stations.
    nl80211 kernel_{generic_family{.id = GENL_ID_CTRL, .groups = {}}};
    announcer announcements_{[](const kx::notification &) {}, false};
    station_journal journal_{root() + "/stations"};
    std::optional<simulated_hostapd> hostapd_;
    std::optional<vap> vap_;
    std::vector<mac_address> wanted_;
    std::optional<unsigned> port_;  // of the bridge, behind which every station was heard last
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

TEST_F(radiod_vap, keeps_a_station_that_sleeps_after_a_restart) {
    start_with_ann();
    announcements_.all_again();
    tick(60);
    EXPECT_TRUE(was_sent(ann_is_polled));
    EXPECT_FALSE(was_sent(ann_is_sent_away));
    port_ = if_nametoindex("lo");
    tick(10);
    EXPECT_FALSE(was_sent(ann_is_sent_away)) << "it was heard here last";
    EXPECT_EQ(announcements_.silent({.ifname = "lo", .bssid = vap_->bssid()}), std::vector{ann});
    hostapd_->report("<3>AP-STA-POLL-OK 02:aa:00:00:00:01");
    EXPECT_TRUE(run_until([this] { return announcements_.silent({"lo", vap_->bssid()}).empty(); }));
}

TEST_F(radiod_vap, sends_a_silent_station_away_that_was_heard_elsewhere) {
    start_with_ann();
    port_ = if_nametoindex("lo") + 1;
    tick(10);
    EXPECT_FALSE(was_sent(ann_is_sent_away)) << "nothing was restarted";
    announcements_.all_again();
    tick(announcer::polls_max - 1);
    EXPECT_FALSE(was_sent(ann_is_sent_away)) << "it may answer yet";
    tick(3);
    EXPECT_EQ(std::ranges::count(hostapd_->commands, ann_is_sent_away), 1);
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
