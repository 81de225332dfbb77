// The daemon's command to hostapd (wire/hostapd_endpoint.h): the PMK of one client.
#ifndef RADIO_SERVICE_HOSTAPD_COMMAND_H
#define RADIO_SERVICE_HOSTAPD_COMMAND_H

#include <array>
#include <cstdint>

#include "common/local_ipc.h"
#include "radio_service/notifications.h"

namespace kx {

// The answer to a fetch.
struct pmk_answer {
    mac_address bssid{};           // of the VAP that the client is on
    mac_address previous_bssid{};  // zero when the client came from nowhere
    mac_address client{};
    std::array<std::uint8_t, pmk_size> pmk{};

    pmk_answer() = default;
    pmk_answer(const pmk_answer &) = default;
    pmk_answer &operator=(const pmk_answer &) = default;
    ~pmk_answer();  // erases the PMK
};

// Throws std::runtime_error with the first fault of a malformed message.
pmk_answer parse_hostapd_command(const ipc_message &message);

}  // namespace kx

#endif
