// The tunnel between an access point and its controller: TLS 1.3 over TCP with certificates on both sides. Both ends
// send frames (tunnel_frames.h). Each end sends a keep-alive when it has sent nothing for 5 s, and closes the
// connection when it has received nothing for 15 s. An end that has stopped reading still sends keep-alives, and
// applies the 15 s only once it reads again.
//
// In TLS 1.3 the connecting end finishes its handshake before the accepting end has checked its certificate. Therefore
// the accepting end sends a keep-alive right after its check, and the connecting end regards the tunnel as up when it
// receives the first frame.
#ifndef TUNNEL_TUNNEL_H
#define TUNNEL_TUNNEL_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "common/mac_address.h"
#include "tunnel/tunnel_frames.h"

struct event_base;
typedef struct ssl_ctx_st SSL_CTX;

namespace kx {

struct tunnel_options {
    std::chrono::milliseconds ping_after{5'000};
    std::chrono::milliseconds dead_after{15'000};
    std::chrono::milliseconds setup{10'000};       // name resolution, TCP, TLS and the first frame together
    std::size_t queue_max = std::size_t{1} << 20;  // bytes of frames not yet handed to the kernel
};

// Makes a context for TLS 1.3 alone that presents `certificate` and accepts only peers whose certificate `ca` signed.
// `revoked` is a list of revoked certificates of that authority; empty for none. The arguments are names of PEM files.
// Throws std::runtime_error that names the file and the reason, also when others may read or write the key.
std::shared_ptr<SSL_CTX> make_tls_context(const std::string &ca, const std::string &certificate, const std::string &key,
                                          const std::string &revoked = {});

// One end of a tunnel, connecting or connected. Callbacks run from the event loop only, never inside a call of this
// class, and may destroy the object. The process must ignore SIGPIPE.
class tunnel_connection {
public:
    struct callbacks {
        std::function<void()> on_up;  // once: both ends have accepted the certificates
        // A message for a peer, or for destination 0 one of roaming_frames.h. It is valid until the callback returns.
        std::function<void(std::uint32_t destination, std::span<const std::uint8_t> message)> on_message;
        // Once, when the connection has failed or ended. `reason` also gives the number of queued messages that were
        // not sent. The object makes no further callback.
        std::function<void(const std::string &reason)> on_down;
        std::function<void()> on_drained;  // after a refused send(): half of the queue is free
        // At the accepting end: the peer's certificate is accepted. The owner then calls admit(), close_because() or
        // destroys the object; until then the peer's messages wait. Without this callback every such peer is admitted.
        std::function<void()> on_handshake = nullptr;
    };

    // The accepting end. Owns the connected socket `fd` from now on.
    static std::unique_ptr<tunnel_connection> accept(event_base *base, SSL_CTX *tls, int fd, callbacks handlers,
                                                     const tunnel_options &options = {});
    // The connecting end. Resolves a name without blocking and tries its IPv4 addresses in turn. The peer's certificate
    // must be valid for `host`.
    static std::unique_ptr<tunnel_connection> connect(event_base *base, SSL_CTX *tls, const std::string &host,
                                                      std::uint16_t port, callbacks handlers,
                                                      const tunnel_options &options = {});
    virtual ~tunnel_connection() = default;

    // Queues a copy of the message. False, and nothing is queued, when the tunnel is not up, the message is longer than
    // tunnel_message_max, or the queue would exceed its maximum.
    virtual bool send(std::uint32_t destination, std::span<const std::uint8_t> message) = 0;
    // Stops or resumes on_message. While stopped, at most one TLS record is buffered here, and the peer's connection
    // fills up. The end of the connection may then be noticed, and is reported, only after all messages that the peer
    // sent have been delivered.
    virtual void set_reading(bool on) = 0;
    // Refuses further messages, drops received ones, sends the queued ones and closes the connection. on_down follows
    // within 2 s. Destruction without close() drops queued messages.
    virtual void close() = 0;
    // Like close(), and sends `reason` to the peer, whose on_down has it.
    virtual void close_because(const std::string &reason) = 0;
    // After on_handshake: on_up follows.
    virtual void admit() = 0;
    // Sends a keep-alive. A peer whose system was restarted answers with a reset, which ends the connection.
    virtual void probe() = 0;
    // Why `tls` would not accept the certificate of this peer, a client; empty when it would. After on_handshake only.
    virtual std::string recheck(SSL_CTX *tls) const = 0;
    // The SHA-256 of the peer's certificate, in hexadecimal digits. After on_handshake only.
    virtual std::string peer_fingerprint() const = 0;

    virtual std::size_t queued() const = 0;  // bytes of frames not yet handed to the kernel
    // Messages that were queued and never sent; after on_down.
    virtual std::size_t unsent() const = 0;
    virtual std::string peer_name() const = 0;  // common name in the peer's certificate; empty before on_up
    // The MAC address in the peer's certificate (subjectAltName, "URI:urn:mac:02-00-00-00-10-00"). None before
    // on_handshake, and when the certificate does not have exactly one.
    virtual std::optional<mac_address> peer_mac() const = 0;
    // When the peer's certificate ends; none before on_handshake.
    virtual std::optional<std::chrono::system_clock::time_point> peer_certificate_end() const = 0;
    virtual std::chrono::steady_clock::time_point last_heard() const = 0;  // when something was last received
    virtual std::uint32_t peer_ipv4() const = 0;  // as a number, 0 when the peer is not on IPv4
};

}  // namespace kx

#endif
