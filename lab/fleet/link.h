// An access point's tunnel to the controller. A lost tunnel is set up again after apd's waits.
#ifndef LAB_FLEET_LINK_H
#define LAB_FLEET_LINK_H

#include <openssl/ssl.h>

#include <chrono>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "apd/backoff.h"
#include "common/events.h"
#include "tunnel/tunnel.h"

namespace fleet {

struct controller_address {
    std::string host;
    std::uint16_t port = 0;
};

class link {
public:
    struct callbacks {
        std::function<void()> on_up;
        std::function<void()> on_down;  // only after on_up
        std::function<void(std::span<const std::uint8_t> message)> on_message;
        std::function<void(const std::string &reason)> on_failure;  // no tunnel came up, or it was lost
    };

    link(event_base *base, std::shared_ptr<SSL_CTX> tls, controller_address controller, callbacks handlers);

    // Closes the tunnel, if there is one, and connects after `wait`.
    void start(std::chrono::milliseconds wait = {});
    bool is_up() const { return up_; }
    // False when there is no tunnel or its queue is full.
    bool send(std::span<const std::uint8_t> message);

private:
    void connect();
    void came_up();
    void went_down(const std::string &reason);
    void note_down();

    event_base *base_;
    std::shared_ptr<SSL_CTX> tls_;
    controller_address controller_;
    callbacks handlers_;
    std::unique_ptr<kx::tunnel_connection> tunnel_;
    bool up_ = false;
    std::chrono::steady_clock::time_point up_since_;
    apd::backoff backoff_;
    kx::watch retry_;
};

}  // namespace fleet

#endif
