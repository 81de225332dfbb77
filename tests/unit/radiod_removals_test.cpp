// Stations that hostapd is to send away. hostapd, the kernel and the clock are the test's.
#include <gtest/gtest.h>

#include <chrono>
#include <deque>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "radiod/removals.h"

namespace {

using namespace std::chrono_literals;
using namespace radiod;
using strings = std::vector<std::string>;
using stations = std::vector<mac_address>;

const mac_address ann{{2, 0xaa, 0, 0, 0, 1}}, ben{{2, 0xaa, 0, 0, 0, 2}};
constexpr char goes[] = "DISASSOCIATE 02:aa:00:00:00:01 reason=5";

class removal : public testing::Test {
protected:
    void reply(bool taken) {
        const auto done = std::move(waiting.front());
        waiting.pop_front();
        done(taken);
    }
    static kernel_station authorized(const mac_address &station, std::chrono::seconds since) {
        return {.mac = station, .connected = since, .authorized = true};
    }
    stations staying(std::chrono::seconds ann_since) {
        return those.staying(std::vector{authorized(ann, ann_since), authorized(ben, 100s)}, now);
    }

    removals::time_point now{1000s};
    strings sent;
    std::deque<std::function<void(bool)>> waiting;
    removals those{[this](std::string command, std::function<void(bool)> done) {
        sent.push_back(std::move(command));
        waiting.push_back(std::move(done));
    }};
};

TEST_F(removal, a_station_that_leaves_after_the_order_was_sent_away) {
    those.order(ann, "reason=5", now);
    EXPECT_EQ(sent, strings{goes});
    reply(true);
    EXPECT_TRUE(those.departed(ann));
    EXPECT_FALSE(those.departed(ann)) << "of a later association";
    EXPECT_FALSE(those.departed(ben));
}

TEST_F(removal, an_order_that_hostapd_did_not_take_is_repeated) {
    those.order(ann, "reason=5", now);
    EXPECT_FALSE(those.has_open());
    reply(false);
    EXPECT_TRUE(those.has_open());
    those.repeat(std::nullopt, now);
    EXPECT_EQ(sent, (strings{goes, goes}));
    reply(true);
    EXPECT_FALSE(those.has_open());
    EXPECT_TRUE(those.departed(ann));
}

TEST_F(removal, an_order_outlives_the_departures_of_a_hostapd_that_does_not_answer) {
    those.order(ann, "reason=5", now);
    reply(false);
    EXPECT_TRUE(those.departed(ann));
    now += 60s;
    EXPECT_EQ(staying(300s), stations{ben}) << "hostapd still has her";
    those.repeat(std::vector{authorized(ann, 300s)}, now);
    EXPECT_EQ(sent.size(), 2u);
    reply(true);
    EXPECT_EQ(staying(300s), (stations{ann, ben})) << "hostapd has had its order";
}

TEST_F(removal, who_is_to_go_does_not_stay_until_hostapd_has_reported_it) {
    those.order(ann, "reason=5", now);
    reply(true);
    EXPECT_EQ(staying(0s), stations{ben});
    those.expire();
    EXPECT_EQ(staying(300s), stations{ben});
    for (unsigned i = 1; i < removals::report_time; ++i) {
        those.expire();
    }
    EXPECT_EQ(staying(300s), (stations{ann, ben}));
    EXPECT_FALSE(those.departed(ann));
}

TEST_F(removal, a_station_that_associates_after_its_order_stays) {
    those.order(ann, "reason=5", now);
    reply(false);
    now += 10s;
    EXPECT_EQ(staying(9s), (stations{ann, ben}));
    EXPECT_FALSE(those.has_open());

    those.order(ann, "reason=5", now);
    reply(false);
    those.arrived(ann);
    EXPECT_EQ(staying(300s), (stations{ann, ben}));

    those.order(ann, "reason=5", now);
    reply(false);
    those.repeat(std::vector{authorized(ann, 2s)}, now + 5s);
    EXPECT_FALSE(those.has_open());
    EXPECT_EQ(sent.size(), 3u) << "no order was repeated";
}

TEST_F(removal, a_reply_to_an_earlier_order_does_not_count) {
    those.order(ann, "tx=0", now);
    those.arrived(ann);
    those.order(ann, "reason=5", now);
    reply(false);
    EXPECT_FALSE(those.has_open());
    reply(false);
    EXPECT_TRUE(those.has_open());
}

}  // namespace
