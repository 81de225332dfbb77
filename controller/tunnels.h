// The controller's end of the tunnels: listens and holds the tunnels that access points open.
//
// A tunnel belongs to the access point whose MAC address is in its certificate. An access point has one tunnel. When it
// opens a second one, the first is probed: if it is silent the second replaces it, otherwise the second is refused.
//
// Connections that have not shown a certificate are limited. At the limit the oldest one of the address that has most
// of them is closed for each new one. So that many access points that connect at the same time do not close each
// other's connections, they are accepted in batches: the next batch comes as handshakes end, or after 100 ms in which
// none does. Until then connections wait in the kernel. When a connection cannot be accepted, the listener pauses for a
// second.
#ifndef CONTROLLER_TUNNELS_H
#define CONTROLLER_TUNNELS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>

#include "common/event_ptr.h"
#include "common/mac_address.h"
#include "tunnel/certificate_life.h"
#include "tunnel/tunnel.h"

namespace controller {

using kx::mac_address;
using tunnel_id = std::uint64_t;

// The other end of a tunnel.
struct peer {
    std::string name;        // common name of its certificate
    mac_address mac{};       // in its certificate; zero when it has none
    std::string address;     // "127.0.0.1:49152"
    std::uint32_t ipv4 = 0;  // as a number; 0 when it is not on IPv4
    std::optional<std::chrono::system_clock::time_point> certificate_end;
    std::string fingerprint = {};  // of its certificate
};

// A message that has come through a tunnel, or that was queued for one.
struct passage {
    const peer &other;
    bool to_controller;
    std::uint32_t destination;  // of its frame: the client manager's, or the tunnel itself
    std::span<const std::uint8_t> message;
};

class tunnels {
public:
    struct losses {
        std::uint64_t messages_unsent = 0;  // the tunnel was full or ended before
        std::uint64_t frames_ignored = 0;   // for another destination
    };

    struct callbacks {
        std::function<void(tunnel_id, const peer &)> on_up;
        std::function<void(tunnel_id, std::span<const std::uint8_t> message)>
            on_message;  // to the client manager's controller
        // One of tunnel/roaming_frames.h.
        std::function<void(tunnel_id, std::span<const std::uint8_t> frame)> on_roaming_frame;
        std::function<void(tunnel_id, const std::string &reason)> on_down;        // once for each on_up
        std::function<void(const peer &, const std::string &reason)> on_refused;  // it never came up
        std::function<void(const std::string &reason)> on_accept_error;
        std::function<void(const peer &)> on_displaced;  // it had not come up and made room for a newer connection
        std::function<void(const passage &)> on_passage = nullptr;
        // What was lost with an access point. Null for none.
        std::function<void(const mac_address &, const losses &)> on_lost = nullptr;
        // Why an access point with an accepted certificate is not served all the same; empty when it is. Null for all.
        std::function<std::string(const peer &)> refusal = nullptr;
    };

    // Listens on `address`:`port`; port 0 is any free port. `probe` is the time in which the tunnel of an access point
    // has to be heard when the access point opens a second one; shorter than the set-up of a tunnel and longer than the
    // time between two keep-alives. Throws std::runtime_error.
    tunnels(event_base *base, std::shared_ptr<SSL_CTX> tls, const std::string &address, std::uint16_t port,
            callbacks handlers, std::chrono::milliseconds probe = std::chrono::seconds(6));
    ~tunnels();
    tunnels(const tunnels &) = delete;
    tunnels &operator=(const tunnels &) = delete;

    std::uint16_t port() const { return port_; }

    // False when the tunnel is not up or its queue is full.
    bool send(tunnel_id to, std::span<const std::uint8_t> message);
    bool send_roaming_frame(tunnel_id to, std::span<const std::uint8_t> frame);
    // Bytes that wait to be sent; 0 when the tunnel is not up.
    std::size_t queued(tunnel_id to) const;
    // Of the controller itself.
    std::optional<kx::wall_time> certificate_end() const { return kx::end_of_own(tls_.get()); }
    std::optional<kx::wall_time> authority_end() const { return kx::end_of_authority(tls_.get()); }
    const losses &lost() const { return lost_; }
    // Ends a tunnel and sends the other end the reason. Calls on_down with `reason`.
    void close(tunnel_id which, const std::string &reason);
    // Uses other certificates from now on, and closes the tunnels whose certificate they do not accept.
    void use(std::shared_ptr<SSL_CTX> tls);
    // Why an access point with this certificate, PEM, would not be accepted; empty when it would.
    std::string find_fault(const std::string &certificate) const;
    // Closes the tunnels for which there is a refusal now.
    void recheck();

private:
    struct probing {
        tunnels *self;
        tunnel_id candidate;
        std::chrono::steady_clock::time_point since;
        kx::event_ptr timer;
    };
    struct tunnel {
        peer other;
        std::string host;  // the address of `other` without its port
        bool up = false;
        std::shared_ptr<SSL_CTX> tls;    // that accepted its certificate
        std::unique_ptr<probing> probe;  // while the access point's other tunnel is probed
        std::unique_ptr<kx::tunnel_connection> connection;
    };

    static void on_accept_error(evconnlistener *, void *self);
    static void on_pause_end(evutil_socket_t, short, void *self);
    void pause(const timeval &time);
    void handshake_ended(tunnel_id which);
    std::string find_late_refusal(const tunnel &of) const;
    void accept(int fd, const std::string &host, const std::string &port);
    void make_room();
    void displace(tunnel_id which);
    void handshake_done(tunnel_id which);
    void probe(tunnel_id holder, tunnel_id candidate);
    void probe_done(tunnel_id candidate);
    std::optional<tunnel_id> find(const mac_address &ap, bool waits, tunnel_id except) const;
    void came_up(tunnel_id which);
    bool send(tunnel_id to, std::uint32_t destination, std::span<const std::uint8_t> message);
    void received(tunnel_id from, std::uint32_t destination, std::span<const std::uint8_t> message);
    void went_down(tunnel_id which, const std::string &reason);
    void count(const mac_address &ap, const losses &more);

    event_base *base_;
    std::shared_ptr<SSL_CTX> tls_;
    callbacks handlers_;
    std::chrono::milliseconds probe_;
    kx::listener_ptr listener_;
    kx::event_ptr pause_;
    bool paused_ = false;
    std::size_t waiting_max_;  // connections that have not come up
    std::set<tunnel_id> waiting_;
    std::set<tunnel_id> batch_;  // those of the present batch
    std::uint16_t port_ = 0;
    losses lost_;
    tunnel_id last_ = 0;
    std::map<tunnel_id, tunnel> tunnels_;
    std::map<tunnel_id, std::unique_ptr<kx::tunnel_connection>> closing_;  // the reason is on its way
};

}  // namespace controller

#endif
