// MAC questions, and what is refused of hostapd's requests.
#include <gtest/gtest.h>

#include "tests/unit/radius_rig.h"

namespace radiod::radius {
namespace {

using namespace std::chrono_literals;
using radius_samples::as_bytes;

TEST(RadiusMac, QuestionIsReportedAndAllowed) {
    core_rig rig;
    const datagram request = mac_request(7);
    rig.ask(request);
    ASSERT_EQ(rig.questions.size(), 1U);
    EXPECT_EQ(rig.questions[0].station, rig_station);
    EXPECT_EQ(rig.questions[0].bssid, rig_bssid);
    EXPECT_EQ(rig.questions[0].ssid, "office");
    EXPECT_TRUE(rig.to_hostapd.empty());

    rig.core_.answer(rig.questions[0].id, true);
    ASSERT_EQ(rig.to_hostapd.size(), 1U);
    EXPECT_EQ(rig.to_hostapd[0].first, 4000);
    const packet answer = packet::parse(rig.to_hostapd[0].second).value();
    EXPECT_EQ(answer.code(), code::access_accept);
    EXPECT_EQ(answer.identifier(), 7);
    EXPECT_EQ((*answer.attributes().begin()).type, type::message_authenticator);
    EXPECT_EQ(verify_response(answer, packet::parse(request)->its_authenticator(), as_bytes(hostapd_secret)),
              verdict::good);
    EXPECT_TRUE(rig.to_servers.empty());
    EXPECT_EQ(rig.core_.counters().mac_questions, 1U);
    EXPECT_EQ(rig.core_.counters().allowed, 1U);
}

TEST(RadiusMac, QuestionIsDenied) {
    core_rig rig;
    rig.ask(mac_request(7));
    rig.core_.answer(rig.questions.at(0).id, false);
    EXPECT_EQ(packet::parse(rig.to_hostapd.at(0).second)->code(), code::access_reject);
    EXPECT_EQ(rig.core_.counters().denied, 1U);
}

TEST(RadiusMac, RetransmissionWaitsThenGetsTheSameAnswer) {
    core_rig rig;
    const datagram request = mac_request(7);
    rig.ask(request);
    rig.pass(3s);
    rig.ask(request);
    EXPECT_EQ(rig.questions.size(), 1U);
    EXPECT_TRUE(rig.to_hostapd.empty());
    rig.core_.answer(rig.questions[0].id, true);
    rig.pass(6s);
    rig.ask(request);
    ASSERT_EQ(rig.to_hostapd.size(), 2U);
    EXPECT_EQ(rig.to_hostapd[0], rig.to_hostapd[1]);
    EXPECT_EQ(rig.questions.size(), 1U);
    EXPECT_EQ(rig.core_.counters().repeated_requests, 2U);
}

TEST(RadiusMac, OtherPortsAndAuthenticatorsAreOtherQuestions) {
    core_rig rig;
    rig.ask(mac_request(7), 4000);
    rig.ask(mac_request(7), 4001);
    rig.ask(mac_request(7), 4000);  // hostapd has forgotten the first
    ASSERT_EQ(rig.questions.size(), 3U);
    rig.core_.answer(rig.questions[0].id, true);
    EXPECT_EQ(rig.faults(fault::question_unknown), 1U);
    EXPECT_TRUE(rig.to_hostapd.empty());
    rig.core_.answer(rig.questions[1].id, true);
    rig.core_.answer(rig.questions[2].id, true);
    ASSERT_EQ(rig.to_hostapd.size(), 2U);
    EXPECT_EQ(rig.to_hostapd[0].first, 4001);
    EXPECT_EQ(rig.to_hostapd[1].first, 4000);
}

TEST(RadiusMac, SecondAndUnknownAnswersAreCounted) {
    core_rig rig;
    rig.ask(mac_request(7));
    const std::uint32_t id = rig.questions.at(0).id;
    rig.core_.answer(id + 1, true);
    rig.core_.answer(0, true);
    rig.core_.answer(id, false);
    rig.core_.answer(id, true);
    EXPECT_EQ(rig.faults(fault::question_unknown), 3U);
    EXPECT_EQ(rig.to_hostapd.size(), 1U);
}

TEST(RadiusMac, QuestionsAreForgottenAfterAMinute) {
    core_rig rig;
    rig.ask(mac_request(7));
    rig.pass(60s);
    rig.ask(mac_request(8));
    rig.core_.answer(rig.questions.at(0).id, true);
    EXPECT_EQ(rig.faults(fault::question_unknown), 1U);
}

TEST(RadiusMac, TableIsBounded) {
    core_rig rig;
    for (unsigned i = 0; i <= request_table::requests_max; i++) {
        rig.ask(mac_request(static_cast<std::uint8_t>(i)), static_cast<std::uint16_t>(4000 + i / 256));
        rig.now += 1ms;
    }
    ASSERT_EQ(rig.questions.size(), request_table::requests_max + 1);
    rig.core_.answer(rig.questions[0].id, true);
    EXPECT_EQ(rig.faults(fault::question_unknown), 1U);
    rig.core_.answer(rig.questions[1].id, true);
    rig.core_.answer(rig.questions.back().id, true);
    EXPECT_EQ(rig.to_hostapd.size(), 2U);
}

TEST(RadiusMac, WrongSecretIsCountedAndNotAnswered) {
    core_rig rig;
    rig.ask(request_maker{.user = "02000000000a", .eap = "", .secret = "another"}.make());
    EXPECT_EQ(rig.faults(fault::request_wrong_secret), 1U);
    rig.ask(radius_samples::telnet_request);
    EXPECT_EQ(rig.faults(fault::request_unsigned), 1U);
    EXPECT_TRUE(rig.questions.empty());
    EXPECT_TRUE(rig.to_hostapd.empty());
}

TEST(RadiusMac, HostileRequestsAreRefused) {
    core_rig rig;
    const datagram good = mac_request(1);
    for (std::size_t length = 0; length < good.size(); length++) {
        rig.ask(datagram(good.begin(), good.begin() + static_cast<std::ptrdiff_t>(length)));
    }
    EXPECT_EQ(rig.faults(fault::request_malformed), good.size());
    rig.ask(server_answer(good, code::access_accept, hostapd_secret));
    rig.ask(request_maker{.user = "02000000000b", .eap = ""}.make());
    for (const std::uint8_t password : {type::user_password, type::chap_password, type::arap_password}) {
        rig.ask(request_maker{.forbidden = password}.make());
    }
    EXPECT_EQ(rig.faults(fault::request_unknown), 5U);
    EXPECT_TRUE(rig.questions.empty());
    EXPECT_TRUE(rig.to_servers.empty());
    EXPECT_TRUE(rig.to_hostapd.empty());
}

}  // namespace
}  // namespace radiod::radius
