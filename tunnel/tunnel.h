// The tunnel between an access point and its controller: TLS 1.3 over TCP with certificates on both sides. Both ends
// send frames (tunnel_frames.h). Each end sends a keep-alive when it has sent nothing for 5 s, and gives the peer up
// when it has heard nothing for 15 s. An end that has stopped reading goes on sending keep-alives, so its peer does not
// give it up, and does not judge the peer until it reads again.
//
// In TLS 1.3 the connecting end finishes its handshake before the accepting end has checked its certificate. The
// accepting end therefore sends a keep-alive as soon as it has, and for the connecting end the tunnel is up with the
// first frame it receives.
#ifndef TUNNEL_TUNNEL_H
#define TUNNEL_TUNNEL_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

#include "tunnel/tunnel_frames.h"

struct event_base;
typedef struct ssl_ctx_st SSL_CTX;

namespace kx {

struct tunnel_options {
    std::chrono::milliseconds ping_after{5'000};
    std::chrono::milliseconds dead_after{15'000};
    std::chrono::milliseconds setup{10'000};       // for name, TCP, TLS and the first frame together
    std::size_t queue_max = std::size_t{1} << 20;  // bytes of frames that wait in this process to be sent
};

// A context that speaks TLS 1.3 alone, shows `certificate` and accepts only peers whose certificate `ca` signed.
// Throws std::runtime_error that names the file and OpenSSL's reason.
std::shared_ptr<SSL_CTX> make_tls_context(const std::string &ca, const std::string &certificate,
                                          const std::string &key);

// One end of one established or connecting tunnel, on the event loop of `base`. Callbacks run from the loop only, never
// inside a call of this class, and may destroy the object. The process must ignore SIGPIPE.
class tunnel_connection {
public:
    struct callbacks {
        std::function<void()> on_up;  // once: TLS is done and both certificates are good
        // `message` is valid until the callback returns.
        std::function<void(std::uint32_t destination, std::span<const std::uint8_t> message)> on_message;
        // Once, when the connection failed or ended; `reason` also says how many queued messages were not sent. The
        // object does nothing any more.
        std::function<void(const std::string &reason)> on_down;
        std::function<void()> on_drained;  // after a refused send(): half of the queue is free again
    };

    // Accepting end: takes over the connected socket `fd`.
    static std::unique_ptr<tunnel_connection> accept(event_base *base, SSL_CTX *tls, int fd, callbacks handlers,
                                                     const tunnel_options &options = {});
    // Connecting end; a name is resolved without blocking, to IPv4 addresses, which are tried in turn. The peer's
    // certificate must be valid for `host`.
    static std::unique_ptr<tunnel_connection> connect(event_base *base, SSL_CTX *tls, const std::string &host,
                                                      std::uint16_t port, callbacks handlers,
                                                      const tunnel_options &options = {});
    virtual ~tunnel_connection() = default;

    // Queues one message. False, and nothing is queued, when the tunnel is not up, the message is longer than
    // tunnel_message_max, or the queue would exceed its maximum.
    virtual bool send(std::uint32_t destination, std::span<const std::uint8_t> message) = 0;
    // Stops or resumes on_message, for a receiver that cannot take more. While stopped, at most one TLS record is
    // buffered here and the peer finds its connection full; that the peer closed may be noticed, and is reported, only
    // after all that it sent has been taken.
    virtual void set_reading(bool on) = 0;
    // Refuses further messages, drops received ones, sends those that are queued and ends the connection; on_down
    // follows, within 2 s. Destruction without close() drops what is queued.
    virtual void close() = 0;

    virtual std::string peer_name() const = 0;    // common name of the peer's certificate; empty before on_up
    virtual std::uint32_t peer_ipv4() const = 0;  // as a number, 0 when the peer is not on IPv4
};

}  // namespace kx

#endif
