// Packets that wait for a peer, of which a process hardly ever has any.
#ifndef TUNNEL_BACKLOG_H
#define TUNNEL_BACKLOG_H

#include <sys/uio.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>

#include "common/packet_ring.h"

namespace kx {

// A packet_ring whose room is taken from the system when the first packet has to wait, and given back with the last:
// the heap does not stay as large as the longest queue ever was.
class backlog {
public:
    // A room of `size` bytes, of which each packet uses packet_ring::overhead more than it has.
    explicit backlog(std::size_t size) : size_(size) {}
    ~backlog() { clear(); }
    backlog(const backlog &) = delete;
    backlog &operator=(const backlog &) = delete;

    // Appends the packet whose bytes are `head` and `body`. False, and nothing is queued, when it does not fit, or when
    // the system has no room.
    bool push(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body);
    bool empty() const { return !ring_; }
    std::size_t packets() const { return ring_ ? ring_->packets() : 0; }
    // Of all packets together.
    std::size_t bytes() const { return ring_ ? ring_->bytes() : 0; }
    // The bytes of the oldest packet, which there must be, in two pieces.
    std::array<iovec, 2> front() { return ring_->front(); }
    void pop();
    void clear();

private:
    bool take_room();

    std::size_t size_;
    std::optional<packet_ring> ring_;  // while a packet waits
    void *room_ = nullptr;
};

}  // namespace kx

#endif
