// A queue of packets in a fixed array of bytes. What leaves it leaves nothing behind: packets may hold keys.
#ifndef KX_LINUX_PACKET_RING_H
#define KX_LINUX_PACKET_RING_H

#include <sys/uio.h>

#include <algorithm>
#include <array>
#include <cstdint>
#include <cstring>
#include <span>

#include "client_mgr/wire.h"

namespace kx {

class packet_ring {
public:
    static constexpr std::size_t capacity =
        std::size_t{256} * 1024;  // four of them per packet are used up by its length

    // Appends the packet whose bytes are `head` and `body`. False, and nothing is queued, when it does not fit.
    bool push(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body) {
        std::size_t size = head.size() + body.size();
        if (sizeof(be32) + size > capacity - used_) {
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

    // The bytes of the oldest packet, which there must be, in two pieces.
    std::array<iovec, 2> front() {
        std::size_t at = (start_ + sizeof(be32)) % capacity;
        std::size_t size = front_size();
        std::size_t first = std::min(size, capacity - at);
        return {{{&bytes_[at], first}, {bytes_.data(), size - first}}};
    }

    void pop() {
        drop(sizeof(be32) + front_size());
        packets_--;
    }

    void clear() {
        drop(used_);
        packets_ = 0;
    }

private:
    void append(std::span<const std::uint8_t> piece) {
        std::size_t at = (start_ + used_) % capacity;
        std::size_t first = std::min(piece.size(), capacity - at);
        std::copy_n(piece.begin(), first, bytes_.begin() + static_cast<std::ptrdiff_t>(at));
        std::copy(piece.begin() + static_cast<std::ptrdiff_t>(first), piece.end(), bytes_.begin());
        used_ += piece.size();
    }

    void drop(std::size_t size) {
        std::size_t first = std::min(size, capacity - start_);
        explicit_bzero(&bytes_[start_], first);
        explicit_bzero(bytes_.data(), size - first);
        start_ = (start_ + size) % capacity;
        used_ -= size;
    }

    std::size_t front_size() const {
        be32 length{};
        for (std::size_t i = 0; i < sizeof(length); i++) {
            length.bytes[i] = bytes_[(start_ + i) % capacity];
        }
        return length;
    }

    std::array<std::uint8_t, capacity> bytes_;
    std::size_t start_ = 0, used_ = 0, packets_ = 0;
};

}  // namespace kx

#endif
