// hostapd_app: the lab's hostapd endpoint. Installs the PMKs of the daemon's commands at the radio.
#include <poll.h>

#include <chrono>
#include <cstddef>
#include <span>
#include <stdexcept>

#include "common/paths.h"
#include "lab/endpoint_program.h"
#include "lab/hostapd_app/pmk_report.h"
#include "lab/radio/radio_control.h"
#include "wire/local_messages.h"

namespace {

using namespace std::chrono_literals;

constexpr auto patience = 1s;
constexpr auto pause_between_tries = 5ms;

hostapd::outcome install(kx::ipc_socket &from, std::span<const std::uint8_t> pmk_message) {
    const auto give_up = std::chrono::steady_clock::now() + patience;
    do {
        switch (
            from.send(radio::endpoint_radio, radio::RADIO_MSG_INSTALL_PMK, kx::ipc_flag_notification, pmk_message)) {
            case kx::ipc_result::sent:
                return hostapd::outcome::installed;
            case kx::ipc_result::absent:
                return hostapd::outcome::no_radio;
            case kx::ipc_result::full:
                poll(nullptr, 0, pause_between_tries.count());
        }
    } while (std::chrono::steady_clock::now() < give_up);
    return hostapd::outcome::radio_busy;
}

std::string handle(kx::ipc_socket &endpoint, const kx::ipc_message &message, bool json) {
    kx::pmk_answer what;
    try {
        what = kx::parse_hostapd_command(message);
    } catch (const std::runtime_error &error) {
        return json ? hostapd::error_to_json(error.what()) : std::string("malformed command: ") + error.what();
    }
    const auto pmk_message =
        std::span(message.payload).subspan(offsetof(hostapd_command, info), sizeof(pmk_info_message));
    const hostapd::outcome result = install(endpoint, pmk_message);
    return json ? to_json(what, result) : to_text(what, result);
}

}  // namespace

int main(int argc, char **argv) {
    return lab::run(
        {.name = "hostapd_app",
         .description = "Receives the daemon's commands to hostapd at $KX_ROOT/kx/radio/hostapd and installs "
                        "their PMKs at the radio.",
         .endpoint = kx::endpoint_hostapd,
         .handle = handle},
        argc, argv);
}
