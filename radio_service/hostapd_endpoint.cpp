#include "radio_service/hostapd_endpoint.h"

#include <strings.h>

#include <optional>
#include <stdexcept>

#include "common/paths.h"

namespace kx {
namespace {

// A flood of messages must not keep the loop from its other events.
constexpr int messages_per_wakeup = 32;

}  // namespace

hostapd_endpoint::hostapd_endpoint(event_base *base)
    : socket_(ipc_socket::open(endpoint_hostapd)),
      readable_(base, socket_.fd(), EV_READ | EV_PERSIST, [this] { receive_waiting(); }) {
    readable_.start();
}

void hostapd_endpoint::restore() {
    if (socket_.restore()) {
        readable_.stop();
        readable_.start();
    }
}

void hostapd_endpoint::receive_waiting() {
    for (int received = 0; received < messages_per_wakeup; received++) {
        std::optional<ipc_message> message = socket_.receive();
        if (!message) {
            return;
        }
        try {
            on_pmk(parse_hostapd_command(*message));
        } catch (const std::runtime_error &fault) {
            on_malformed(fault.what());
        }
        explicit_bzero(message->payload.data(), message->payload.size());
    }
}

}  // namespace kx
