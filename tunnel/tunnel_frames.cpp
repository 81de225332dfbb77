#include "tunnel/tunnel_frames.h"

#include <event2/buffer.h>

#include <algorithm>
#include <bit>

#include "tunnel/roaming_frames.h"
#include "wire/big_endian.h"

namespace kx {

namespace {

struct frame_header {
    be32 destination, length;
};
static_assert(sizeof(frame_header) == tunnel_header_size);

bool may_be_own(std::size_t length) { return length >= 1 && length <= 1 + tunnel_reason_max; }

std::string printable(std::string text) {
    text.resize(std::min(text.size(), tunnel_reason_max));
    std::ranges::replace_if(
        text, [](char each) { return each < ' ' || each > '~'; }, '?');
    return text;
}

}  // namespace

frame_state take_tunnel_frame(evbuffer *input, tunnel_frame &frame, std::string &fault) {
    frame_header header{};
    if (evbuffer_copyout(input, &header, sizeof(header)) < static_cast<ev_ssize_t>(sizeof(header))) {
        return frame_state::partial;
    }
    frame.destination = header.destination;
    frame.length = header.length;
    if (frame.length > tunnel_message_max || (frame.is_own() && !may_be_own(frame.length))) {
        fault = "the peer sent a frame of " + std::to_string(frame.length) + " bytes to " +
                std::to_string(frame.destination);
        return frame_state::bad;
    }
    if (evbuffer_get_length(input) < sizeof(header) + frame.length) {
        return frame_state::partial;
    }
    evbuffer_drain(input, sizeof(header));
    evbuffer_remove(input, frame.buffer.data(), frame.length);
    if (frame.is_own() && !frame.is_keep_alive() && !frame.is_end() && !is_roaming_frame(frame.message())) {
        fault = "the peer sent an unknown frame of the tunnel itself";
        return frame_state::bad;
    }
    return frame_state::taken;
}

std::string make_tunnel_end(const std::string &reason) { return static_cast<char>(tunnel_end) + printable(reason); }

std::string read_tunnel_end(std::span<const std::uint8_t> message) {
    return printable({message.begin() + 1, message.end()});
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
