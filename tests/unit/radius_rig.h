// hostapd and the servers in a test's hands, around the RADIUS service without its sockets.
#ifndef TESTS_UNIT_RADIUS_RIG_H
#define TESTS_UNIT_RADIUS_RIG_H

#include <string>
#include <vector>

#include "radiod/radius/core.h"
#include "radiod/radius/verification.h"
#include "tests/unit/radius_samples.h"

namespace radiod::radius {

inline const std::string hostapd_secret = "between hostapd and radiod";
inline constexpr mac_address rig_station{2, 0, 0, 0, 0, 10};
inline constexpr mac_address rig_bssid{2, 0, 0, 0, 16, 0};

inline std::string server_secret(std::size_t server) { return "of server " + std::to_string(server); }

inline radius_settings rig_settings(std::size_t servers) {
    radius_settings settings{.port = 0, .secret = hostapd_secret, .upstream = {}};
    for (std::size_t i = 0; i < servers; i++) {
        settings.upstream.push_back({.address = "127.0.0.1", .port = 1, .secret = server_secret(i)});
    }
    return settings;
}

// A request as hostapd sends it. Each has an authenticator of its own.
struct request_maker {
    std::uint8_t identifier = 1;
    std::string user = "somebody";
    std::string eap = "response";  // empty: no EAP
    std::string state{};           // empty: no State
    std::uint8_t forbidden = 0;    // the type of one attribute more, if it is not 0
    std::string secret = hostapd_secret;
    std::string station = "02-00-00-00-00-0A";

    datagram make() const {
        static std::uint16_t number = 0;
        number++;
        packet_builder builder(code::access_request, identifier);
        builder.add(type::user_name, radius_samples::as_bytes(user));
        builder.add(type::called_station_id, radius_samples::as_bytes("02-00-00-00-10-00:office"));
        builder.add(type::calling_station_id, radius_samples::as_bytes(station));
        if (!eap.empty()) {
            builder.add(type::eap_message, radius_samples::as_bytes(eap));
        }
        if (!state.empty()) {
            builder.add(type::state, radius_samples::as_bytes(state));
        }
        if (forbidden != 0) {
            builder.add(forbidden, authenticator{});
        }
        return builder
            .sign_request({static_cast<std::uint8_t>(number >> 8), static_cast<std::uint8_t>(number)},
                          radius_samples::as_bytes(secret))
            .value();
    }
};

inline datagram mac_request(std::uint8_t identifier) {
    return request_maker{.identifier = identifier, .user = "02000000000a", .eap = ""}.make();
}

inline datagram eap_request(std::uint8_t identifier, const std::string &state = "") {
    return request_maker{.identifier = identifier, .state = state}.make();
}

using attributes = std::vector<std::pair<std::uint8_t, datagram>>;

// The value of a Vendor-Specific attribute with one key of Microsoft's.
datagram key_attribute(std::uint8_t vendor_type, bytes key, const authenticator &request, const std::string &secret);

// The server's answer to `request`, a datagram that it received.
datagram server_answer(const datagram &request, std::uint8_t answer_code, const std::string &secret,
                       const attributes &added = {});

struct core_rig {
    explicit core_rig(std::size_t servers = 1);

    struct to_server {
        std::size_t server;
        datagram text;
    };

    void ask(const datagram &text, std::uint16_t port = 4000) { core_.receive_request(port, text, now); }
    void answer_last(std::uint8_t answer_code, const attributes &added = {});
    // Passes time, with every deadline handled when it is due.
    void pass(std::chrono::milliseconds time);
    std::uint64_t faults(fault reason) const { return core_.counters().of(reason); }
    // The servers asked so far, in order.
    std::vector<std::size_t> asked() const;

    radius_settings settings;
    core core_;
    time_point now{std::chrono::hours(1)};
    std::vector<std::pair<std::uint16_t, datagram>> to_hostapd;
    std::vector<to_server> to_servers;
    std::vector<mac_question> questions;
    std::vector<session_key> keys;
    std::vector<std::pair<std::size_t, fault>> server_faults;
};

}  // namespace radiod::radius

#endif
