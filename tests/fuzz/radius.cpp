// The RADIUS service between hostapd and its servers. Input: the number of servers, and events, each a byte for its
// kind and a block. What the input cannot guess, the signatures, is added here.
#include <algorithm>
#include <array>

#include "input.h"
#include "radiod/radius/core.h"
#include "radiod/radius/digests.h"
#include "radiod/radius/verification.h"
#include "require.h"

namespace {

using namespace radiod::radius;

constexpr unsigned EVENTS_MAX = 200;
constexpr const char *HOSTAPD_SECRET = "hostapd";
constexpr std::array<const char *, 3> SERVER_SECRETS = {"first", "second", "third"};

bytes as_bytes(std::string_view text) { return {reinterpret_cast<const uint8_t *>(text.data()), text.size()}; }

radius_settings settings_for(size_t servers) {
    radius_settings settings{.port = 0, .secret = HOSTAPD_SECRET, .upstream = {}};
    for (size_t i = 0; i < servers; i++) {
        settings.upstream.push_back({.address = "192.0.2.1", .port = 1812, .secret = SERVER_SECRETS[i]});
    }
    return settings;
}

// A packet with a Message-Authenticator and then `attributes`, which may be malformed.
datagram signed_packet(uint8_t code, uint8_t identifier, const authenticator &request, bytes secret, bytes attributes) {
    attributes = attributes.first(std::min(attributes.size(), packet_max - header_size - 18));
    const size_t length = header_size + 18 + attributes.size();
    datagram text{code, identifier, static_cast<uint8_t>(length >> 8), static_cast<uint8_t>(length)};
    text.insert(text.end(), request.begin(), request.end());
    text.insert(text.end(), {type::message_authenticator, 18});
    text.resize(text.size() + authenticator_size);
    text.insert(text.end(), attributes.begin(), attributes.end());
    const auto signature = hmac_md5(secret, text);
    std::ranges::copy(signature, text.begin() + header_size + 2);
    return text;
}

class service_rig {
public:
    explicit service_rig(size_t servers) : settings_(settings_for(servers)), core_(settings_), sent_(servers) {
        core_.send_to_hostapd = [this](uint16_t port, bytes text) { check_answer(port, text); };
        core_.send_to_server = [this](size_t server, bytes text) { check_request(server, text); };
        core_.on_mac_question = [this](const mac_question &question) { questions_.push_back(question.id); };
        core_.on_session_key = [this](const session_key &key) { keys_.push_back(key.pmk); };
        core_.on_request_fault = [](uint16_t, fault) {};
        core_.on_server_fault = [](size_t, fault) {};
    }

    void handle(uint8_t kind, fuzz::input event) {
        switch (kind % 8) {
            case 0:
                core_.receive_request(port(event), event.rest(), now_);
                break;
            case 1:
                ask(event);
                break;
            case 2:
                repeat(event);
                break;
            case 3:
                answer_raw(event);
                break;
            case 4:
                answer_signed(event);
                break;
            case 5:
                answer_with_key(event);
                break;
            case 6:
                decide(event);
                break;
            default:
                pass(std::chrono::milliseconds(10) * event.word16());
                break;
        }
    }

    // Everything that waits ends by itself.
    void finish() {
        pass(std::chrono::seconds(60));
        fuzz::require(!core_.deadline(), "nothing waits for ever");
        const radius_counters &counted = core_.counters();
        fuzz::require(counted.eap_answers <= counted.eap_requests, "a request has one answer");
        fuzz::require(counted.allowed + counted.denied <= counted.mac_questions, "a question has one answer");
        fuzz::require(counted.session_keys == keys_.size(), "keys are counted");
    }

private:
    struct asked_request {
        uint16_t port;
        datagram text;
    };

    static uint16_t port(fuzz::input &event) { return static_cast<uint16_t>(4000 + event.byte() % 4); }

    void ask(fuzz::input &event) {
        const uint16_t from = port(event);
        const uint8_t identifier = event.byte();
        const authenticator random{event.byte()};
        asked_.push_back(
            {from, signed_packet(code::access_request, identifier, random, as_bytes(HOSTAPD_SECRET), event.rest())});
        core_.receive_request(from, asked_.back().text, now_);
    }

    void repeat(fuzz::input &event) {
        if (!asked_.empty()) {
            const asked_request &again = asked_[event.byte() % asked_.size()];
            core_.receive_request(again.port, again.text, now_);
        }
    }

    void answer_raw(fuzz::input &event) {
        if (!sent_.empty()) {
            const size_t server = event.byte() % sent_.size();
            core_.receive_answer(server, event.rest(), now_);
        }
    }

