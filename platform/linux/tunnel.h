// The tunnel between an access point and its controller: TLS 1.3 over TCP with certificates on both sides. Both ends
// send frames, all words big-endian:
//
//   offset  width  field
//   0       4      destination: 106 for the client manager's messages, 0 for the tunnel's own
//   4       4      length of the message, at most 16384
//   8       length message
//
// A frame of destination 0 is a keep-alive: its message is one byte, 1 (ping) or 2 (pong). Each end sends a ping when
// it has heard nothing for 5 s and gives the peer up when it has heard nothing for 15 s.
#ifndef KX_LINUX_TUNNEL_H
#define KX_LINUX_TUNNEL_H

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>

struct event_base;
struct bufferevent;
typedef struct ssl_ctx_st SSL_CTX;

namespace kx {

inline constexpr std::size_t tunnel_header_size = 8;
inline constexpr std::size_t tunnel_message_max = 16384;
inline constexpr std::uint32_t tunnel_destination_own = 0;
inline constexpr int tunnel_ping_after_s = 5;
inline constexpr int tunnel_dead_after_s = 15;
inline constexpr std::size_t tunnel_queue_max = std::size_t{1} << 20;  // bytes waiting to be sent

// A context that speaks TLS 1.3 alone, shows `certificate` and accepts only peers whose certificate `ca` signed.
// Throws std::runtime_error that names the file and OpenSSL's reason.
std::shared_ptr<SSL_CTX> make_tls_context(const std::string &ca, const std::string &certificate,
                                          const std::string &key);

// One end of one established or connecting tunnel, on the event loop of `base`. No callback runs inside send().
class tunnel_connection {
public:
    struct callbacks {
        std::function<void()> on_up;                              // TLS is done, the peer's certificate is good
        std::function<void(std::uint32_t destination, std::span<const std::uint8_t> message)> on_message;
        std::function<void(const std::string &reason)> on_down;  // once; the object may be destroyed inside
        std::function<void()> on_drained;                         // after a refused send(): there is room again
    };

    // Accepting end: takes over the connected socket `fd`.
    static std::unique_ptr<tunnel_connection> accept(event_base *base, SSL_CTX *tls, int fd, callbacks handlers);
    // Connecting end; a name is resolved without blocking. The peer's certificate must be valid for `host`.
    static std::unique_ptr<tunnel_connection> connect(event_base *base, SSL_CTX *tls, const std::string &host,
                                                      std::uint16_t port, callbacks handlers);
    virtual ~tunnel_connection() = default;

    // Queues one message. False, and nothing is queued, when the tunnel is not up or tunnel_queue_max is reached.
    virtual bool send(std::uint32_t destination, std::span<const std::uint8_t> message) = 0;
    // Stops or resumes the reading of frames, for a receiver that cannot take more; keep-alives go on being answered.
    virtual void set_reading(bool on) = 0;
    virtual std::string peer_name() const = 0;       // common name of the peer's certificate
    virtual std::uint32_t peer_ipv4() const = 0;     // as a number, 0 when the peer is not on IPv4
};

}  // namespace kx

#endif
