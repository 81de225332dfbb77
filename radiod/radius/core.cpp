#include "radiod/radius/core.h"

#include <openssl/rand.h>

#include "radiod/radius/verification.h"

namespace radiod::radius {
namespace {

bytes as_bytes(const std::string &text) { return {reinterpret_cast<const std::uint8_t *>(text.data()), text.size()}; }

std::vector<bytes> secrets_of(const std::vector<upstream_server> &servers) {
    std::vector<bytes> secrets;
    secrets.reserve(servers.size());
    for (const upstream_server &each : servers) {
        secrets.push_back(as_bytes(each.secret));
    }
    return secrets;
}

// Questions of a process that has restarted must not be taken for those of the process before it, whose answers may
// still come.
std::uint32_t random_number() {
    std::uint32_t number = 0;
    RAND_bytes(reinterpret_cast<std::uint8_t *>(&number), sizeof number);
    return number;
}

}  // namespace

core::core(const radius_settings &settings)
    : secret_(as_bytes(settings.secret)),
      proxy_(secret_, secrets_of(settings.upstream)),
      last_question_(random_number()) {
    connect_proxy();
}

void core::connect_proxy() {
    proxy_.send = [this](std::size_t server, bytes text) { send_to_server(server, text); };
    proxy_.on_answer = [this](const request_key &from, datagram text) {
        counters_.eap_answers++;
        finish(from, std::move(text));
    };
    proxy_.on_given_up = [this](const request_key &from, fault reason) {
        requests_.remove(from);
        refuse(from.port, reason);
    };
    proxy_.on_session_key = [this](const session_key &key) {
        counters_.session_keys++;
        on_session_key(key);
    };
    proxy_.vlan_of = [this](const mac_address &station, const mac_address &bssid) {
        return vlan_of ? vlan_of(station, bssid) : std::nullopt;
    };
    proxy_.on_server_fault = [this](std::size_t server, fault reason) {
        count(reason);
        on_server_fault(server, reason);
    };
}

void core::refuse(std::uint16_t port, fault reason) {
    count(reason);
    on_request_fault(port, reason);
}

void core::receive_request(std::uint16_t port, bytes text, time_point now) {
    const auto request = packet::parse(text);
    if (!request) {
        return refuse(port, fault::request_malformed);
    }
    if (request->code() != code::access_request) {
        return refuse(port, fault::request_unknown);
    }
    switch (verify_request(*request, secret_)) {
        case verdict::no_message_authenticator:
            return refuse(port, fault::request_unsigned);
        case verdict::wrong_authenticator:
            return refuse(port, fault::request_wrong_secret);
        case verdict::good:
            break;
    }
    const request_key from{.port = port, .identifier = request->identifier()};
    const known_request *known = requests_.find(from);
    if (known == nullptr || known->request != request->its_authenticator()) {
        return take_request(from, *request, now);
    }
    counters_.repeated_requests++;
    if (!known->answer.empty()) {
        send_to_hostapd(port, known->answer);
    }
}

void core::take_request(const request_key &from, const packet &request, time_point now) {
    proxy_.forget(from);
    const auto station = read_station(request);
    if (station && is_mac_question(request, station->station)) {
        take_mac_question(from, request, *station, now);
    } else if (station && is_eap(request)) {
        counters_.eap_requests++;
        requests_.add(from, {.request = request.its_authenticator(), .since = now, .question = 0, .answer = {}});
        proxy_.forward(from, request, *station, now);
    } else {
        refuse(from.port, fault::request_unknown);
    }
}

void core::take_mac_question(const request_key &from, const packet &request, const station_at_vap &station,
                             time_point now) {
    counters_.mac_questions++;
    last_question_ = last_question_ == UINT32_MAX ? 1 : last_question_ + 1;
    requests_.add(from,
                  {.request = request.its_authenticator(), .since = now, .question = last_question_, .answer = {}});
    on_mac_question({.id = last_question_, .station = station.station, .bssid = station.bssid, .ssid = station.ssid});
}

bool core::answer(std::uint32_t question, bool allowed, std::uint16_t vlan) {
    const auto asked = requests_.find_question(question);
    if (asked == requests_.end()) {
        count(fault::question_unknown);
        return false;
    }
    (allowed ? counters_.allowed : counters_.denied)++;
    packet_builder builder(allowed ? code::access_accept : code::access_reject, asked->first.identifier);
    if (allowed && vlan != 0) {
        add_vlan(builder, vlan);
    }
    finish(asked->first, builder.sign_response(asked->second.request, secret_).value());
    return true;
}

void core::finish(const request_key &from, datagram text) {
    known_request *request = requests_.find(from);
    if (request != nullptr) {
        request->answer = std::move(text);
        send_to_hostapd(from.port, request->answer);
    }
}

}  // namespace radiod::radius
