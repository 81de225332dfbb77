// PMKs between the RADIUS server, the daemon and one hostapd, all of them the test's.
#include <gtest/gtest.h>

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "common/hex.h"
#include "radiod/pmk_sharing.h"
#include "tests/unit/radiod_vap_rig.h"
#include "wire/local_messages.h"

namespace {

using namespace std::chrono_literals;
using namespace radiod;

const pmk key{1, 2, 3, 4};
const mac_address lo{};  // BSSID of the VAP

class pmks : public radiod_vap {
protected:
    void start(const std::string &suites) {
        vap &made = radiod_vap::start();
        made.on_arrival = [&](const mac_address &station, akm suite) { those.station_arrived(made, station, suite); };
        announcements_.on_settled = [this](const auto &, const mac_address &station, bool announced) {
            if (announced) {
                those.station_departed(station);
            }
        };
        start_hostapd(suites);
    }
    void eap_succeeds(std::optional<std::chrono::seconds> limit = std::nullopt) {
        those.session_began({.station = ann, .bssid = lo, .pmk = key, .lifetime = limit});
    }
    // Ann asks to be let in, and the daemon has her PMK.
    void ann_fetches() {
        questions.asked(1, ann, {.bssid = lo, .fetches_pmk = true}, {});
        ASSERT_TRUE(questions.waits_for_pmk(ann, lo));
        kx::pmk_answer answer;
        answer.client = ann;
        answer.bssid = lo;
        answer.pmk = key;
        those.fetched(answer);
        EXPECT_TRUE(run_until([this] { return !questions.waits_for_pmk(ann, lo); }));
    }
    // hostapd's number of the suite is a bit (its src/common/defs.h).
    static std::string add_command(akm suite, const std::string &number) {
        return "PMKSA_ADD 02:aa:00:00:00:01 " + kx::format_hex(*make_pmkid(suite, key, lo, ann)) + ' ' +
               kx::format_hex(key) + " 43200 " + number;
    }

    std::vector<kx::notification> sent;
    admission questions{{},
                        {.ask_verdict = [](const auto &, const auto &) {},
                         .ask_home = [](const auto &, const auto &) {},
                         .get_pmk = [this](const auto &station, const auto &at) { return those.get(station, at); },
                         .answer = [](std::uint32_t, const auto &, const auto &, bool, bool) {}}};
    pmk_sharing those{{.vaps = vaps_,
                       .questions = questions,
                       .details = kx::detail_log(false),
                       .send = [this](kx::notification each) { sent.push_back(std::move(each)); },
                       .daemon_is_ready = [] { return true; },
                       .on_answered = [] {}}};
};

TEST_F(pmks, the_daemon_gets_a_key_after_the_association_and_none_is_kept_after_the_departure) {
    start("WPA-EAP");
    eap_succeeds();
    EXPECT_TRUE(sent.empty());
    ann_associates("01");
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent.front().payload, kx::pmk_add_notification(ann, lo, key).payload);
    EXPECT_EQ(those.size(), 1u);
    ann_leaves();
    EXPECT_EQ(those.size(), 0u);
    EXPECT_FALSE(vaps_.front().pmks().has(ann));
}

TEST_F(pmks, a_key_that_was_made_before_the_earlier_departure_was_announced_is_kept) {
    start("WPA-EAP");
    ann_associates("01");
    vaps_.front().on_arrival = [](const auto &, akm) {};
    ann_leaves();
    eap_succeeds();
    those.station_departed(ann);
    EXPECT_EQ(those.size(), 1u);
    those.station_moved(ann);
    EXPECT_EQ(those.size(), 0u);
}

// Another access point would use it for longer than the server allows.
TEST_F(pmks, a_key_that_the_server_limits_stays_here_however_long_its_time_is) {
    start("WPA-EAP");
    eap_succeeds(13h);
    ann_associates("01");
    eap_succeeds(1h);
    EXPECT_TRUE(sent.empty());
    EXPECT_EQ(those.size(), 1u);
}

TEST_F(pmks, keys_of_ft_are_not_carried) {
    start("WPA-EAP FT-EAP");
    ann_associates("03");
    eap_succeeds();
    EXPECT_EQ(those.size(), 0u);
    EXPECT_TRUE(sent.empty());
}

TEST_F(pmks, a_vap_with_ft_alone_has_no_keys_to_carry) {
    start("FT-EAP");
    eap_succeeds();
    EXPECT_EQ(those.size(), 0u);
}

TEST_F(pmks, a_key_is_installed_for_the_strongest_suite_when_the_station_has_not_chosen) {
    start("WPA-EAP WPA-EAP-SHA256");
    ann_fetches();
    EXPECT_TRUE(was_sent(add_command(akm::ieee8021x_sha256, "128")));
    EXPECT_TRUE(vaps_.front().pmks().has(ann));
}

TEST_F(pmks, a_key_is_installed_for_the_suite_that_the_station_chose) {
    start("WPA-EAP WPA-EAP-SHA256");
    ann_associates("01");
    ann_leaves();
    ann_fetches();
    EXPECT_TRUE(was_sent(add_command(akm::ieee8021x, "1")));
}

TEST_F(pmks, hostapd_is_asked_for_the_suite_of_a_station_that_was_here_before) {
    start("WPA-EAP WPA-EAP-SHA256");
    hostapd_->answers["STA 02:aa:00:00:00:01"] = "02:aa:00:00:00:01\nwpa=2\nAKMSuiteSelector=00-0f-ac-1\n";
    ann_connects();
    ASSERT_TRUE(run_until([this] { return was_sent("STA 02:aa:00:00:00:01"); }));
    settle();
    ann_leaves();
    ann_fetches();
    EXPECT_TRUE(was_sent(add_command(akm::ieee8021x, "1")));
}

}  // namespace
