#include "tests/unit/radius_rig.h"

#include <algorithm>

#include "radiod/radius/digests.h"

namespace radiod::radius {

using radius_samples::as_bytes;

// Not with hide_key, which is under test.
datagram key_attribute(std::uint8_t vendor_type, bytes key, const authenticator &request, const std::string &secret) {
    datagram clear{static_cast<std::uint8_t>(key.size())};
    clear.insert(clear.end(), key.begin(), key.end());
    clear.resize((clear.size() + 15) / 16 * 16);
    const datagram salt{0x80, vendor_type};
    datagram hidden(salt);
    md5_digest stream = md5({as_bytes(secret), request, salt});
    for (std::size_t at = 0; at < clear.size(); at++) {
        if (at > 0 && at % 16 == 0) {
            stream = md5({as_bytes(secret), bytes(hidden).last(16)});
        }
        hidden.push_back(clear[at] ^ stream[at % 16]);
    }
    datagram value{0, 0, 1, 0x37, vendor_type, static_cast<std::uint8_t>(2 + hidden.size())};
    value.insert(value.end(), hidden.begin(), hidden.end());
    return value;
}

datagram server_answer(const datagram &request, std::uint8_t answer_code, const std::string &secret,
                       const attributes &added) {
    const packet asked = packet::parse(request).value();
    packet_builder builder(answer_code, asked.identifier());
    for (const auto &[attribute_type, value] : added) {
        builder.add(attribute_type, value);
    }
    return builder.sign_response(asked.its_authenticator(), as_bytes(secret)).value();
}

core_rig::core_rig(std::size_t servers) : settings(rig_settings(servers)), core_(settings) {
    core_.send_to_hostapd = [this](std::uint16_t port, bytes text) {
        to_hostapd.emplace_back(port, datagram(text.begin(), text.end()));
    };
    core_.send_to_server = [this](std::size_t server, bytes text) {
        to_servers.push_back({server, datagram(text.begin(), text.end())});
    };
    core_.on_mac_question = [this](const mac_question &question) { questions.push_back(question); };
    core_.on_session_key = [this](const session_key &key) { keys.push_back(key); };
    core_.on_request_fault = [](std::uint16_t, fault) {};
    core_.on_server_fault = [this](std::size_t server, fault reason) { server_faults.emplace_back(server, reason); };
}

void core_rig::answer_last(std::uint8_t answer_code, const attributes &added) {
    const auto [server, text] = to_servers.back();
    core_.receive_answer(server, server_answer(text, answer_code, server_secret(server), added), now);
}

void core_rig::pass(std::chrono::milliseconds time) {
    const time_point end = now + time;
    while (core_.deadline() && *core_.deadline() <= end) {
        now = *core_.deadline();
        core_.handle_deadline(now);
    }
    now = end;
}

std::vector<std::size_t> core_rig::asked() const {
    std::vector<std::size_t> servers;
    for (const to_server &each : to_servers) {
        servers.push_back(each.server);
    }
    return servers;
}

}  // namespace radiod::radius
