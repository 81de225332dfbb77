// Servers that do not answer.
#include <gtest/gtest.h>

#include <array>
#include <cstdio>

#include "tests/unit/radius_rig.h"

namespace radiod::radius {
namespace {

using namespace std::chrono_literals;
using servers = std::vector<std::size_t>;

TEST(RadiusFailover, RequestIsRepeatedUnchanged) {
    core_rig rig;
    rig.ask(eap_request(1));
    rig.pass(999ms);
    EXPECT_EQ(rig.to_servers.size(), 1U);
    rig.pass(1ms);
    ASSERT_EQ(rig.to_servers.size(), 2U);
    EXPECT_EQ(rig.to_servers[0].text, rig.to_servers[1].text);
    rig.answer_last(code::access_challenge);
    EXPECT_EQ(rig.to_hostapd.size(), 1U);
    rig.pass(60s);
    EXPECT_EQ(rig.to_servers.size(), 2U);
}

TEST(RadiusFailover, SecondServerIsAskedAfterThreeSeconds) {
    core_rig rig(2);
    rig.ask(eap_request(1));
    rig.pass(2999ms);
    EXPECT_EQ(rig.asked(), (servers{0, 0}));
    EXPECT_EQ(rig.faults(fault::server_silent), 0U);
    rig.pass(1ms);
    EXPECT_EQ(rig.asked(), (servers{0, 0, 1}));
    EXPECT_EQ(rig.faults(fault::server_silent), 1U);
    EXPECT_EQ(verify_request(packet::parse(rig.to_servers[2].text).value(), radius_samples::as_bytes(server_secret(1))),
              verdict::good);
    rig.answer_last(code::access_accept);
    EXPECT_EQ(rig.to_hostapd.size(), 1U);
}

TEST(RadiusFailover, AnswerAfterTheMoveIsLate) {
    core_rig rig(2);
    rig.ask(eap_request(1));
    const datagram first = rig.to_servers[0].text;
    rig.pass(3s);
    rig.core_.receive_answer(0, server_answer(first, code::access_challenge, server_secret(0)), rig.now);
    EXPECT_EQ(rig.faults(fault::answer_unexpected), 1U);
    EXPECT_TRUE(rig.to_hostapd.empty());
}

TEST(RadiusFailover, SilentServerRestsAndIsTriedAgain) {
    core_rig rig(2);
    rig.ask(eap_request(1));
    rig.pass(3s);
    rig.answer_last(code::access_accept);
    rig.ask(eap_request(2));
    EXPECT_EQ(rig.asked().back(), 1U);
    rig.answer_last(code::access_accept);
    rig.pass(server_choice::rest_time - 1ms);
    rig.ask(eap_request(3));
    EXPECT_EQ(rig.asked().back(), 1U);
    rig.answer_last(code::access_accept);
    rig.pass(1ms);
    rig.ask(eap_request(4));
    EXPECT_EQ(rig.asked().back(), 0U);
    rig.answer_last(code::access_accept);
    rig.ask(eap_request(5));
    EXPECT_EQ(rig.asked().back(), 0U);
}

TEST(RadiusFailover, ServerThatAnswersOthersIsNotSilent) {
    core_rig rig(2);
    rig.ask(eap_request(1));
    rig.pass(2s);
    rig.ask(eap_request(2));
    rig.answer_last(code::access_challenge);
    rig.pass(1s);
    EXPECT_EQ(rig.asked(), (servers{0, 0, 0, 1}));
    EXPECT_EQ(rig.faults(fault::server_silent), 0U);
    rig.ask(eap_request(3));
    EXPECT_EQ(rig.asked().back(), 0U);
}

TEST(RadiusFailover, WrongSecretIsSilence) {
    core_rig rig(2);
    rig.ask(eap_request(1));
    for (const auto wait : {1s, 2s}) {
        const auto &[server, text] = rig.to_servers.back();
        rig.core_.receive_answer(server, server_answer(text, code::access_reject, "another"), rig.now);
        rig.pass(wait);
    }
    EXPECT_EQ(rig.server_faults,
              (std::vector<std::pair<std::size_t, fault>>{
                  {0, fault::answer_wrong_secret}, {0, fault::answer_wrong_secret}, {0, fault::server_silent}}));
    EXPECT_EQ(rig.asked().back(), 1U);
    rig.answer_last(code::access_accept);
    EXPECT_EQ(rig.to_hostapd.size(), 1U);
}

TEST(RadiusFailover, ConversationStaysWithItsServer) {
    core_rig rig(2);
    rig.ask(eap_request(1));
    rig.pass(3s);
    rig.answer_last(code::access_challenge, {{type::state, {1}}});
    rig.pass(server_choice::rest_time);
    rig.ask(eap_request(2, "\x01"));
    EXPECT_EQ(rig.asked().back(), 1U);
    rig.answer_last(code::access_accept);
    rig.ask(eap_request(3));
    EXPECT_EQ(rig.asked().back(), 0U);
}

TEST(RadiusFailover, NewConversationBeginsWithThePreferredServer) {
    core_rig rig(2);
    rig.ask(eap_request(1));
    rig.pass(3s);
    rig.answer_last(code::access_challenge, {{type::state, {1}}});
    rig.pass(server_choice::rest_time);
    rig.ask(eap_request(2));  // the station has begun anew
    EXPECT_EQ(rig.asked().back(), 0U);
    rig.answer_last(code::access_accept);
    rig.ask(eap_request(3, "\x01"));  // a State of before
    EXPECT_EQ(rig.asked().back(), 0U);
}

TEST(RadiusFailover, RememberedConversationsAreBounded) {
    constexpr unsigned most = 2048;
    const auto request = [](unsigned station, const std::string &state) {
        std::array<char, 18> text{};
        std::snprintf(text.data(), text.size(), "02-00-00-00-%02X-%02X", station >> 8, station & 0xff);
        return request_maker{.state = state, .station = text.data()}.make();
    };
    core_rig rig(2);
    rig.ask(request(0, ""));
    rig.pass(3s);
    rig.answer_last(code::access_challenge);
    for (unsigned station = 1; station <= most; station++) {
        rig.ask(request(station, ""));
        rig.answer_last(code::access_challenge);
    }
    rig.pass(server_choice::rest_time);
    rig.ask(request(0, "state"));
    EXPECT_EQ(rig.asked().back(), 0U);
    rig.ask(request(most, "state"));
    EXPECT_EQ(rig.asked().back(), 1U);
}

TEST(RadiusFailover, ConversationOfASilentServerMoves) {
    core_rig rig(2);
    rig.ask(eap_request(1));
    rig.answer_last(code::access_challenge, {{type::state, {1}}});
    rig.ask(eap_request(2, "\x01"));
    rig.pass(3s);
    rig.answer_last(code::access_reject);
    EXPECT_EQ(rig.asked(), (servers{0, 0, 0, 1}));
    EXPECT_EQ(rig.to_hostapd.size(), 2U);
}

TEST(RadiusFailover, AllSilentIsGivenUpOnceAndBeginsAnewWithHostapdsNext) {
    core_rig rig(2);
    const datagram request = eap_request(1);
    rig.ask(request);
    rig.pass(3s);
    rig.ask(request);
    rig.pass(6s);
    rig.ask(request);
    EXPECT_EQ(rig.asked(), (servers{0, 0, 1, 1, 1}));
    rig.pass(60s);
    EXPECT_EQ(rig.asked(), (servers{0, 0, 1, 1, 1, 1, 1}));
    EXPECT_EQ(rig.faults(fault::server_silent), 2U);
    EXPECT_EQ(rig.faults(fault::servers_all_silent), 1U);
    EXPECT_FALSE(rig.core_.deadline());
    rig.ask(request);
    EXPECT_EQ(rig.asked().back(), 0U);
}

TEST(RadiusFailover, WhenAllRestTheOneThatRestedLongestIsAsked) {
    core_rig rig(3);
    rig.ask(eap_request(1));
    rig.pass(9s);  // 0 is silent at 3 s, 1 at 6 s, 2 at 9 s
    EXPECT_EQ(rig.asked(), (servers{0, 0, 1, 1, 2, 2, 2}));
    rig.ask(eap_request(2));
    EXPECT_EQ(rig.asked().back(), 0U);
}

TEST(RadiusFailover, OnlyServerIsAskedThroughItsRest) {
    core_rig rig;
    rig.ask(eap_request(1));
    rig.pass(3s);
    EXPECT_EQ(rig.faults(fault::server_silent), 1U);
    EXPECT_EQ(rig.asked(), (servers{0, 0, 0}));
    rig.answer_last(code::access_challenge);
    EXPECT_EQ(rig.to_hostapd.size(), 1U);
}

}  // namespace
}  // namespace radiod::radius
