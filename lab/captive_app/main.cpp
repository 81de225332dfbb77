// captive_app: the lab's captive-portal application. Prints the daemon's messages.
#include "common/paths.h"
#include "lab/captive_app/captive_message.h"
#include "lab/endpoint_program.h"

int main(int argc, char **argv) {
    return lab::run(
        {.name = "captive_app",
         .description = "Receives the daemon's messages to the captive portal at $KX_ROOT/kx/ipc/captive_app "
                        "and prints them.",
         .endpoint = kx::endpoint_captive_app,
         .handle = [](kx::ipc_socket &, const kx::ipc_message &message,
                      bool json) { return json ? captive::to_json(message) : captive::to_text(message); }},
        argc, argv);
}
