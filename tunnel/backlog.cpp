#include "tunnel/backlog.h"

#include <sys/mman.h>

namespace kx {

bool backlog::push(std::span<const std::uint8_t> head, std::span<const std::uint8_t> body) {
    if (!ring_ && !take_room()) {
        return false;
    }
    if (ring_->push(head, body)) {
        return true;
    }
    if (ring_->packets() == 0) {
        clear();
    }
    return false;
}

void backlog::pop() {
    ring_->pop();
    if (ring_->packets() == 0) {
        clear();
    }
}

void backlog::clear() {
    if (ring_) {
        ring_->clear();
        ring_.reset();
        munmap(room_, size_);
    }
}

bool backlog::take_room() {
    void *room = mmap(nullptr, size_, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    if (room == MAP_FAILED) {
        return false;
    }
    room_ = room;
    ring_.emplace(std::span(static_cast<std::uint8_t *>(room), size_));
    return true;
}

}  // namespace kx
