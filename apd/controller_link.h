// The access point's tunnel to its controller. A lost tunnel is set up again.
#ifndef APD_CONTROLLER_LINK_H
#define APD_CONTROLLER_LINK_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "apd/backoff.h"
#include "apd/losses.h"
#include "common/ap_config.h"
#include "common/events.h"
#include "tunnel/tunnel.h"

namespace apd {

class controller_link {
public:
    struct callbacks {
        std::function<void()> on_up;
        std::function<void()> on_down;  // only after on_up
        std::function<void(std::uint32_t destination, std::span<const std::uint8_t> message)> on_message;
        std::function<void()> on_drained;  // after send() returned `full`: there is room again
        std::function<void()> on_stopped;  // after stop()
    };
    enum class outcome { sent, full, down };

    // `lost` outlives the link.
    controller_link(event_base *base, losses &lost, callbacks handlers);

    // Connects to `controller`, and again whenever the tunnel fails. Closes an existing tunnel. Connects at once unless
    // the last attempt to connect to the same controller has failed.
    void start(const kx::controller_config &controller);
    // Replaces the tunnel by a new one, with the certificates that the files have now. Messages that were sent go
    // through the old one. Meanwhile send() has no room, and on_down is called only when the new one does not come up.
    // Connects at once when there is no tunnel.
    void renew();
    // Closes the tunnel until the next start(). `reason` is for the log.
    void end(const std::string &reason);
    // Sends what is queued and closes the tunnel for good; on_stopped follows.
    void stop();
    bool is_started() const { return started_; }

    outcome send(std::uint32_t destination, std::span<const std::uint8_t> message);
    // Like tunnel_connection::set_reading, for this tunnel and later ones.
    void set_reading(bool on);
    bool is_up() const { return up_; }
    std::uint32_t controller_ip() const { return up_ ? controller_ip_ : 0; }
    // The controller's name in its certificate; empty without a tunnel.
    std::string controller_name() const { return up_ && tunnel_ != nullptr ? tunnel_->peer_name() : ""; }
    std::chrono::seconds up_for() const;
    std::size_t queued() const { return tunnel_ == nullptr ? 0 : tunnel_->queued(); }  // bytes
    // Attempts to connect since the start, by their result.
    std::uint64_t connected() const { return connected_; }
    std::uint64_t not_connected() const { return not_connected_; }

private:
    enum class renewal : std::uint8_t { none, closing, connecting };

    void connect();
    void tunnel_up();
    void tunnel_down(const std::string &reason);

    event_base *base_;
    losses &losses_;
    callbacks handlers_;
    kx::controller_config controller_;
    std::unique_ptr<kx::tunnel_connection> tunnel_;
    bool started_ = false;
    bool up_ = false;
    renewal renewal_ = renewal::none;  // up_ stays true meanwhile
    std::uint32_t controller_ip_ = 0;
    bool failed_ = false;  // the last attempt to connect
    std::chrono::steady_clock::time_point up_since_;
    bool attempt_ = false;  // to connect, without a result yet
    std::uint64_t connected_ = 0, not_connected_ = 0;
    bool reading_ = true;
    bool stopping_ = false;
    backoff backoff_;
    kx::watch retry_;
};

}  // namespace apd

#endif
