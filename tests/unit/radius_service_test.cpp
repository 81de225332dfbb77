// The RADIUS service with its sockets.
#include <gtest/gtest.h>

#include <system_error>

#include "radiod/radius/service.h"
#include "tests/unit/event_rig.h"
#include "tests/unit/radius_rig.h"

namespace radiod::radius {
namespace {

using namespace std::chrono_literals;

// A socket in hostapd's or a server's place.
struct peer {
    udp_socket socket{AF_INET};
    udp_address from;  // of the datagram received last

    explicit peer(const std::string &address = "127.0.0.1") { socket.bind(udp_address(address, 0)); }

    std::uint16_t port() const { return socket.own_address().port(); }
    std::optional<datagram> receive() {
        std::array<std::uint8_t, packet_max> room{};
        const auto text = socket.receive(room, from);
        return text ? std::optional(datagram(text->begin(), text->end())) : std::nullopt;
    }
};

struct service_rig : event_rig {
    service_rig() {
        radius_settings settings = rig_settings(2);
        settings.upstream[0].port = servers[0].port();
        settings.upstream[1].port = servers[1].port();
        service_.emplace(base.get(), settings);
        service_->on_mac_question = [this](const mac_question &question) { questions.push_back(question); };
        service_->on_session_key = [this](const session_key &key) { keys.push_back(key); };
    }

    void ask(peer &from, const datagram &text) {
        ASSERT_TRUE(from.socket.send(udp_address("127.0.0.1", service_->port()), text));
    }
    datagram wait_for(peer &at) {
        std::optional<datagram> text;
        EXPECT_TRUE(run_until([&] { return (text = at.receive()).has_value(); }));
        return text.value_or(datagram());
    }

    std::array<peer, 2> servers;
    std::optional<service> service_;
    std::vector<mac_question> questions;
    std::vector<session_key> keys;
    peer hostapd;
};

TEST(RadiusService, AnswersMacQuestions) {
    service_rig rig;
    rig.ask(rig.hostapd, mac_request(1));
    ASSERT_TRUE(rig.run_until([&] { return rig.questions.size() == 1; }));
    rig.service_->answer(rig.questions[0].id, true);
    EXPECT_EQ(packet::parse(rig.wait_for(rig.hostapd))->code(), code::access_accept);
}

TEST(RadiusService, PassesEapToAServerAndItsAnswerBack) {
    service_rig rig;
    const datagram request = eap_request(1);
    rig.ask(rig.hostapd, request);
    const datagram asked = rig.wait_for(rig.servers[0]);
    const datagram key(32, 0x55);
    const datagram answer = server_answer(
        asked, code::access_accept, server_secret(0),
        {{type::vendor_specific, key_attribute(17, key, packet::parse(asked)->its_authenticator(), server_secret(0))}});
    ASSERT_TRUE(rig.servers[0].socket.send(rig.servers[0].from, answer));
    const datagram got = rig.wait_for(rig.hostapd);
    EXPECT_EQ(verify_response(packet::parse(got).value(), packet::parse(request)->its_authenticator(),
                              radius_samples::as_bytes(hostapd_secret)),
              verdict::good);
    ASSERT_EQ(rig.keys.size(), 1U);
    EXPECT_EQ(kx::format_hex(rig.keys[0].pmk), kx::format_hex(key));
}

TEST(RadiusService, RepeatsARequestToASilentServer) {
    service_rig rig;
    rig.ask(rig.hostapd, eap_request(1));
    const datagram asked = rig.wait_for(rig.servers[0]);
    EXPECT_EQ(rig.wait_for(rig.servers[0]), asked);
}

TEST(RadiusService, AnswersOfOthersThanTheServerAreIgnored) {
    service_rig rig;
    rig.ask(rig.hostapd, eap_request(1));
    const datagram asked = rig.wait_for(rig.servers[0]);
    ASSERT_TRUE(
        rig.servers[1].socket.send(rig.servers[0].from, server_answer(asked, code::access_accept, server_secret(0))));
    EXPECT_TRUE(rig.run_until([&] { return rig.service_->counters().of(fault::answer_unexpected) == 1; }));
    EXPECT_EQ(rig.service_->counters().eap_answers, 0U);
}

TEST(RadiusService, AnswersOnlyItsOwnAddress) {
    service_rig rig;
    peer other("127.0.0.2");
    rig.ask(other, mac_request(1));
    EXPECT_TRUE(rig.run_until([&] { return rig.service_->counters().of(fault::request_foreign) == 1; }));
    EXPECT_TRUE(rig.questions.empty());
}

TEST(RadiusService, ListsWhatItDropped) {
    service_rig rig;
    rig.ask(rig.hostapd, radius_samples::telnet_request);
    EXPECT_TRUE(rig.run_until([&] { return rig.service_->counters().of(fault::request_unsigned) == 1; }));
    rig.service_->answer(1, true);
    const std::string list = rig.service_->losses().list();
    EXPECT_NE(list.find("radius_request_unsigned = 1\n"), std::string::npos) << list;
    EXPECT_NE(list.find("radius_question_unknown = 1\n"), std::string::npos) << list;
}

TEST(RadiusService, LongerThanAPacketIsMalformed) {
    service_rig rig;
    rig.ask(rig.hostapd, datagram(packet_max + 100));
    EXPECT_TRUE(rig.run_until([&] { return rig.service_->counters().of(fault::request_malformed) == 1; }));
}

TEST(RadiusService, UsedPortAndBadAddressAreErrors) {
    service_rig rig;
    radius_settings settings = rig_settings(0);
    settings.port = rig.service_->port();
    EXPECT_THROW(service(rig.base.get(), settings), std::system_error);
    settings.port = 0;
    for (const std::string address : {"", "localhost", "192.0.2.1.1", "192.0.2.1:1812", "1812"}) {
        settings.upstream = {{.address = address, .port = 1812, .secret = "x"}};
        EXPECT_THROW(service(rig.base.get(), settings), std::invalid_argument) << address;
    }
    settings.upstream = {{.address = "::1", .port = 1812, .secret = "x"}};
    EXPECT_NO_THROW(service(rig.base.get(), settings));
}

TEST(RadiusAddress, IsTextWithItsPort) {
    EXPECT_EQ(udp_address("192.0.2.1", 1812).text(), "192.0.2.1:1812");
    EXPECT_EQ(udp_address("2001:DB8::1", 1812).text(), "[2001:db8::1]:1812");
    EXPECT_FALSE(udp_address("192.0.2.1", 1812) == udp_address("192.0.2.1", 1813));
    EXPECT_FALSE(udp_address("192.0.2.1", 1812) == udp_address("::ffff:192.0.2.1", 1812));
    EXPECT_TRUE(udp_address("::1", 1) == udp_address("0::1", 1));
}

}  // namespace
}  // namespace radiod::radius
