// One process's part of a walk: it takes every step from a state, checks the result and stores the new states.
#ifndef TESTS_SIM_WALK_WALK_H
#define TESTS_SIM_WALK_WALK_H

#include <string>
#include <vector>

#include "daemon_state.h"
#include "platform.h"
#include "state_store.h"
#include "steps.h"

namespace sim {

class walk {
public:
    // Brings the daemon into its first state: started, linked, both VAPs loaded.
    explicit walk(state_store &store);

    // False when there was a fault. It is printed on standard error, with the steps that led to it.
    bool expand(uint32_t state);
    bool out_of_room() const { return out_of_room_; }
    uint64_t steps_taken() const { return steps_taken_; }

private:
    std::vector<uint8_t> save(platform &sim);
    void restore(uint32_t state);
    std::vector<std::string> step_faults(const step &s);
    std::vector<std::string> trial_faults(uint32_t state, const step &s);
    bool keep(uint32_t state, size_t step_index);
    bool check_exits(uint32_t state);
    bool report(uint32_t state, const std::vector<std::string> &way_on, const std::vector<std::string> &faults) const;

    platform sim_;
    state_store &store_;
    daemon_state daemon_;
    std::vector<std::string> effects_;  // of the last step
    uint64_t steps_taken_ = 0;
    bool out_of_room_ = false;
};

}  // namespace sim

#endif
