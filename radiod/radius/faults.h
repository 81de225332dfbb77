// What goes wrong with RADIUS packets, by reason.
#ifndef RADIOD_RADIUS_FAULTS_H
#define RADIOD_RADIUS_FAULTS_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "common/losses.h"

namespace radiod::radius {

// A request comes from hostapd, an answer from a server.
enum class fault : std::uint8_t {
    request_foreign,  // not from this machine
    request_malformed,
    request_unsigned,  // no Message-Authenticator
    request_wrong_secret,
    request_unknown,  // neither a MAC question nor EAP of a station at a VAP
    request_too_many,
    answer_malformed,
    answer_unsigned,
    answer_wrong_secret,
    answer_unexpected,
    server_silent,
    servers_all_silent,
    not_sent,
    question_unknown,  // answered twice, or too late
};
inline constexpr std::size_t fault_count = static_cast<std::size_t>(fault::question_unknown) + 1;

struct radius_counters {
    std::uint64_t mac_questions = 0, allowed = 0, denied = 0;
    std::uint64_t eap_requests = 0, eap_answers = 0, session_keys = 0;
    std::uint64_t repeated_requests = 0;  // of both kinds
    std::array<std::uint64_t, fault_count> faults{};

    std::uint64_t of(fault reason) const { return faults[static_cast<std::size_t>(reason)]; }
};

// In the order of the numbers of `fault`.
inline constexpr std::array<kx::losses::reason, fault_count> fault_reasons{{
    {"radius_request_foreign", "RADIUS requests dropped: from another machine"},
    {"radius_request_malformed", "RADIUS requests dropped: malformed"},
    {"radius_request_unsigned", "RADIUS requests dropped: no Message-Authenticator"},
    {"radius_request_wrong_secret", "RADIUS requests dropped: hostapd's shared secret differs"},
    {"radius_request_unknown", "RADIUS requests dropped: neither a MAC question nor EAP of a station at a VAP"},
    {"radius_request_too_many", "RADIUS requests dropped: too many wait for a server"},
    {"radius_answer_malformed", "RADIUS answers dropped: malformed"},
    {"radius_answer_unsigned", "RADIUS answers dropped: no Message-Authenticator"},
    {"radius_answer_wrong_secret", "RADIUS answers dropped: the server's shared secret differs"},
    {"radius_answer_unexpected", "RADIUS answers dropped: no request waits for them"},
    {"radius_server_silent", "times a RADIUS server did not answer; the others are asked first for a while"},
    {"radius_servers_all_silent", "RADIUS requests given up: no server answers"},
    {"radius_not_sent", "RADIUS packets that could not be sent"},
    {"radius_question_unknown", "verdicts for MAC questions that do not wait"},
}};

}  // namespace radiod::radius

#endif
