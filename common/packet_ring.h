// A queue of packets in a buffer of fixed size. It erases packets that leave it, because they may hold keys.
#ifndef COMMON_PACKET_RING_H
#define COMMON_PACKET_RING_H

#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include "wire/big_endian.h"

namespace kx {

class packet_ring {
public:
    static constexpr std::size_t overhead = sizeof(be32);  // bytes of each packet's length

    // `room` belongs to the caller and outlives the queue.
    constexpr explicit packet_ring(std::span<std::uint8_t> room) : room_(room) {}

    // Appends the packet whose bytes are `head` and `body`. False, and nothing is queued, when it does not fit.
    bool push(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body) {
        std::size_t size = head.size() + body.size();
        if (overhead + size > room_.size() - used_) {
            return false;
        }
        be32 length{};
        length = static_cast<std::uint32_t>(size);
        append(length.bytes);
        append(head);
        append(body);
        packets_++;
        return true;
    }

    std::size_t packets() const { return packets_; }
    // Of all packets together, without overhead.
    std::size_t bytes() const { return used_ - packets_ * overhead; }

    // The bytes of the oldest packet in two pieces. The queue is not empty.
    std::array<iovec, 2> front() {
        std::size_t at = (start_ + overhead) % room_.size();
        std::size_t size = front_size();
        std::size_t first = std::min(size, room_.size() - at);
        return {{{&room_[at], first}, {room_.data(), size - first}}};
    }

    void pop() {
        drop(overhead + front_size());
        packets_--;
    }

    void clear() {
        drop(used_);
        packets_ = 0;
    }

private:
    void append(std::span<const std::uint8_t> piece) {
        std::size_t at = (start_ + used_) % room_.size();
        std::size_t first = std::min(piece.size(), room_.size() - at);
        std::copy_n(piece.begin(), first, room_.begin() + static_cast<std::ptrdiff_t>(at));
        std::copy(piece.begin() + static_cast<std::ptrdiff_t>(first), piece.end(), room_.begin());
        used_ += piece.size();
    }

    void drop(std::size_t size) {
        std::size_t first = std::min(size, room_.size() - start_);
        explicit_bzero(&room_[start_], first);
        explicit_bzero(room_.data(), size - first);
        start_ = (start_ + size) % room_.size();
        used_ -= size;
    }

    std::size_t front_size() const {
        be32 length{};
        for (std::size_t i = 0; i < sizeof(length); i++) {
            length.bytes[i] = room_[(start_ + i) % room_.size()];
        }
        return length;
    }

    std::span<std::uint8_t> room_;
    std::size_t start_ = 0, used_ = 0, packets_ = 0;
};

}  // namespace kx

#endif
