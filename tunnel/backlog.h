// Packets that wait for a peer.
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

// A packet_ring whose memory is mapped when the first packet has to wait and unmapped when the last one leaves, so that
// the heap does not stay as large as the longest queue. The queue is hardly ever used.
class backlog {
public:
    // Has room for `size` bytes; each packet takes packet_ring::overhead bytes more than its own.
    explicit backlog(std::size_t size) : size_(size) {}
    ~backlog() { clear(); }
    backlog(const backlog &) = delete;
    backlog &operator=(const backlog &) = delete;

    // Appends the packet whose bytes are `head` and `body`. False, and nothing is queued, when it does not fit or the
    // system has no memory.
    bool push(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body);
    bool empty() const { return !ring_; }
    std::size_t packets() const { return ring_ ? ring_->packets() : 0; }
    // Of all packets together, without overhead.
    std::size_t bytes() const { return ring_ ? ring_->bytes() : 0; }
    // The bytes of the oldest packet in two pieces. The queue is not empty.
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
