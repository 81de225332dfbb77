#include "radiod/radius/eap_proxy.h"

#include <openssl/crypto.h>
#include <openssl/rand.h>

#include <algorithm>
#include <stdexcept>

#include "radiod/radius/verification.h"

namespace radiod::radius {

using std::chrono::seconds;

namespace {

constexpr auto first_wait = seconds(1);  // doubled with every try
constexpr unsigned tries_before_next = 2;
constexpr auto time_to_give_up = seconds(30);
constexpr std::size_t conversations_max = 2048;

authenticator random_authenticator() {
    authenticator random{};
    if (RAND_bytes(random.data(), static_cast<int>(random.size())) != 1) {
        throw std::runtime_error("libcrypto has no random bytes");
    }
    return random;
}

std::optional<seconds> session_timeout(const packet &accept) {
    const auto value = accept.find(type::session_timeout);
    if (!value || value->size() != 4) {
        return std::nullopt;
    }
    std::uint32_t number = 0;
    for (const std::uint8_t byte : *value) {
        number = number << 8 | byte;
    }
    return seconds(number);
}

}  // namespace

eap_proxy::eap_proxy(bytes hostapd_secret, std::vector<bytes> server_secrets)
    : hostapd_secret_(hostapd_secret),
      server_secrets_(std::move(server_secrets)),
      choice_(server_secrets_.size()),
      waiting_(server_secrets_.size()),
      next_identifier_(server_secrets_.size()) {}

void eap_proxy::forward(const request_key &from, const packet &request, const station_at_vap &station, time_point now) {
    if (choice_.count() == 0) {
        return on_given_up(from, fault::servers_all_silent);
    }
    std::size_t server = choice_.preferred(now);
    const auto known = servers_.find({station.bssid, station.station});
    if (request.has(type::state) && known != servers_.end() && !choice_.rests(known->second, now)) {
        server = known->second;
    }
    ask(server,
        {.from = from,
         .station = station.station,
         .bssid = station.bssid,
         .request = {request.text().begin(), request.text().end()},
         .started = now},
        now);
}

std::optional<std::uint8_t> eap_proxy::free_identifier(std::size_t server) {
    std::uint8_t &next = next_identifier_[server];
    for (unsigned tried = 0; tried < 256; tried++) {
        const std::uint8_t identifier = next++;
        if (!waiting_[server].contains(identifier)) {
            return identifier;
        }
    }
    return std::nullopt;
}

void eap_proxy::ask(std::size_t server, exchange waiting, time_point now) {
    const auto identifier = free_identifier(server);
    if (!identifier) {
        return on_given_up(waiting.from, fault::request_too_many);
    }
    const authenticator random = random_authenticator();
    auto text = translate_request(packet::parse(waiting.request).value(),
                                  {.identifier = *identifier, .request = random, .secret = server_secrets_[server]});
    if (!text) {
        return on_given_up(waiting.from, fault::request_malformed);
    }
    waiting.servers++;
    waiting.authentic = random;
    waiting.sent = std::move(*text);
    waiting.first_sent = now;
    waiting.wait = first_wait;
    waiting.next = now + waiting.wait;
    waiting.tries = 1;
    const auto at = waiting_[server].emplace(*identifier, std::move(waiting)).first;
    send(server, at->second.sent);
}

void eap_proxy::forget(const request_key &from) {
    for (exchanges &at_server : waiting_) {
        std::erase_if(at_server, [&](const auto &item) { return item.second.from == from; });
    }
}

std::optional<time_point> eap_proxy::deadline() const {
    std::optional<time_point> first;
    for (const exchanges &at_server : waiting_) {
        for (const auto &[identifier, waiting] : at_server) {
            first = std::min(first.value_or(waiting.next), waiting.next);
        }
    }
    return first;
}

void eap_proxy::handle_deadline(time_point now) {
    for (std::size_t server = 0; server < waiting_.size(); server++) {
        std::vector<std::uint8_t> due;
        for (const auto &[identifier, waiting] : waiting_[server]) {
            if (waiting.next <= now) {
                due.push_back(identifier);
            }
        }
        for (const std::uint8_t identifier : due) {
            repeat_or_move(server, identifier, now);
        }
    }
}

void eap_proxy::repeat_or_move(std::size_t server, std::uint8_t identifier, time_point now) {
    exchange &waiting = waiting_[server].at(identifier);
    if (now - waiting.started >= time_to_give_up) {
        const request_key from = waiting.from;
        waiting_[server].erase(identifier);
        return on_given_up(from, fault::servers_all_silent);
    }
    if (waiting.tries >= tries_before_next) {
        note_silence(server, waiting, now);
        if (waiting.servers < choice_.count()) {
            return move(server, identifier, now);
        }
    }
    waiting.tries++;
    waiting.wait *= 2;
    waiting.next = now + waiting.wait;
    send(server, waiting.sent);
}

void eap_proxy::move(std::size_t server, std::uint8_t identifier, time_point now) {
    auto moved = waiting_[server].extract(identifier);
    ask(choice_.after(server, now), std::move(moved.mapped()), now);
}

// A server that has answered others meanwhile is not silent: it does not like this request.
void eap_proxy::note_silence(std::size_t server, const exchange &waiting, time_point now) {
    if (!choice_.rests(server, now) && !choice_.has_answered_since(server, waiting.first_sent)) {
        choice_.silent(server, now);
        on_server_fault(server, fault::server_silent);
    }
}

void eap_proxy::receive(std::size_t server, bytes text, time_point now) {
    const auto answer = packet::parse(text);
    if (!answer || (answer->code() != code::access_accept && answer->code() != code::access_reject &&
                    answer->code() != code::access_challenge)) {
        return on_server_fault(server, fault::answer_malformed);
    }
    const auto at = waiting_[server].find(answer->identifier());
    if (at == waiting_[server].end()) {
        return on_server_fault(server, fault::answer_unexpected);
    }
    switch (verify_response(*answer, at->second.authentic, server_secrets_[server])) {
        case verdict::wrong_authenticator:
            return on_server_fault(server, fault::answer_wrong_secret);
        case verdict::no_message_authenticator:
            return on_server_fault(server, fault::answer_unsigned);
        case verdict::good:
            break;
    }
    choice_.answered(server, now);
    const auto asked = waiting_[server].extract(at);
    deliver(server, *answer, asked.mapped());
}

void eap_proxy::deliver(std::size_t server, const packet &answer, const exchange &asked) {
    const packet request = packet::parse(asked.request).value();
    clear_key key;
    auto text = translate_answer(
        answer, {.identifier = answer.identifier(), .request = asked.authentic, .secret = server_secrets_[server]},
        {.identifier = request.identifier(), .request = request.its_authenticator(), .secret = hostapd_secret_}, key,
        vlan_of ? vlan_of(asked.station, asked.bssid) : std::nullopt);
    if (!text) {
        return on_given_up(asked.from, fault::answer_malformed);
    }
    remember_server(answer, asked, server);
    on_answer(asked.from, std::move(*text));
    if (answer.code() == code::access_accept) {
        report_key(answer, asked, key);
    }
}

// The State of a challenge means something only to the server that sent it.
void eap_proxy::remember_server(const packet &answer, const exchange &asked, std::size_t server) {
    const conversation with{asked.bssid, asked.station};
    if (answer.code() != code::access_challenge) {
        servers_.erase(with);
        return;
    }
    if (servers_.size() == conversations_max && !servers_.contains(with)) {
        servers_.erase(servers_.begin());
    }
    servers_[with] = server;
}

void eap_proxy::report_key(const packet &accept, const exchange &asked, const clear_key &key) {
    session_key session{.station = asked.station, .bssid = asked.bssid, .pmk = {}, .lifetime = session_timeout(accept)};
    if (key.key().size() < session.pmk.size()) {
        return;
    }
    std::ranges::copy(key.key().first(session.pmk.size()), session.pmk.begin());
    on_session_key(session);
    OPENSSL_cleanse(session.pmk.data(), session.pmk.size());
}

}  // namespace radiod::radius
