// 802.1X between hostapd and the servers.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "radiod/radius/digests.h"
#include "radiod/radius/hidden_key.h"
#include "tests/unit/freed_memory.h"
#include "tests/unit/radius_rig.h"

namespace radiod::radius {
namespace {

using namespace std::chrono_literals;
using radius_samples::as_bytes;
using servers = std::vector<std::size_t>;

datagram numbered(std::size_t size, std::uint8_t first = 0x40) {
    datagram key(size);
    std::iota(key.begin(), key.end(), first);
    return key;
}

authenticator authenticator_of(const datagram &text) { return packet::parse(text).value().its_authenticator(); }

// The answer that hostapd got last, verified as hostapd does.
packet last_answer(const core_rig &rig, const datagram &request) {
    const packet answer = packet::parse(rig.to_hostapd.back().second).value();
    EXPECT_EQ(verify_response(answer, authenticator_of(request), as_bytes(hostapd_secret)), verdict::good);
    EXPECT_EQ(answer.identifier(), packet::parse(request)->identifier());
    return answer;
}

attributes both_keys(const core_rig &rig, bytes receive) {
    const auto &[server, text] = rig.to_servers.back();
    const authenticator request = authenticator_of(text);
    return {
        {type::eap_message, {3, 1, 0, 4}},
        {type::vendor_specific, key_attribute(microsoft_type::mppe_recv_key, receive, request, server_secret(server))},
        {type::vendor_specific,
         key_attribute(microsoft_type::mppe_send_key, numbered(32, 0x80), request, server_secret(server))}};
}

// The key that hostapd reveals of its answer.
std::string key_for_hostapd(const packet &answer, std::uint8_t vendor_type, const datagram &request) {
    for (const attribute &each : answer.attributes()) {
        if (each.type == type::vendor_specific && each.value.size() > 6 && each.value[4] == vendor_type) {
            clear_key key;
            EXPECT_TRUE(reveal_key(each.value.subspan(6), authenticator_of(request), as_bytes(hostapd_secret), key));
            return kx::format_hex(key.key());
        }
    }
    return "none";
}

TEST(RadiusEap, RequestReachesTheServerSignedAnew) {
    core_rig rig;
    const datagram request = eap_request(9, "state");
    rig.ask(request);
    ASSERT_EQ(rig.to_servers.size(), 1U);
    const packet sent = packet::parse(rig.to_servers[0].text).value();
    EXPECT_EQ(verify_request(sent, as_bytes(server_secret(0))), verdict::good);
    EXPECT_EQ((*sent.attributes().begin()).type, type::message_authenticator);
    EXPECT_NE(sent.its_authenticator(), authenticator_of(request));
    for (const attribute &each : packet::parse(request)->attributes()) {
        if (each.type != type::message_authenticator) {
            EXPECT_TRUE(std::ranges::equal(sent.find(each.type).value(), each.value)) << int{each.type};
        }
    }
    EXPECT_TRUE(rig.questions.empty());
}

TEST(RadiusEap, ChallengeReachesHostapdSignedAnew) {
    core_rig rig;
    const datagram request = eap_request(9);
    rig.ask(request);
    rig.answer_last(code::access_challenge,
                    {{type::eap_message, numbered(253)}, {type::eap_message, {1}}, {type::state, numbered(16)}});
    const packet answer = last_answer(rig, request);
    EXPECT_EQ(answer.code(), code::access_challenge);
    std::vector<int> types;
    for (const attribute &each : answer.attributes()) {
        types.push_back(each.type);
    }
    EXPECT_EQ(types,
              (std::vector<int>{type::message_authenticator, type::eap_message, type::eap_message, type::state}));
    EXPECT_TRUE(rig.keys.empty());
    EXPECT_FALSE(rig.core_.deadline());
}

TEST(RadiusEap, AcceptBringsTheKeyToHostapdAndTheHolder) {
    core_rig rig;
    const datagram request = eap_request(9);
    rig.ask(request);
    attributes added = both_keys(rig, numbered(64));
    added.push_back({type::session_timeout, {0, 0, 14, 16}});
    rig.answer_last(code::access_accept, added);
    const packet answer = last_answer(rig, request);
    EXPECT_EQ(key_for_hostapd(answer, microsoft_type::mppe_recv_key, request), kx::format_hex(numbered(64)));
    EXPECT_EQ(key_for_hostapd(answer, microsoft_type::mppe_send_key, request), kx::format_hex(numbered(32, 0x80)));
    ASSERT_EQ(rig.keys.size(), 1U);
    EXPECT_EQ(rig.keys[0].station, rig_station);
    EXPECT_EQ(rig.keys[0].bssid, rig_bssid);
    EXPECT_EQ(kx::format_hex(rig.keys[0].pmk), kx::format_hex(numbered(32)));
    EXPECT_EQ(rig.keys[0].lifetime, 3600s);
}

TEST(RadiusEap, AcceptWithoutALongKeyHasNoPmk) {
    for (const std::size_t size : {0U, 16U, 31U}) {
        core_rig rig;
        rig.ask(eap_request(9));
        rig.answer_last(code::access_accept, both_keys(rig, numbered(size)));
        EXPECT_EQ(rig.to_hostapd.size(), 1U);
        EXPECT_TRUE(rig.keys.empty());
    }
    core_rig rig;
    rig.ask(eap_request(9));
    rig.answer_last(code::access_accept);
    EXPECT_TRUE(rig.keys.empty());
    rig.ask(eap_request(10));
    rig.answer_last(code::access_accept, both_keys(rig, numbered(32)));
    ASSERT_EQ(rig.keys.size(), 1U);
    EXPECT_FALSE(rig.keys[0].lifetime);
}

TEST(RadiusEap, FirstOfTwoKeysIsThePmk) {
    core_rig rig;
    const datagram request = eap_request(9);
    rig.ask(request);
    attributes added = both_keys(rig, numbered(32));
    const attributes second = both_keys(rig, numbered(32, 0x99));
    added.insert(added.end(), second.begin(), second.end());
    rig.answer_last(code::access_accept, added);
    EXPECT_EQ(key_for_hostapd(last_answer(rig, request), microsoft_type::mppe_recv_key, request),
              kx::format_hex(numbered(32)));
    ASSERT_EQ(rig.keys.size(), 1U);
    EXPECT_EQ(kx::format_hex(rig.keys[0].pmk), kx::format_hex(numbered(32)));
}

TEST(RadiusEap, KeyInARejectIsNoPmk) {
    core_rig rig;
    const datagram request = eap_request(9);
    rig.ask(request);
    rig.answer_last(code::access_reject, both_keys(rig, numbered(32)));
    EXPECT_EQ(last_answer(rig, request).code(), code::access_reject);
    EXPECT_TRUE(rig.keys.empty());
}

TEST(RadiusEap, WhatOnlyTheServersSecretOpensIsLeftOut) {
    core_rig rig;
    const datagram request = eap_request(9);
    rig.ask(request);
    const datagram mixed{0, 0, 1, 0x37, 12, 4, 1, 2, 7, 6, 0, 0, 0, 1};  // MS-CHAP-MPPE-Keys, MS-MPPE-Encryption-Policy
    const datagram other{0, 0, 0, 9, 12, 4, 1, 2};
    rig.answer_last(
        code::access_accept,
        {{type::tunnel_password, numbered(19)}, {type::vendor_specific, mixed}, {type::vendor_specific, other}});
    std::vector<std::string> values;
    for (const attribute &each : last_answer(rig, request).attributes()) {
        if (each.type != type::message_authenticator) {
            EXPECT_EQ(each.type, type::vendor_specific);
            values.push_back(kx::format_hex(each.value));
        }
    }
    EXPECT_EQ(values, (std::vector<std::string>{"00000137070600000001", kx::format_hex(other)}));
}

TEST(RadiusEap, MalformedKeysAreRefused) {
    const std::vector<datagram> hostile = {
        {0, 0, 1, 0x37, 17}, {0, 0, 1, 0x37, 17, 1}, {0, 0, 1, 0x37, 17, 3, 0}, {0, 0, 1, 0x37, 17, 200, 0x80, 1}};
    for (const datagram &value : hostile) {
        core_rig rig;
        rig.ask(eap_request(9));
        rig.answer_last(code::access_accept, {{type::vendor_specific, value}});
        EXPECT_EQ(rig.faults(fault::answer_malformed), 1U);
        EXPECT_TRUE(rig.to_hostapd.empty());
        EXPECT_TRUE(rig.keys.empty());
        EXPECT_FALSE(rig.core_.deadline());
    }
}

TEST(RadiusEap, HostileAnswersChangeNothing) {
    core_rig rig;
    const datagram request = eap_request(9);
    rig.ask(request);
    const datagram sent = rig.to_servers.at(0).text;
    const datagram good = server_answer(sent, code::access_accept, server_secret(0), both_keys(rig, numbered(32)));
    for (std::size_t length = 0; length < good.size(); length++) {
        rig.core_.receive_answer(0, bytes(good).first(length), rig.now);
    }
    EXPECT_EQ(rig.faults(fault::answer_malformed), good.size());
    rig.core_.receive_answer(0, server_answer(sent, code::access_request, server_secret(0)), rig.now);
    EXPECT_EQ(rig.faults(fault::answer_malformed), good.size() + 1);
    rig.core_.receive_answer(0, server_answer(sent, code::access_accept, "another"), rig.now);
    rig.core_.receive_answer(0, server_answer(request, code::access_accept, server_secret(0)), rig.now);
    datagram other_identifier = good;
    other_identifier[1]++;
    rig.core_.receive_answer(0, other_identifier, rig.now);
    EXPECT_EQ(rig.faults(fault::answer_wrong_secret) + rig.faults(fault::answer_unexpected), 3U);
    EXPECT_GE(rig.faults(fault::answer_wrong_secret), 1U);
    EXPECT_TRUE(rig.to_hostapd.empty());

    rig.core_.receive_answer(0, good, rig.now);
    EXPECT_EQ(rig.keys.size(), 1U);
    rig.core_.receive_answer(0, good, rig.now);
    EXPECT_EQ(rig.keys.size(), 1U);
    EXPECT_EQ(rig.to_hostapd.size(), 1U);
}

TEST(RadiusEap, AnswerWithoutMessageAuthenticatorIsRefused) {
    core_rig rig;
    rig.ask(eap_request(9));
    const datagram sent = rig.to_servers.at(0).text;
    datagram bare{code::access_accept, sent[1], 0, 20};
    const auto signature = md5({bare, authenticator_of(sent), as_bytes(server_secret(0))});
    bare.insert(bare.end(), signature.begin(), signature.end());
    rig.core_.receive_answer(0, bare, rig.now);
    EXPECT_EQ(rig.faults(fault::answer_unsigned), 1U);
    EXPECT_TRUE(rig.to_hostapd.empty());
}

TEST(RadiusEap, RetransmissionIsAnsweredFromMemory) {
    core_rig rig;
    const datagram request = eap_request(9);
    rig.ask(request);
    rig.ask(request);
    EXPECT_EQ(rig.to_servers.size(), 1U);
    rig.answer_last(code::access_challenge);
    rig.ask(request);
    EXPECT_EQ(rig.to_servers.size(), 1U);
    ASSERT_EQ(rig.to_hostapd.size(), 2U);
    EXPECT_EQ(rig.to_hostapd[0], rig.to_hostapd[1]);
}

TEST(RadiusEap, NewRequestWithTheSameIdentifierEndsTheOld) {
    core_rig rig;
    rig.ask(eap_request(9));
    const datagram first = rig.to_servers.at(0).text;
    const datagram request = eap_request(9);
    rig.ask(request);
    rig.core_.receive_answer(0, server_answer(first, code::access_challenge, server_secret(0)), rig.now);
    EXPECT_EQ(rig.faults(fault::answer_unexpected), 1U);
    EXPECT_TRUE(rig.to_hostapd.empty());
    rig.answer_last(code::access_challenge);
    last_answer(rig, request);
}

TEST(RadiusEap, ServerHas256RequestsAtOnce) {
    core_rig rig;
    for (unsigned i = 0; i <= 256; i++) {
        rig.ask(eap_request(static_cast<std::uint8_t>(i)), static_cast<std::uint16_t>(4000 + i / 256));
    }
    EXPECT_EQ(rig.to_servers.size(), 256U);
    EXPECT_EQ(rig.faults(fault::request_too_many), 1U);
    rig.answer_last(code::access_challenge);
    rig.ask(eap_request(0), 4001);  // the refused one was forgotten
    EXPECT_EQ(rig.to_servers.size(), 257U);
}

TEST(RadiusEap, WithoutServersNothingIsAnswered) {
    core_rig rig(0);
    rig.ask(eap_request(9));
    EXPECT_EQ(rig.faults(fault::servers_all_silent), 1U);
    EXPECT_TRUE(rig.to_hostapd.empty());
}

TEST(RadiusEap, KeysAreErased) {
    const datagram key = numbered(32, 0xa0);
    core_rig rig;
    rig.core_.on_session_key = [](const session_key &) {};
    rig.ask(eap_request(9));
    const datagram answer =
        server_answer(rig.to_servers.back().text, code::access_accept, server_secret(0), both_keys(rig, key));
    const freed_memory freed(bytes(key).first(8));
    rig.core_.receive_answer(0, answer, rig.now);
    EXPECT_EQ(rig.to_hostapd.size(), 1U);
    EXPECT_EQ(freed_memory::blocks_with_text(), 0U);
}

}  // namespace
}  // namespace radiod::radius
