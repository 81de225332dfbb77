// Who is let in. The daemon, hostapd and the clock are the test's.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "radiod/admission.h"
#include "radiod/expected_stations.h"

namespace {

using namespace std::chrono_literals;
using namespace radiod;
using strings = std::vector<std::string>;

const mac_address ann{{2, 0xaa, 0, 0, 0, 1}}, ben{{2, 0xaa, 0, 0, 0, 2}};
const mac_address office{{2, 0, 0, 0, 0x10, 1}}, lobby{{2, 0, 0, 0, 0x10, 2}};
constexpr admission::vap_rules open_vap{.bssid = {{2, 0, 0, 0, 0x10, 1}}},
    acl_vap{.bssid = {{2, 0, 0, 0, 0x10, 1}}, .has_acl = true},
    key_vap{.bssid = {{2, 0, 0, 0, 0x10, 1}}, .fetches_pmk = true},
    full_vap{.bssid = {{2, 0, 0, 0, 0x10, 1}}, .has_acl = true, .fetches_pmk = true};

class admissions : public testing::Test {
protected:
    admission make(bool fallback = false) {
        return {{.hold = 120ms, .allows_without_verdict = fallback},
                {.ask_verdict = [this](const auto &station, const auto &) { note("ask", station); },
                 .ask_home = [this](const auto &station, const auto &) { note("home", station); },
                 .get_pmk =
                     [this](const auto &station, const auto &) {
                         note("key", station);
                         return key_is_coming;
                     },
                 .answer =
                     [this](std::uint32_t question, const auto &, const auto &, bool allowed, bool by_verdict) {
                         seen.push_back(std::to_string(question) + (allowed ? " allowed" : " denied") +
                                        (by_verdict ? "" : " without verdict"));
                     }}};
    }
    void note(const std::string &what, const mac_address &station) {
        seen.push_back(what + (station == ann ? " ann" : " ben"));
    }

