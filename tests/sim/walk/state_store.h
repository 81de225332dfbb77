// The states that a walk has found, in memory shared by its processes.
#ifndef TESTS_SIM_WALK_STATE_STORE_H
#define TESTS_SIM_WALK_STATE_STORE_H

#include <pthread.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "daemon_state.h"

namespace sim {

class state_store {
public:
    // Reserves `bytes` for the states. Throws when there is not enough memory.
    explicit state_store(size_t bytes);
    state_store(const state_store &) = delete;
    state_store &operator=(const state_store &) = delete;

    enum class outcome { KNOWN, NEW, NO_ROOM };
    // `step` led from the state `parent` to this one.
    outcome add(const std::vector<uint8_t> &saved, uint32_t parent, uint16_t step);

    uint32_t count() const { return head_->states.load(); }
    size_t bytes_used() const { return head_->used; }
    // The pointer stays valid.
    const uint8_t *bytes_of(uint32_t state) const { return arena_ + states_[state].offset; }
    size_t size_of(uint32_t state) const { return states_[state].size; }
    uint32_t parent_of(uint32_t state) const { return states_[state].parent; }
    uint16_t step_to(uint32_t state) const { return states_[state].step; }

private:
    struct entry {
        uint64_t offset;
        uint32_t parent;
        uint16_t size;
        uint16_t step;
    };
    struct head {
        pthread_mutex_t lock;
        std::atomic<uint32_t> states;
        size_t used;
    };

    bool find_place(const state_hash &hash, size_t &place) const;

    head *head_;
    state_hash *places_;  // 0, 0 where there is none
    entry *states_;
    uint8_t *arena_;
    size_t max_states_;
    size_t arena_size_;
};

// Zeroed memory that child processes share.
void *shared_memory(size_t bytes);

}  // namespace sim

#endif
