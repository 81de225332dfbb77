#include "apd/controller_link.h"

#include <utility>

#include "apd/log.h"

namespace apd {

controller_link::controller_link(event_base *base, losses &lost, callbacks handlers)
    : base_(base), losses_(lost), handlers_(std::move(handlers)), retry_(base, -1, 0, [this] { connect(); }) {}

void controller_link::start(const kx::controller_config &controller) {
    if (stopping_) {
        return;
    }
    started_ = true;
    if (controller != controller_) {
        controller_ = controller;
        failed_ = false;
        backoff_.reset();
    }
    if (tunnel_ != nullptr) {
        tunnel_->close();  // tunnel_down() then starts the new one
        return;
    }
    // A client manager that registers again and again does not make apd hurry to a controller that refuses it.
    retry_.start(failed_ ? backoff_.next() : std::chrono::milliseconds(0));
}

void controller_link::renew() {
    if (stopping_ || !started_) {
        return;
    }
    if (up_ && renewal_ == renewal::none) {
        renewal_ = renewal::closing;
    }
    backoff_.reset();
    if (tunnel_ != nullptr) {
        tunnel_->close();
        return;
    }
    retry_.start(std::chrono::milliseconds(0));
}

void controller_link::end(const std::string &reason) {
    started_ = false;
    renewal_ = renewal::none;
    retry_.stop();
    if (tunnel_ != nullptr) {
        tunnel_->close();
    }
    // The closing tunnel carries no more messages.
    if (std::exchange(up_, false)) {
        log_line("tunnel down: " + reason);
        handlers_.on_down();
    }
}

void controller_link::stop() {
    stopping_ = true;
    retry_.stop();
    if (tunnel_ != nullptr) {
        tunnel_->close();
        return;
    }
    handlers_.on_stopped();
}

// Reads the certificates anew for each attempt, so that new ones are used without a restart.
void controller_link::connect() {
    attempt_ = true;
    try {
        auto tls = kx::make_tls_context(controller_.ca, controller_.certificate, controller_.key);
        tunnel_ = kx::tunnel_connection::connect(
            base_, tls.get(), controller_.address, controller_.port,
            {[this] { tunnel_up(); },
             [this](std::uint32_t destination, std::span<const std::uint8_t> message) {
                 handlers_.on_message(destination, message);
             },
             [this](const std::string &reason) { tunnel_down(reason); }, [this] { handlers_.on_drained(); }});
        tunnel_->set_reading(reading_);
    } catch (const std::exception &error) {
        tunnel_down(error.what());
    }
}

std::chrono::seconds controller_link::up_for() const {
    using std::chrono::seconds;
    return up_ ? std::chrono::duration_cast<seconds>(std::chrono::steady_clock::now() - up_since_) : seconds(0);
}

void controller_link::tunnel_up() {
    connected_++;
    attempt_ = false;
    up_ = true;
    renewal_ = renewal::none;
    controller_ip_ = tunnel_->peer_ipv4();
    failed_ = false;
    up_since_ = std::chrono::steady_clock::now();
    log_line("tunnel up: controller " + tunnel_->peer_name() + " at " + controller_.address + " port " +
             std::to_string(controller_.port));
    handlers_.on_up();
}

void controller_link::tunnel_down(const std::string &reason) {
    losses_.add(loss_unsent, tunnel_ == nullptr ? 0 : tunnel_->unsent());
    tunnel_.reset();
    not_connected_ += std::exchange(attempt_, false) ? 1 : 0;
    if (renewal_ == renewal::closing && started_ && !stopping_) {
        renewal_ = renewal::connecting;
        retry_.start(std::chrono::milliseconds(0));
        return;
    }
    renewal_ = renewal::none;
    bool was_up = std::exchange(up_, false);
    if (was_up) {
        // A controller that closes each tunnel at once must not reset the backoff.
        if (std::chrono::steady_clock::now() - up_since_ >= backoff::last) {
            backoff_.reset();
        }
        log_line("tunnel down: " + reason);
        handlers_.on_down();
    }
    if (stopping_) {
        handlers_.on_stopped();
        return;
    }
    if (!started_) {
        return;
    }
    failed_ |= !was_up;
    auto wait = backoff_.next();
    retry_.start(wait);
    if (!was_up) {
        log_line("no tunnel: " + reason + "; next attempt in " + std::to_string(wait.count()) + " ms");
    }
}

controller_link::outcome controller_link::send(std::uint32_t destination, std::span<const std::uint8_t> message) {
    if (!up_) {
        return outcome::down;
    }
    if (renewal_ != renewal::none) {
        return outcome::full;
    }
    return tunnel_->send(destination, message) ? outcome::sent : outcome::full;
}

void controller_link::set_reading(bool on) {
    reading_ = on;
    if (tunnel_ != nullptr) {
        tunnel_->set_reading(on);
    }
}

}  // namespace apd
