// One VAP between a hostapd that the test plays and a kernel.
#ifndef TESTS_UNIT_RADIOD_VAP_RIG_H
#define TESTS_UNIT_RADIOD_VAP_RIG_H

#include <linux/genetlink.h>

#include <algorithm>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "radiod/vap.h"
#include "tests/unit/hostapd_rig.h"

inline const radiod::mac_address ann{{2, 0xaa, 0, 0, 0, 1}};

class radiod_vap : public private_root, protected event_rig {
protected:
    // The kernel's controller of generic netlink takes the place of nl80211. It lists no stations.
    radiod_vap() : radiod_vap(radiod::nl80211({.id = GENL_ID_CTRL, .groups = {}})) {}
    explicit radiod_vap(radiod::nl80211 kernel) : kernel_(std::move(kernel)) {
        announcements_.on_settled = [this](const radiod::announcer::place &from, const auto &station, bool) {
            journal_.departed(from.ifname, station);
        };
    }
    radiod::vap &start(const std::string &ifname = "lo") {
        kx::vap_config config;
        config.ifname = ifname;
        config.mac_acl_index = 1;
        vaps_.clear();
        radiod::vap &made =
            vaps_.emplace_back(config, root(),
                               radiod::vap::shared{.base = base.get(),
                                                   .kernel = kernel_,
                                                   .announcements = announcements_,
                                                   .journal = journal_,
                                                   .daemon_has_time = [this] { return daemon_has_time_; }});
        made.on_verdict_wanted = [this](const auto &station) { wanted_.push_back(station); };
        made.on_arrival = [](const auto &, radiod::akm) {};
        made.on_moved = [](const auto &) {};
        return made;
    }
    // Returns when hostapd has been asked for everything.
    void start_hostapd(const std::string &suites) {
        hostapd_.emplace(base.get(), root() + "/lo");
        hostapd_->answers = hostapd_answers_;
        hostapd_->answers["GET_CONFIG"] = "ssid=office\nkey_mgmt=" + suites + "\n";
        ASSERT_TRUE(run_until([this] { return vaps_.front().is_served() && was_sent("GET_CONFIG"); }));
        settle();
    }
    // hostapd reports an association request of Ann by this suite (IEEE 802.11-2020, table 9-151), and grants it.
    void ann_associates(const std::string &suite) {
        const std::string lo = "000000000000", address = "02aa00000001";
        hostapd_->report("<3>AP-MGMT-FRAME-RECEIVED buf=00000000" + lo + address + lo + "0000" + "11040a00" +
                         "00066f6666696365" + "30140100000fac040100000fac040100000fac" + suite + "0000");
        ann_connects();
    }
    void ann_connects() {
        hostapd_->report("<3>AP-STA-CONNECTED 02:aa:00:00:00:01");
        ASSERT_TRUE(run_until([this] { return vaps_.front().has_station(ann); }));
        settle();
    }
    void ann_leaves() {
        hostapd_->report("<3>AP-STA-DISCONNECTED 02:aa:00:00:00:01");
        ASSERT_TRUE(run_until([this] { return !vaps_.front().has_station(ann); }));
    }
    void tick(unsigned times) {
        for (unsigned i = 0; i < times; i++) {
            vaps_.front().tick();
            settle();
        }
    }
    std::ptrdiff_t times_sent(const std::string &command) const {
        return std::ranges::count(hostapd_->commands, command);
    }
    bool was_sent(const std::string &command) const { return times_sent(command) > 0; }

    radiod::nl80211 kernel_;
    std::vector<kx::notification> announced_;
    radiod::announcer announcements_{[this](kx::notification each) { announced_.push_back(std::move(each)); }, false};
    radiod::station_journal journal_{root() + "/stations"};
    std::optional<simulated_hostapd> hostapd_;
    std::map<std::string, std::string> hostapd_answers_;  // of the next one
    std::list<radiod::vap> vaps_;
    bool daemon_has_time_ = true;
    std::vector<radiod::mac_address> wanted_;
};

#endif