    // The request that an event names: a server, and which of those sent to it.
    const datagram *named_request(fuzz::input &event, size_t &server) const {
        if (sent_.empty()) {
            return nullptr;
        }
        server = event.byte() % sent_.size();
        const uint8_t back = event.byte();
        const auto &all = sent_[server];
        return back < all.size() ? &all[all.size() - 1 - back] : nullptr;
    }

    void answer(size_t server, const datagram &to, uint8_t answer_code, bytes attributes) {
        const packet request = packet::parse(to).value();
        const bytes secret = as_bytes(SERVER_SECRETS[server]);
        datagram text =
            signed_packet(answer_code, request.identifier(), request.its_authenticator(), secret, attributes);
        std::ranges::copy(md5({text, secret}), text.begin() + 4);
        core_.receive_answer(server, text, now_);
    }

    void answer_signed(fuzz::input &event) {
        size_t server = 0;
        if (const datagram *to = named_request(event, server)) {
            const uint8_t answer_code = event.byte();
            answer(server, *to, answer_code, event.rest());
        }
    }

    // An Access-Accept with a key of the length that the event says, which must come out at both ends.
    void answer_with_key(fuzz::input &event) {
        size_t server = 0;
        const datagram *to = named_request(event, server);
        if (to == nullptr) {
            return;
        }
        const uint8_t length = event.byte() % 240;
        datagram clear(size_t{length} / 16 * 16 + 16);
        clear[0] = length;
        std::fill_n(clear.begin() + 1, length, uint8_t{0x77});
        const datagram attributes = hidden(clear, *to, as_bytes(SERVER_SECRETS[server]));
        const uint64_t answers = core_.counters().eap_answers;
        const size_t keys = keys_.size();
        answer(server, *to, code::access_accept, attributes);
        const bool is_key = length >= 32 && core_.counters().eap_answers > answers;
        fuzz::require(keys_.size() == keys + (is_key ? 1 : 0), "a long key is a PMK");
        if (is_key) {
            fuzz::require(std::ranges::count(keys_.back(), uint8_t{0x77}) == 32, "the PMK is the server's");
        }
    }

    // A Vendor-Specific attribute with MS-MPPE-Recv-Key.
    static datagram hidden(const datagram &clear, const datagram &request, bytes secret) {
        const datagram salt{0x80, 1};
        datagram text(salt);
        auto stream = md5({secret, packet::parse(request)->its_authenticator(), salt});
        for (size_t at = 0; at < clear.size(); at++) {
            if (at > 0 && at % 16 == 0) {
                stream = md5({secret, bytes(text).last(16)});
            }
            text.push_back(clear[at] ^ stream[at % 16]);
        }
        datagram value{26, static_cast<uint8_t>(8 + text.size()), 0, 0, 1, 0x37,
                       17, static_cast<uint8_t>(2 + text.size())};
        value.insert(value.end(), text.begin(), text.end());
        return value;
    }

    void decide(fuzz::input &event) {
        const uint8_t which = event.byte();
        const bool allowed = event.byte() % 2 != 0;
        core_.answer(which < questions_.size() ? questions_[which] : which, allowed);
    }

    void pass(std::chrono::milliseconds time) {
        const time_point end = now_ + time;
        while (core_.deadline() && *core_.deadline() <= end) {
            now_ = std::max(now_, *core_.deadline());
            core_.handle_deadline(now_);
        }
        now_ = end;
    }

    void check_answer(uint16_t to, bytes text) const {
        const auto answer = packet::parse(text);
        fuzz::require(answer.has_value(), "hostapd gets packets");
        const bool fits = std::ranges::any_of(asked_, [&](const asked_request &each) {
            const auto request = packet::parse(each.text);
            return each.port == to && request && request->identifier() == answer->identifier() &&
                   verify_response(*answer, request->its_authenticator(), as_bytes(HOSTAPD_SECRET)) == verdict::good;
        });
        fuzz::require(fits, "hostapd gets answers to its requests");
    }

    void check_request(size_t server, bytes text) {
        const auto request = packet::parse(text);
        fuzz::require(request && is_eap(*request), "a server gets EAP");
        fuzz::require(verify_request(*request, as_bytes(SERVER_SECRETS[server])) == verdict::good,
                      "a server gets what is signed for it");
        sent_[server].emplace_back(text.begin(), text.end());
    }

    radius_settings settings_;
    core core_;
    time_point now_{std::chrono::hours(1)};
    std::vector<asked_request> asked_;
    std::vector<std::vector<datagram>> sent_;  // by server
    std::vector<uint32_t> questions_;
    std::vector<std::array<uint8_t, 32>> keys_;
};

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    fuzz::input in(bytes);
    service_rig rig(in.byte() % (SERVER_SECRETS.size() + 1));
    for (unsigned i = 0; i < EVENTS_MAX && !in.empty(); i++) {
        const uint8_t kind = in.byte();
        rig.handle(kind, fuzz::input(in.block()));
    }
    rig.finish();
}
