// The frames that one end of a tunnel has not sent yet.
#ifndef TUNNEL_TUNNEL_QUEUE_H
#define TUNNEL_TUNNEL_QUEUE_H

#include <cstddef>
#include <cstdint>
#include <span>

#include "tunnel/backlog.h"
#include "tunnel/tunnel_frames.h"

namespace kx {

// The first frames are in the output buffer of the connection, from which TLS sends; the others are in a backlog.
class tunnel_queue {
public:
    // Bytes. The output is refilled when it holds no more than the longest record of TLS (RFC 8446, 5.1).
    static constexpr std::size_t output_low = 16384;

    // Has room for `max` bytes of frames. `output` outlives the queue.
    tunnel_queue(evbuffer *output, std::size_t max);

    // False, and nothing is queued, when there is no room. `message` is no longer than tunnel_message_max.
    bool push(std::uint32_t destination, std::span<const std::uint8_t> message);
    // A keep-alive does not count as a message.
    void push_keep_alive();
    // To be called when the output has shrunk.
    void refill();
    // Of all frames, including the rest of a frame that is partly sent.
    std::size_t bytes() const { return output_bytes() + waiting_.bytes(); }
    std::size_t count_messages();

private:
    std::size_t output_bytes() const;

    evbuffer *output_;
    std::size_t max_;
    frame_counter in_output_;
    backlog waiting_;
};

}  // namespace kx

#endif