    admission::time_point now{1000s};
    strings seen;
    bool key_is_coming = true;
};

TEST_F(admissions, a_vap_without_rules_lets_everybody_in_at_once) {
    admission those = make();
    those.asked(7, ann, open_vap, now);
    EXPECT_EQ(seen, strings{"7 allowed"});
    EXPECT_FALSE(those.next_deadline());
}

TEST_F(admissions, the_verdict_decides) {
    admission those = make();
    those.asked(7, ann, acl_vap, now);
    those.asked(8, ben, acl_vap, now);
    EXPECT_TRUE(those.verdict(ben, office, true));
    EXPECT_TRUE(those.verdict(ann, office, false));
    EXPECT_EQ(seen, (strings{"ask ann", "ask ben", "8 allowed", "7 denied"}));
}

TEST_F(admissions, a_verdict_belongs_to_its_vap) {
    admission those = make();
    those.asked(7, ann, acl_vap, now);
    EXPECT_FALSE(those.verdict(ann, lobby, true));
    EXPECT_EQ(seen, strings{"ask ann"});
}

TEST_F(admissions, the_key_is_asked_for_after_the_verdict_only) {
    admission those = make();
    those.asked(7, ann, full_vap, now);
    EXPECT_EQ(seen, strings{"ask ann"});
    those.verdict(ann, office, true);
    EXPECT_EQ(seen, (strings{"ask ann", "key ann"}));
    those.pmk_settled(ann, office);
    EXPECT_EQ(seen.back(), "7 allowed");
}

TEST_F(admissions, the_home_is_asked_for_between_verdict_and_key) {
    admission those = make();
    admission::vap_rules vap = full_vap;
    vap.asks_home = true;
    those.asked(7, ann, vap, now);
    EXPECT_FALSE(those.home_found(ann, office));  // of an earlier question
    EXPECT_EQ(seen, strings{"ask ann"});
    those.verdict(ann, office, true);
    EXPECT_EQ(seen.back(), "home ann");
    EXPECT_FALSE(those.waits_for_pmk(ann, office));
    EXPECT_TRUE(those.home_found(ann, office));
    EXPECT_EQ(seen.back(), "key ann");
    EXPECT_FALSE(those.home_found(ann, office));
    EXPECT_EQ(seen.back(), "key ann");
    those.pmk_settled(ann, office);
    EXPECT_EQ(seen.back(), "7 allowed");
}

TEST_F(admissions, the_hold_ends_a_wait_for_a_home_with_a_yes) {
    admission those = make();
    those.asked(7, ann, {.bssid = office, .asks_home = true}, now);
    those.expire(now + 120ms);
    EXPECT_EQ(seen, (strings{"home ann", "7 allowed"}));
}

TEST_F(admissions, a_denied_station_causes_no_key_to_be_fetched) {
    admission those = make();
    those.asked(7, ann, full_vap, now);
    those.verdict(ann, office, false);
    EXPECT_EQ(seen, (strings{"ask ann", "7 denied"}));
}

TEST_F(admissions, a_key_that_hostapd_has_is_not_waited_for) {
    key_is_coming = false;
    admission those = make();
    those.asked(7, ann, key_vap, now);
    EXPECT_EQ(seen, (strings{"key ann", "7 allowed"}));
}

TEST_F(admissions, the_hold_ends_a_wait_for_a_key_with_a_yes) {
    admission those = make();
    those.asked(7, ann, key_vap, now);
    those.expire(now + 119ms);
    EXPECT_EQ(seen, strings{"key ann"});
    EXPECT_EQ(those.next_deadline(), now + 120ms);
    those.expire(now + 120ms);
    EXPECT_EQ(seen.back(), "7 allowed");
    EXPECT_FALSE(those.next_deadline());
}

TEST_F(admissions, the_hold_ends_a_wait_for_a_verdict_as_configured) {
    for (const bool fallback : {false, true}) {
        seen.clear();
        admission those = make(fallback);
        those.asked(7, ann, full_vap, now);
        those.expire(now + 120ms);
        EXPECT_EQ(seen, (strings{"ask ann", fallback ? "7 allowed without verdict" : "7 denied without verdict"}));
    }
}

TEST_F(admissions, a_verdict_that_comes_late_or_again_is_not_an_answer) {
    admission those = make();
    those.asked(7, ann, full_vap, now);
    those.verdict(ann, office, true);
    EXPECT_FALSE(those.verdict(ann, office, true)) << "the key is waited for";
    those.expire(now + 120ms);
    EXPECT_FALSE(those.verdict(ann, office, true));
}

TEST_F(admissions, a_daemon_that_is_back_is_asked_what_is_still_open) {
    admission those = make();
    those.asked(7, ann, acl_vap, now);
    those.asked(8, ben, full_vap, now + 50ms);
    those.asked(9, ben, {.bssid = lobby, .fetches_pmk = true}, now + 50ms);
    those.expire(now + 120ms);
    seen.clear();
    those.ask_again();
    EXPECT_EQ(seen, strings{"ask ben"});
}

TEST_F(admissions, a_denial_ends_the_wait_for_a_key) {
    admission those = make();
    those.asked(7, ann, full_vap, now);
    those.verdict(ann, office, true);
    EXPECT_TRUE(those.waits_for_pmk(ann, office));
    EXPECT_TRUE(those.verdict(ann, office, false));
    those.pmk_settled(ann, office);
    EXPECT_EQ(seen, (strings{"ask ann", "key ann", "7 denied"}));
    EXPECT_FALSE(those.waits_for_pmk(ann, office));
}

TEST_F(admissions, a_key_before_the_verdict_lets_nobody_in) {
    admission those = make();
    those.asked(7, ann, full_vap, now);
    those.pmk_settled(ann, office);
    EXPECT_EQ(seen, strings{"ask ann"});
}

TEST_F(admissions, a_new_question_of_a_station_replaces_the_open_one) {
    admission those = make();
    those.asked(7, ann, acl_vap, now);
    those.asked(8, ann, acl_vap, now + 50ms);
    those.expire(now + 120ms);
    EXPECT_EQ(seen, (strings{"ask ann", "ask ann"}));
    those.verdict(ann, office, true);
    EXPECT_EQ(seen.back(), "8 allowed");
}

TEST(expected, a_station_is_asked_about_again_after_a_while) {
    expected_stations those;
    const expected_stations::time_point now{1000s};
    EXPECT_TRUE(those.heard(ann, now));
    EXPECT_TRUE(those.heard(ben, now));
    EXPECT_FALSE(those.heard(ann, now + 19s));
    EXPECT_TRUE(those.heard(ann, now + 20s));
}

TEST(expected, forged_addresses_cause_only_some_questions_a_second) {
    expected_stations those;
    expected_stations::time_point now{1000s};
    std::size_t questions = 0;
    for (unsigned i = 0; i < 10000; ++i) {
        now += 1ms;
        questions += those.heard({{4, 0, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}}, now) ? 1 : 0;
    }
    EXPECT_EQ(questions, 10 * expected_stations::questions_each_second);
}

}  // namespace
