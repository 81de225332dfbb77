// What hostapd's accept and deny lists hold. hostapd and the clock are the test's.
#include <gtest/gtest.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <deque>
#include <functional>
#include <string>
#include <vector>

#include "radiod/acl_lists.h"

namespace {

using namespace std::chrono_literals;
using namespace radiod;
using strings = std::vector<std::string>;

const mac_address ann{{2, 0xaa, 0, 0, 0, 1}}, ben{{2, 0xaa, 0, 0, 0, 2}};

mac_address number_of_station(std::size_t i) {
    return {{4, 0, 0, 0, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)}};
}

class lists : public testing::Test {
protected:
    acl_lists::time_point now{1000s};
    strings sent;
    const acl_entries::sender hostapd = [this](std::string command, const auto &done) {
        sent.push_back(std::move(command));
        done(true);
    };
    acl_lists those{hostapd};
};

constexpr const char *accept_ann = "ACCEPT_ACL ADD_MAC 02:aa:00:00:00:01",
                     *deny_ann = "DENY_ACL ADD_MAC 02:aa:00:00:00:01",
                     *accept_no_more = "ACCEPT_ACL DEL_MAC 02:aa:00:00:00:01",
                     *deny_no_more = "DENY_ACL DEL_MAC 02:aa:00:00:00:01";

TEST_F(lists, a_verdict_that_hostapd_has_already_changes_nothing) {
    those.answered(ann, true, true, now);
    those.changed(ann, true, now + 5s);
    EXPECT_EQ(sent, strings{});
}

TEST_F(lists, a_changed_verdict_is_listed_until_hostapds_cache_has_forgotten_the_old_one) {
    those.answered(ann, true, true, now);
    those.changed(ann, false, now + 5s);
    EXPECT_EQ(sent, strings{deny_ann});
    those.expire(now + 35s);
    EXPECT_EQ(sent.size(), 1u);
    those.expire(now + 36s);
    EXPECT_EQ(sent, (strings{deny_ann, deny_no_more}));
}

// hostapd would put a station that comes again on the interface of its last answer.
TEST_F(lists, an_interface_that_changes_is_listed_until_hostapds_cache_has_forgotten_the_old_one) {
    std::uint16_t number = 1001;
    acl_lists these(hostapd, [&number](const mac_address &) { return number; });
    these.interface_changed(ann, now);
    EXPECT_EQ(sent, strings{std::string(accept_ann) + " VLAN_ID=1001"});
    number = 0;
    these.interface_changed(ann, now);
    EXPECT_EQ(sent.back(), accept_ann);
    these.expire(now + 31s);
    EXPECT_EQ(sent.back(), accept_no_more);
}

TEST_F(lists, a_late_verdict_overrides_the_answer_that_was_given_without_it) {
    those.answered(ann, false, true, now);
    those.changed(ann, true, now + 1s);
    EXPECT_EQ(sent, strings{accept_ann});
}

TEST_F(lists, a_verdict_that_comes_again_lasts_longer) {
    those.changed(ann, true, now);
    those.changed(ann, true, now + 20s);
    those.expire(now + 50s);
    EXPECT_EQ(sent, strings{accept_ann});
    those.expire(now + 51s);
    EXPECT_EQ(sent, (strings{accept_ann, accept_no_more}));
}

TEST_F(lists, a_verdict_that_comes_again_shortens_nothing) {
    those.answered(ann, true, true, now);
    those.associated(ann, true);
    those.changed(ann, true, now + 20s);
    those.expire(now + 24h);
    EXPECT_EQ(sent, strings{accept_ann});
}

TEST_F(lists, a_verdict_that_changes_back_moves_to_the_other_list) {
    those.answered(ann, true, true, now);
    those.changed(ann, false, now + 1s);
    those.changed(ann, true, now + 2s);
    EXPECT_EQ(sent, (strings{deny_ann, deny_no_more, accept_ann}));
}

TEST_F(lists, an_answer_takes_the_station_off_the_lists) {
    those.changed(ann, false, now);
    those.answered(ann, true, true, now + 1s);
    EXPECT_EQ(sent, (strings{deny_ann, deny_no_more}));
}

TEST_F(lists, a_station_of_ft_is_not_asked_about_while_it_is_here_and_for_ten_minutes_more) {
    those.answered(ann, true, true, now);
    those.associated(ann, true);
    EXPECT_EQ(sent, strings{accept_ann});
    those.expire(now + 24h);
    those.departed(ann, now + 24h);
    those.expire(now + 24h + 599s);
    EXPECT_EQ(sent.size(), 1u);
    those.expire(now + 24h + 600s);
    EXPECT_EQ(sent, (strings{accept_ann, accept_no_more}));
}

TEST_F(lists, a_station_of_ft_that_is_no_longer_allowed_is_sent_away) {
    those.answered(ann, true, true, now);
    those.associated(ann, true);
    those.changed(ann, false, now + 2min);
    EXPECT_EQ(sent, (strings{accept_ann, accept_no_more, deny_ann}));
}

