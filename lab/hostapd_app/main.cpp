// The lab's hostapd: takes the PMKs that the daemon fetched, and installs them at the radio.
#include <poll.h>

#include <CLI/CLI.hpp>
#include <chrono>
#include <csignal>
#include <exception>
#include <iostream>
#include <stdexcept>

#include "common/command_line.h"
#include "common/paths.h"
#include "lab/endpoint_loop.h"
#include "lab/hostapd_app/hostapd_command.h"
#include "lab/radio/radio_control.h"

namespace {

using namespace std::chrono_literals;

constexpr auto patience = 1s;
constexpr auto pause_between_tries = 5ms;
constexpr std::uint32_t notification = 1;

hostapd::outcome install(kx::ipc_socket &from, const hostapd::command &what) {
    const auto give_up = std::chrono::steady_clock::now() + patience;
    do {
        switch (from.send(radio::endpoint_radio, radio::RADIO_MSG_INSTALL_PMK, notification, what.pmk_message)) {
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
    hostapd::command what;
    try {
        what = hostapd::decode(message);
    } catch (const std::runtime_error &error) {
        return json ? hostapd::error_to_json(error.what()) : std::string("malformed command: ") + error.what();
    }
    const hostapd::outcome became = install(endpoint, what);
    return json ? to_json(what, became) : to_text(what, became);
}

void run(bool json) {
    std::signal(SIGPIPE, SIG_IGN);
    kx::ipc_socket endpoint = kx::ipc_socket::open(kx::endpoint_hostapd);
    lab::serve_endpoint(endpoint, [&](const kx::ipc_message &message) {
        std::cout << handle(endpoint, message, json) << std::endl;
        return static_cast<bool>(std::cout);
    });
    if (!std::cout) {
        throw std::runtime_error("standard output takes no more lines");
    }
}

}  // namespace

int main(int argc, char **argv) {
    try {
        bool json = false;
        CLI::App app(
            "Takes the daemon's commands to hostapd, at $KX_ROOT/kx/ipc/hostapd, and installs their PMKs at the "
            "radio.",
            "hostapd_app");
        app.set_version_flag("--version", "hostapd_app " CLIENT_MGR_VERSION);
        app.add_flag("--json", json, "Print one JSON object per command");
        if (const auto status = kx::parse_command_line(app, argc, argv)) {
            return *status;
        }
        run(json);
        return 0;
    } catch (const std::exception &error) {
        std::cerr << "hostapd_app: " << error.what() << '\n';
        return 1;
    }
}
