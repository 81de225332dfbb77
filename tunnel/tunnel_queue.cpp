#include "tunnel/tunnel_queue.h"

#include <event2/buffer.h>

namespace kx {

tunnel_queue::tunnel_queue(evbuffer *output, std::size_t max)
    : output_(output), max_(max), waiting_(max + max / tunnel_header_size * packet_ring::overhead) {}

bool tunnel_queue::push(std::uint32_t destination, std::span<const std::uint8_t> message) {
    std::size_t size = tunnel_header_size + message.size();
    if (bytes() + size > max_) {
        return false;
    }
    if (!waiting_.empty() || output_bytes() >= output_low) {
        return waiting_.push(make_tunnel_header(destination, message.size()), message);
    }
    in_output_.count(output_bytes());
    put_tunnel_frame(output_, destination, message);
    in_output_.add(size);
    return true;
}

void tunnel_queue::push_keep_alive() { put_tunnel_frame(output_, tunnel_destination_own, {&tunnel_keep_alive, 1}); }

void tunnel_queue::refill() {
    while (!waiting_.empty() && output_bytes() < output_low) {
        in_output_.count(output_bytes());
        auto [first, second] = waiting_.front();
        evbuffer_add(output_, first.iov_base, first.iov_len);
        evbuffer_add(output_, second.iov_base, second.iov_len);
        in_output_.add(first.iov_len + second.iov_len);
        waiting_.pop();
    }
}

std::size_t tunnel_queue::count_messages() { return in_output_.count(output_bytes()) + waiting_.packets(); }

std::size_t tunnel_queue::output_bytes() const { return evbuffer_get_length(output_); }

}  // namespace kx
