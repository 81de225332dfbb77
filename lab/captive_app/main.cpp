// The lab's captive-portal application: shows what the daemon tells it.
#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <iostream>

#include "common/command_line.h"
#include "common/paths.h"
#include "lab/captive_app/captive_message.h"
#include "lab/endpoint_loop.h"

namespace {

void run(bool json) {
    std::signal(SIGPIPE, SIG_IGN);
    kx::ipc_socket endpoint = kx::ipc_socket::open(kx::endpoint_captive_app);
    lab::serve_endpoint(endpoint, [json](const kx::ipc_message &message) {
        std::cout << (json ? captive::to_json(message) : captive::to_text(message)) << std::endl;
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
        CLI::App app("Receives and shows the daemon's messages to the captive portal, at $KX_ROOT/kx/ipc/captive_app.",
                     "captive_app");
        app.set_version_flag("--version", "captive_app " CLIENT_MGR_VERSION);
        app.add_flag("--json", json, "Print one JSON object per message");
        if (const auto status = kx::parse_command_line(app, argc, argv)) {
            return *status;
        }
        run(json);
        return 0;
    } catch (const std::exception &error) {
        std::cerr << "captive_app: " << error.what() << '\n';
        return 1;
    }
}
