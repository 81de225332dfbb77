#include "state_store.h"

#include <sys/mman.h>

#include <bit>
#include <cstring>
#include <new>
#include <system_error>

namespace sim {
namespace {

constexpr size_t EXPECTED_SIZE = 512;  // of a state

class holding {
public:
    explicit holding(pthread_mutex_t &lock) : lock_(lock) { pthread_mutex_lock(&lock_); }
    ~holding() { pthread_mutex_unlock(&lock_); }
    holding(const holding &) = delete;
    holding &operator=(const holding &) = delete;

private:
    pthread_mutex_t &lock_;
};

}  // namespace

void *shared_memory(size_t bytes) {
    void *p = mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (p == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "no memory for the states");
    }
    return p;
}

state_store::state_store(size_t bytes) : max_states_(std::bit_ceil(bytes / EXPECTED_SIZE)), arena_size_(bytes) {
    head_ = new (shared_memory(sizeof(head))) head{};
    places_ = static_cast<state_hash *>(shared_memory(2 * max_states_ * sizeof(state_hash)));
    states_ = static_cast<entry *>(shared_memory(max_states_ * sizeof(entry)));
    arena_ = static_cast<uint8_t *>(shared_memory(arena_size_));
    pthread_mutexattr_t shared;
    pthread_mutexattr_init(&shared);
    pthread_mutexattr_setpshared(&shared, PTHREAD_PROCESS_SHARED);
    pthread_mutex_init(&head_->lock, &shared);
    pthread_mutexattr_destroy(&shared);
}

// Whether the hash is stored. If not, `place` is where it belongs.
bool state_store::find_place(const state_hash &hash, size_t &place) const {
    const size_t mask = 2 * max_states_ - 1;
    for (place = static_cast<size_t>(hash.low) & mask;; place = (place + 1) & mask) {
        const state_hash &here = places_[place];
        if (here.high == hash.high && here.low == hash.low) {
            return true;
        }
        if (here.high == 0 && here.low == 0) {
            return false;
        }
    }
}

state_store::outcome state_store::add(const std::vector<uint8_t> &saved, uint32_t parent, uint16_t step) {
    const state_hash hash = hash_of(saved);
    const holding lock(head_->lock);
    size_t place;
    if (find_place(hash, place)) {
        return outcome::KNOWN;
    }
    const uint32_t state = head_->states.load();
    if (state == max_states_ || head_->used + saved.size() > arena_size_) {
        return outcome::NO_ROOM;
    }
    places_[place] = hash;
    memcpy(arena_ + head_->used, saved.data(), saved.size());
    states_[state] = {head_->used, parent, static_cast<uint16_t>(saved.size()), step};
    head_->used += saved.size();
    head_->states.store(state + 1);
    return outcome::NEW;
}

}  // namespace sim
