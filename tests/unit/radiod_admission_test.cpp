// Who is let in, and what hostapd's lists hold. The daemon, hostapd and the clock are the test's.
#include <gtest/gtest.h>

#include <chrono>
#include <string>
#include <vector>

#include "radiod/acl_lists.h"
#include "radiod/acl_questions.h"
#include "radiod/admission.h"

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
                 .get_pmk =
                     [this](const auto &station, const auto &) {
                         note("key", station);
                         return key_is_coming;
                     },
                 .answer =
                     [this](std::uint32_t question, const auto &, const auto &, bool allowed) {
                         seen.push_back(std::to_string(question) + (allowed ? " allowed" : " denied"));
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
    those.pmk_installed(ann, office);
    EXPECT_EQ(seen.back(), "7 allowed");
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
        EXPECT_EQ(seen, (strings{"ask ann", fallback ? "7 allowed" : "7 denied"}));
    }
}

TEST_F(admissions, a_verdict_that_comes_late_or_again_is_not_an_answer) {
    admission those = make();
    those.asked(7, ann, full_vap, now);
    those.verdict(ann, office, true);
    EXPECT_FALSE(those.verdict(ann, office, false)) << "the key is waited for";
    those.expire(now + 120ms);
    EXPECT_FALSE(those.verdict(ann, office, true));
}

TEST_F(admissions, a_key_before_the_verdict_lets_nobody_in) {
    admission those = make();
    those.asked(7, ann, full_vap, now);
    those.pmk_installed(ann, office);
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

TEST(acl_questions, a_station_has_one_number_on_a_vap_and_others_elsewhere) {
    acl_questions those;
    const auto number = those.number_of({ann, office});
    EXPECT_EQ(those.number_of({ann, office}), number);
    EXPECT_NE(those.number_of({ann, lobby}), number);
    EXPECT_NE(those.number_of({ben, office}), number);
    ASSERT_TRUE(those.find(number));
    EXPECT_EQ(those.find(number)->station, ann);
    EXPECT_EQ(those.find(number)->bssid, office);
    EXPECT_FALSE(those.find(number - 1));
}

TEST(acl_questions, the_oldest_is_forgotten_when_there_are_too_many) {
    acl_questions those;
    const auto first = those.number_of({ann, office});
    for (unsigned i = 0; i < acl_questions::most - 1; ++i) {
        those.number_of({{{4, 0, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}}, office});
    }
    EXPECT_TRUE(those.find(first));
    those.number_of({ben, office});
    EXPECT_FALSE(those.find(first));
    EXPECT_NE(those.number_of({ann, office}), first);
}

class lists : public testing::Test {
protected:
    acl_lists::time_point now{1000s};
    strings sent;
    acl_lists those{[this](std::string command) { sent.push_back(std::move(command)); }};
};

constexpr const char *accept_ann = "ACCEPT_ACL ADD_MAC 02:aa:00:00:00:01",
                     *deny_ann = "DENY_ACL ADD_MAC 02:aa:00:00:00:01",
                     *accept_no_more = "ACCEPT_ACL DEL_MAC 02:aa:00:00:00:01",
                     *deny_no_more = "DENY_ACL DEL_MAC 02:aa:00:00:00:01";

TEST_F(lists, a_verdict_that_hostapd_has_already_changes_nothing) {
    those.answered(ann, true, now);
    those.changed(ann, true, now + 5s);
    EXPECT_EQ(sent, strings{});
}

TEST_F(lists, a_changed_verdict_is_listed_until_hostapds_cache_has_forgotten_the_old_one) {
    those.answered(ann, true, now);
    those.changed(ann, false, now + 5s);
    EXPECT_EQ(sent, strings{deny_ann});
    those.expire(now + 35s);
    EXPECT_EQ(sent.size(), 1u);
    those.expire(now + 36s);
    EXPECT_EQ(sent, (strings{deny_ann, deny_no_more}));
}

TEST_F(lists, a_late_verdict_overrides_the_answer_that_was_given_without_it) {
    those.answered(ann, false, now);
    those.changed(ann, true, now + 1s);
    EXPECT_EQ(sent, strings{accept_ann});
}

TEST_F(lists, a_verdict_that_changes_back_moves_to_the_other_list) {
    those.answered(ann, true, now);
    those.changed(ann, false, now + 1s);
    those.changed(ann, true, now + 2s);
    EXPECT_EQ(sent, (strings{deny_ann, deny_no_more, accept_ann}));
}

TEST_F(lists, an_answer_takes_the_station_off_the_lists) {
    those.changed(ann, false, now);
    those.answered(ann, true, now + 1s);
    EXPECT_EQ(sent, (strings{deny_ann, deny_no_more}));
}

TEST_F(lists, a_station_of_ft_is_not_asked_about_again_for_ten_minutes) {
    those.answered(ann, true, now);
    those.associated_by_ft(ann, now + 1s);
    EXPECT_EQ(sent, strings{accept_ann});
    those.expire(now + 10min);
    EXPECT_EQ(sent.size(), 1u);
    those.expire(now + 10min + 1s);
    EXPECT_EQ(sent, (strings{accept_ann, accept_no_more}));
}

TEST_F(lists, a_station_of_ft_that_is_no_longer_allowed_is_sent_away) {
    those.answered(ann, true, now);
    those.associated_by_ft(ann, now + 1s);
    those.changed(ann, false, now + 2min);
    EXPECT_EQ(sent, (strings{accept_ann, accept_no_more, deny_ann}));
}

TEST_F(lists, nobody_is_accepted_by_ft_alone) {
    those.associated_by_ft(ann, now);
    those.answered(ann, false, now);
    those.associated_by_ft(ann, now);
    EXPECT_EQ(sent, strings{});
}

TEST_F(lists, a_new_hostapd_begins_with_empty_lists) {
    those.changed(ann, false, now);
    those.reset();
    those.expire(now + 1h);
    EXPECT_EQ(sent, strings{deny_ann});
}

}  // namespace
