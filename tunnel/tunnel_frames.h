// Frames in the byte stream of the tunnel between an access point and its controller. Integers are big-endian:
//
//   offset  width   field
//   0       4       destination: 106 for messages of the client manager, 0 for the tunnel itself
//   4       4       length of the message, at most 16384
//   8       length  message
//
// A frame for destination 0 is a keep-alive, whose message is one byte of value 1, or it ends the tunnel: a byte of
// value 2 and the reason, at most 200 bytes of printable ASCII; or it is one of roaming_frames.h.
#ifndef TUNNEL_TUNNEL_FRAMES_H
#define TUNNEL_TUNNEL_FRAMES_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <span>
#include <string>

struct evbuffer;

namespace kx {

inline constexpr std::size_t tunnel_header_size = 8;
inline constexpr std::size_t tunnel_message_max = 16384;
inline constexpr std::uint32_t tunnel_destination_own = 0;
inline constexpr std::uint8_t tunnel_keep_alive = 1;
inline constexpr std::uint8_t tunnel_end = 2;
inline constexpr std::size_t tunnel_reason_max = 200;

struct tunnel_frame {
    std::uint32_t destination;
    std::size_t length;
    std::array<std::uint8_t, tunnel_message_max> buffer;

    // Of the tunnel itself.
    bool is_own() const { return destination == tunnel_destination_own; }
    bool is_keep_alive() const { return is_own() && length == 1 && buffer[0] == tunnel_keep_alive; }
    bool is_end() const { return is_own() && buffer[0] == tunnel_end; }
    std::span<const std::uint8_t> message() const { return {buffer.data(), length}; }
};

enum class frame_state : std::uint8_t {
    taken,
    partial,  // no whole frame is there yet
    bad,      // the bytes are not a frame; the stream is unusable from here on
};

// Moves the first frame of `input` to `frame`. After `bad`, `fault` describes the error.
frame_state take_tunnel_frame(evbuffer *input, tunnel_frame &frame, std::string &fault);

// The message of a frame that ends the tunnel. Bytes of `reason` that are not printable ASCII become '?', and the rest
// of a longer one is cut off.
std::string make_tunnel_end(const std::string &reason);
// The reason in such a message, with the same replacements.
std::string read_tunnel_end(std::span<const std::uint8_t> message);

// The header of a message of `length` bytes.
std::array<std::uint8_t, tunnel_header_size> make_tunnel_header(std::uint32_t destination, std::size_t length);

// Appends a frame to `output`. `message` is no longer than tunnel_message_max.
void put_tunnel_frame(evbuffer *output, std::uint32_t destination, std::span<const std::uint8_t> message);

// Counts the frames in a queue of bytes, so that those that were never sent can be reported.
class frame_counter {
public:
    // A frame of `size` bytes was appended to the queue.
    void add(std::size_t size);
    // The number of frames that are, whole or in part, in the last `waiting` bytes of the queue.
    std::size_t count(std::size_t waiting);

private:
    std::deque<std::size_t> sizes_;
    std::size_t bytes_ = 0;
};

}  // namespace kx

#endif
