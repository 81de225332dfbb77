#include "lab/fleet/link.h"

#include <utility>

#include "wire/apcomm_channel.h"

namespace fleet {

link::link(event_base *base, std::shared_ptr<SSL_CTX> tls, controller_address controller, callbacks handlers)
    : base_(base),
      tls_(std::move(tls)),
      controller_(std::move(controller)),
      handlers_(std::move(handlers)),
      retry_(base, -1, 0, [this] { connect(); }) {}

void link::start(std::chrono::milliseconds wait) {
    tunnel_.reset();
    note_down();
    retry_.start(wait);
}

bool link::send(std::span<const std::uint8_t> message) {
    return up_ && tunnel_->send(kx::apcomm_destination_client_mgr, message);
}

void link::connect() {
    tunnel_ =
        kx::tunnel_connection::connect(base_, tls_.get(), controller_.host, controller_.port,
                                       {.on_up = [this] { came_up(); },
                                        .on_message =
                                            [this](std::uint32_t destination, std::span<const std::uint8_t> message) {
                                                if (destination == kx::apcomm_destination_client_mgr) {
                                                    handlers_.on_message(message);
                                                }
                                            },
                                        .on_down = [this](const std::string &reason) { went_down(reason); },
                                        .on_drained = nullptr});
}

void link::came_up() {
    up_ = true;
    up_since_ = std::chrono::steady_clock::now();
    handlers_.on_up();
}

void link::note_down() {
    if (std::exchange(up_, false)) {
        handlers_.on_down();
    }
}

void link::went_down(const std::string &reason) {
    tunnel_.reset();
    if (up_ && std::chrono::steady_clock::now() - up_since_ >= apd::backoff::last) {
        backoff_.reset();
    }
    note_down();
    handlers_.on_failure(reason);
    retry_.start(backoff_.next());
}

}  // namespace fleet
