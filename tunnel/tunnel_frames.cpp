#include "tunnel/tunnel_frames.h"

#include <event2/buffer.h>

#include <bit>

#include "wire/big_endian.h"

namespace kx {

namespace {

struct frame_header {
    be32 destination, length;
};
static_assert(sizeof(frame_header) == tunnel_header_size);

}  // namespace

frame_state take_tunnel_frame(evbuffer *input, tunnel_frame &frame, std::string &fault) {
    frame_header header{};
    if (evbuffer_copyout(input, &header, sizeof(header)) < static_cast<ev_ssize_t>(sizeof(header))) {
        return frame_state::partial;
    }
    frame.destination = header.destination;
    frame.length = header.length;
    if (frame.length > tunnel_message_max || (frame.is_keep_alive() && frame.length != 1)) {
        fault = "the peer sent a frame of " + std::to_string(frame.length) + " bytes to " +
                std::to_string(frame.destination);
        return frame_state::bad;
    }
    if (evbuffer_get_length(input) < sizeof(header) + frame.length) {
        return frame_state::partial;
    }
    evbuffer_drain(input, sizeof(header));
    evbuffer_remove(input, frame.buffer.data(), frame.length);
    if (frame.is_keep_alive() && frame.buffer[0] != tunnel_keep_alive) {
        fault = "the peer sent an unknown keep-alive";
        return frame_state::bad;
    }
    return frame_state::taken;
}

std::array<std::uint8_t, tunnel_header_size> make_tunnel_header(std::uint32_t destination, std::size_t length) {
    frame_header header{};
    header.destination = destination;
    header.length = static_cast<std::uint32_t>(length);
    return std::bit_cast<std::array<std::uint8_t, tunnel_header_size>>(header);
}

void put_tunnel_frame(evbuffer *output, std::uint32_t destination, std::span<const std::uint8_t> message) {
    auto header = make_tunnel_header(destination, message.size());
    evbuffer_add(output, header.data(), header.size());
    evbuffer_add(output, message.data(), message.size());
}

void frame_counter::add(std::size_t size) {
    sizes_.push_back(size);
    bytes_ += size;
}

std::size_t frame_counter::count(std::size_t waiting) {
    while (!sizes_.empty() && bytes_ - sizes_.front() >= waiting) {
        bytes_ -= sizes_.front();
        sizes_.pop_front();
    }
    return sizes_.size();
}

}  // namespace kx
