// RADIUS packets as anybody may send them. Input: a datagram.
#include <algorithm>

#include "input.h"
#include "radiod/radius/hidden_key.h"
#include "radiod/radius/mac_question.h"
#include "radiod/radius/translation.h"
#include "radiod/radius/verification.h"
#include "require.h"

namespace {

using namespace radiod::radius;

constexpr std::array<std::uint8_t, 6> SECRET = {'s', 'e', 'c', 'r', 'e', 't'};
constexpr authenticator REQUEST = {1, 2, 3};

// A packet of the same attributes, signed.
std::optional<datagram> built_again(const packet &read) {
    packet_builder builder(read.code(), read.identifier());
    for (const attribute &each : read.attributes()) {
        if (each.type != type::message_authenticator) {
            builder.add(each.type, each.value);
        }
    }
    return builder.sign_response(REQUEST, SECRET);
}

void check_building(const packet &read) {
    size_t length = header_size;
    size_t kept = header_size + 2 + authenticator_size;
    for (const attribute &each : read.attributes()) {
        length += 2 + each.value.size();
        kept += each.type == type::message_authenticator ? 0 : 2 + each.value.size();
    }
    fuzz::require(length == read.text().size(), "the attributes are the whole packet");

    const auto again = built_again(read);
    fuzz::require(again.has_value() == (kept <= packet_max), "what fits is built");
    if (again) {
        const packet built = packet::parse(*again).value();
        fuzz::require(verify_response(built, REQUEST, SECRET) == verdict::good, "what is built is verified");
        fuzz::require(verify_response(built, {}, SECRET) != verdict::good, "for its own request only");
        fuzz::require(built_again(built) == again, "building again changes nothing");
    }
}

void check_translation(const packet &read) {
    const leg server{.identifier = 1, .request = REQUEST, .secret = SECRET};
    const leg hostapd{.identifier = 2, .request = {4}, .secret = bytes(SECRET).first(3)};
    clear_key key;
    const auto once = translate_answer(read, server, hostapd, key);
    if (!once) {
        return;
    }
    const packet answer = packet::parse(*once).value();
    fuzz::require(verify_response(answer, hostapd.request, hostapd.secret) == verdict::good, "an answer is signed");
    fuzz::require(answer.identifier() == hostapd.identifier && answer.code() == read.code(), "for its request");
    clear_key same;
    const auto twice = translate_answer(answer, hostapd, server, same);
    fuzz::require(twice.has_value(), "a translation can be translated");
    fuzz::require(std::ranges::equal(key.key(), same.key()), "the key is the same for both peers");
}

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    const auto read = packet::parse(bytes);
    if (!read) {
        return;
    }
    fuzz::require(read->text().size() <= bytes.size(), "a packet is not longer than its datagram");
    verify_request(*read, SECRET);
    check_building(*read);
    check_translation(*read);
    if (const auto station = read_station(*read)) {
        fuzz::require(station->ssid.size() <= 32, "an SSID is not longer than the standard allows");
        fuzz::require(!is_mac_question(*read, station->station) || !is_eap(*read), "a request is of one kind");
    }
}
