#include <gtest/gtest.h>

#include "radiod/radius/mac_question.h"
#include "tests/unit/radius_samples.h"

namespace radiod::radius {
namespace {

using namespace radius_samples;

struct question {
    std::string name = "02000000000a";
    std::string calling = "02-00-00-00-00-0A";
    std::string called = "02-00-00-00-10-00:office";
    bool eap = false;

    datagram text() const {
        packet_builder builder(code::access_request, 1);
        builder.add(type::user_name, as_bytes(name));
        builder.add(type::called_station_id, as_bytes(called));
        builder.add(type::calling_station_id, as_bytes(calling));
        if (eap) {
            builder.add(type::eap_message, {});
        }
        return builder.sign_request({}, secret()).value();
    }
    std::optional<station_at_vap> station() const {
        const datagram made = text();
        return read_station(packet::parse(made).value());
    }
    bool is_question() const {
        const datagram made = text();
        return is_mac_question(packet::parse(made).value(), mac_address{2, 0, 0, 0, 0, 10});
    }
};

TEST(MacQuestion, HasStationAndVap) {
    const auto found = question{}.station().value();
    EXPECT_EQ(found.station, (mac_address{2, 0, 0, 0, 0, 10}));
    EXPECT_EQ(found.bssid, (mac_address{2, 0, 0, 0, 16, 0}));
    EXPECT_EQ(found.ssid, "office");
    EXPECT_TRUE(question{}.is_question());
}

TEST(MacQuestion, SsidIsAnyBytes) {
    const std::string ssid("a:\0\xff", 4);
    EXPECT_EQ(question{.called = "02-00-00-00-10-00:" + ssid}.station().value().ssid, ssid);
    EXPECT_EQ(question{.called = "02-00-00-00-10-00:"}.station().value().ssid, "");
    EXPECT_TRUE(question{.called = "02-00-00-00-10-00:" + std::string(32, 'x')}.station());
    EXPECT_FALSE(question{.called = "02-00-00-00-10-00:" + std::string(33, 'x')}.station());
}

TEST(MacQuestion, CutAnywhereIsNone) {
    const question whole;
    for (std::size_t length = 0; length < whole.calling.size(); length++) {
        EXPECT_FALSE(question{.calling = whole.calling.substr(0, length)}.station()) << length;
    }
    for (std::size_t length = 0; length < whole.called.find(':') + 1; length++) {
        EXPECT_FALSE(question{.called = whole.called.substr(0, length)}.station()) << length;
    }
    EXPECT_FALSE(question{.calling = whole.calling + "0"}.station());
}

TEST(MacQuestion, IsNoneWithEapOrAnotherName) {
    EXPECT_FALSE(question{.eap = true}.is_question());
    EXPECT_FALSE(question{.name = "02000000000b"}.is_question());
    EXPECT_FALSE(question{.name = "somebody"}.is_question());
    EXPECT_TRUE(question{.name = "02:00:00:00:00:0A"}.is_question());
}

}  // namespace
}  // namespace radiod::radius
