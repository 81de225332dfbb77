#include <gtest/gtest.h>

#include <algorithm>

#include "radiod/radius/digests.h"
#include "radiod/radius/packet.h"
#include "radiod/radius/verification.h"
#include "tests/unit/radius_samples.h"

namespace radiod::radius {
namespace {

using namespace radius_samples;

const std::vector<datagram> samples = {telnet_request, telnet_accept,  framed_request,
                                       framed_accept,  status_request, key_accept};

authenticator authenticator_of(const datagram &text) { return packet::parse(text).value().its_authenticator(); }

// The packet's length field says what it really has.
datagram with_length(datagram text) {
    text[2] = static_cast<std::uint8_t>(text.size() >> 8);
    text[3] = static_cast<std::uint8_t>(text.size());
    return text;
}

TEST(RadiusPacket, IsReadAsTheStandardShowsIt) {
    const auto request = packet::parse(telnet_request).value();
    EXPECT_EQ(request.code(), code::access_request);
    EXPECT_EQ(request.identifier(), 0);
    EXPECT_EQ(kx::format_hex(request.its_authenticator()), "0f403f9473978057bd83d5cb98f4227a");
    std::vector<std::pair<int, std::string>> attributes;
    for (const attribute &each : request.attributes()) {
        attributes.emplace_back(each.type, kx::format_hex(each.value));
    }
    EXPECT_EQ(attributes,
              (std::vector<std::pair<int, std::string>>{{type::user_name, "6e656d6f"},
                                                        {type::user_password, "0dbe708d93d413ce3196e43f782a0aee"},
                                                        {4, "c0a80110"},
                                                        {5, "00000003"}}));
    EXPECT_FALSE(request.has(type::eap_message));
}

TEST(RadiusPacket, CutAnywhereIsNone) {
    for (const datagram &sample : samples) {
        for (std::size_t length = 0; length < sample.size(); length++) {
            const std::vector<std::uint8_t> cut(sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(length));
            EXPECT_FALSE(packet::parse(cut)) << length;
        }
        EXPECT_TRUE(packet::parse(sample));
    }
}

TEST(RadiusPacket, CutWithItsLengthCorrectedIsOneBetweenAttributesOnly) {
    for (const datagram &sample : samples) {
        std::vector<std::size_t> ends = {header_size};
        for (const attribute &each : packet::parse(sample).value().attributes()) {
            ends.push_back(ends.back() + 2 + each.value.size());
        }
        EXPECT_EQ(ends.back(), sample.size());
        for (std::size_t length = header_size; length <= sample.size(); length++) {
            const auto cut = with_length({sample.begin(), sample.begin() + static_cast<std::ptrdiff_t>(length)});
            EXPECT_EQ(packet::parse(cut).has_value(), std::ranges::find(ends, length) != ends.end()) << length;
        }
    }
}

TEST(RadiusPacket, IgnoresWhatFollowsIt) {
    datagram padded = telnet_accept;
    padded.resize(padded.size() + 7, 0xff);
    EXPECT_EQ(packet::parse(padded).value().text().size(), telnet_accept.size());
}

TEST(RadiusPacket, LongerThanTheStandardAllowsIsNone) {
    datagram longest(packet_max);
    longest[0] = code::access_request;
    for (std::size_t at = header_size; at < longest.size(); at += longest[at + 1]) {
        longest[at + 1] = static_cast<std::uint8_t>(std::min<std::size_t>(200, longest.size() - at));
    }
    EXPECT_TRUE(packet::parse(with_length(longest)));
    longest.insert(longest.end(), {1, 2});
    EXPECT_FALSE(packet::parse(with_length(longest)));
}

TEST(RadiusPacket, EmptyValueIsRead) {
    datagram text(header_size);
    text.insert(text.end(), {type::user_name, 2});
    EXPECT_TRUE(packet::parse(with_length(text)).value().find(type::user_name).value().empty());
    text.back() = 1;
    EXPECT_FALSE(packet::parse(with_length(text)));
    text.back() = 0;
    EXPECT_FALSE(packet::parse(with_length(text)));
}

TEST(RadiusDigests, AreThoseOfTheStandards) {
    EXPECT_EQ(kx::format_hex(md5({as_bytes("abc")})), "900150983cd24fb0d6963f7d28e17f72");  // RFC 1321, A.5
    EXPECT_EQ(md5({as_bytes("a"), {}, as_bytes("bc")}), md5({as_bytes("abc")}));
    EXPECT_EQ(kx::format_hex(hmac_md5(as_bytes("Jefe"), as_bytes("what do ya want for nothing?"))),
              "750c783e6ab0b503eaa86e310a5db738");  // RFC 2202, 2
}

TEST(RadiusVerification, ResponseAuthenticatorOfTheStandardIsRight) {
    // The standard's responses have no Message-Authenticator: that alone is missed.
    EXPECT_EQ(verify_response(packet::parse(telnet_accept).value(), authenticator_of(telnet_request), secret()),
              verdict::no_message_authenticator);
    EXPECT_EQ(verify_response(packet::parse(framed_accept).value(), authenticator_of(framed_request), secret()),
              verdict::no_message_authenticator);
    EXPECT_EQ(verify_response(packet::parse(telnet_accept).value(), authenticator_of(framed_request), secret()),
              verdict::wrong_authenticator);
}

TEST(RadiusVerification, MessageAuthenticatorOfTheStandardIsRight) {
    EXPECT_EQ(verify_request(packet::parse(status_request).value(), secret()), verdict::good);
    EXPECT_EQ(verify_request(packet::parse(status_request).value(), as_bytes("xyzzy5462")),
              verdict::wrong_authenticator);
    EXPECT_EQ(verify_request(packet::parse(telnet_request).value(), secret()), verdict::no_message_authenticator);
}

TEST(RadiusVerification, EveryChangedBitIsNoticed) {
    ASSERT_EQ(verify_response(packet::parse(key_accept).value(), key_request, secret()), verdict::good);
    for (const datagram &sample : {status_request, key_accept}) {
        for (std::size_t bit = 0; bit < 8 * sample.size(); bit++) {
            datagram changed = sample;
            changed[bit / 8] = static_cast<std::uint8_t>(changed[bit / 8] ^ 1U << bit % 8);
            const auto read = packet::parse(changed);
            if (read) {
                EXPECT_NE(sample == key_accept ? verify_response(*read, key_request, secret())
                                               : verify_request(*read, secret()),
                          verdict::good)
                    << bit;
            }
        }
    }
}

TEST(RadiusVerification, SecondMessageAuthenticatorIsWrong) {
    packet_builder builder(code::access_request, 1);
    builder.add(type::message_authenticator, authenticator{});
    const auto text = builder.sign_request(key_request, secret()).value();
    EXPECT_EQ(verify_request(packet::parse(text).value(), secret()), verdict::wrong_authenticator);
}

TEST(RadiusVerification, SecondMessageAuthenticatorIsWrongThoughItFits) {
    datagram text(header_size);
    text.insert(text.end(), {type::message_authenticator, 18});
    text.resize(text.size() + authenticator_size, 0xaa);
    text.insert(text.end(), {type::message_authenticator, 18});
    text.resize(text.size() + authenticator_size);
    text = with_length(text);
    std::ranges::copy(hmac_md5(secret(), text), text.end() - authenticator_size);
    EXPECT_EQ(verify_request(packet::parse(text).value(), secret()), verdict::wrong_authenticator);
    text.erase(text.begin() + header_size, text.begin() + header_size + 18);
    text = with_length(text);
    std::ranges::fill(text.end() - authenticator_size, text.end(), std::uint8_t{0});
    std::ranges::copy(hmac_md5(secret(), text), text.end() - authenticator_size);
    EXPECT_EQ(verify_request(packet::parse(text).value(), secret()), verdict::good);
}

TEST(RadiusVerification, ShortMessageAuthenticatorIsWrong) {
    datagram text(header_size);
    text.insert(text.end(), {type::message_authenticator, 3, 0});
    EXPECT_EQ(verify_request(packet::parse(with_length(text)).value(), secret()), verdict::wrong_authenticator);
}

TEST(RadiusBuilder, MakesThePacketOfTheStandard) {
    packet_builder builder(12, 0xda);
    EXPECT_EQ(builder.sign_request(authenticator_of(status_request), secret()), status_request);
}

TEST(RadiusBuilder, MakesThePacketOfAnotherProgram) {
    packet_builder builder(code::access_accept, 7);
    const packet sample = packet::parse(key_accept).value();
    for (const attribute &each : sample.attributes()) {
        if (each.type != type::message_authenticator) {
            builder.add(each.type, each.value);
        }
    }
    EXPECT_EQ(builder.sign_response(key_request, secret()), key_accept);
}

TEST(RadiusBuilder, RefusesWhatIsTooLong) {
    packet_builder long_value(code::access_request, 1);
    long_value.add(type::user_name, datagram(value_max + 1));
    EXPECT_FALSE(long_value.sign_request(key_request, secret()));

    // 20 bytes of head, 18 of Message-Authenticator, 15 attributes of 255 and one of 233.
    for (const std::size_t last : {231U, 232U}) {
        packet_builder full(code::access_request, 1);
        for (int i = 0; i < 15; i++) {
            full.add(type::eap_message, datagram(value_max));
        }
        full.add(type::eap_message, datagram(last));
        const auto text = full.sign_response(key_request, secret());
        ASSERT_EQ(text.has_value(), last == 231U);
        if (text) {
            EXPECT_EQ(text->size(), packet_max);
            EXPECT_EQ(verify_response(packet::parse(*text).value(), key_request, secret()), verdict::good);
        }
    }
}

}  // namespace
}  // namespace radiod::radius