TEST_F(lists, nobody_is_accepted_without_a_verdict) {
    those.associated(ann, true);
    those.answered(ann, false, true, now);
    those.associated(ann, true);
    those.answered(ann, true, false, now);
    those.associated(ann, true);
    EXPECT_EQ(sent, strings{});
}

TEST_F(lists, a_station_of_another_suite_is_asked_about_again) {
    those.answered(ann, true, true, now);
    those.associated(ann, false);
    EXPECT_EQ(sent, strings{});
}

TEST_F(lists, a_denial_that_a_reload_has_emptied_is_entered_again_when_the_station_comes) {
    those.changed(ann, false, now);
    those.associated(ann, false);
    EXPECT_EQ(sent, (strings{deny_ann, deny_ann}));
}

TEST_F(lists, what_an_earlier_process_entered_is_cleared_and_what_holds_is_entered) {
    those.changed(ann, false, now);
    those.answered(ben, true, true, now);
    sent.clear();
    those.enter_all();
    EXPECT_EQ(sent, (strings{"ACCEPT_ACL CLEAR", "DENY_ACL CLEAR", deny_ann}));
}

TEST_F(lists, a_station_was_asked_about_for_ten_seconds) {
    EXPECT_FALSE(those.was_asked(ann, now));
    those.answered(ann, true, true, now);
    EXPECT_TRUE(those.was_asked(ann, now + 9s));
    EXPECT_FALSE(those.was_asked(ann, now + 10s));
    those.changed(ben, true, now);
    EXPECT_FALSE(those.was_asked(ben, now));
}

TEST_F(lists, forged_addresses_displace_no_denial) {
    those.changed(ann, false, now);
    for (unsigned i = 0; i < 2 * acl_lists::stations_max; ++i) {
        those.answered({{4, 0, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}}, false, false, now);
    }
    sent.clear();
    those.enter_all();
    EXPECT_EQ(sent.back(), deny_ann);
}

// A hostapd that replies when the test says so.
class entries : public testing::Test {
protected:
    void reply(bool taken) {
        const auto done = std::move(waiting.front());
        waiting.pop_front();
        done(taken);
    }
    void reply_to_all() {
        while (!waiting.empty()) {
            reply(true);
        }
    }
    void deny(std::size_t stations) {
        for (std::size_t i = 0; i < stations; ++i) {
            those.set(number_of_station(i), {.in = acl_list::deny});
        }
    }

    strings sent;
    std::deque<std::function<void(bool)>> waiting;
    acl_entries those{[this](std::string command, std::function<void(bool)> done) {
        sent.push_back(std::move(command));
        waiting.push_back(std::move(done));
    }};
};

TEST_F(entries, all_are_entered_and_few_are_in_flight) {
    deny(acl_lists::stations_max);
    reply_to_all();
    sent.clear();
    those.enter_all();
    EXPECT_EQ(waiting.size(), acl_entries::in_flight_max + 2) << "with the commands that clear the lists";
    those.set(ann, {.in = acl_list::accept});
    while (std::ranges::find(sent, accept_ann) == sent.end()) {
        reply(true);
    }
    EXPECT_LT(sent.size(), 20u) << "a change waits for all others";
    while (!waiting.empty()) {
        EXPECT_LE(waiting.size(), acl_entries::in_flight_max);
        reply(true);
    }
    EXPECT_EQ(sent.size(), 2 + acl_lists::stations_max + 1);
}

TEST_F(entries, a_command_that_hostapd_does_not_take_is_sent_again) {
    those.set(ann, {.in = acl_list::deny});
    reply(false);
    EXPECT_EQ(sent, strings{deny_ann});
    those.retry();
    EXPECT_EQ(sent, (strings{deny_ann, deny_ann}));
    reply(true);
    those.retry();
    EXPECT_EQ(sent.size(), 2u);
}

TEST_F(entries, the_last_of_many_changes_holds) {
    those.set(ann, {.in = acl_list::deny});
    those.set(ann, {.in = acl_list::accept});
    those.set(ann, {});
    those.set(ann, {.in = acl_list::accept, .number = 1001});
    reply_to_all();
    EXPECT_EQ(sent, (strings{deny_ann, deny_no_more, std::string(accept_ann) + " VLAN_ID=1001"}));
}

TEST_F(entries, a_hostapd_that_comes_back_gets_what_holds_then) {
    deny(1);
    those.set(ann, {.in = acl_list::deny});
    reply(true);
    those.set(ann, {});
    for (int i = 0; i < 2; ++i) {
        reply(false);  // to what was in flight: the denial of Ann, then nothing
        if (waiting.empty()) {
            break;
        }
    }
    sent.clear();
    those.enter_all();
    reply_to_all();
    EXPECT_EQ(sent, (strings{"ACCEPT_ACL CLEAR", "DENY_ACL CLEAR", "DENY_ACL ADD_MAC 04:00:00:00:00:00"}));
}

}  // namespace
