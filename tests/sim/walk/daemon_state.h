// The daemon's whole static state, to save and to put back. Its library is linked with every writable section renamed
// to core_state (CMakeLists.txt), so that no variable of it can be missed.
#ifndef TESTS_SIM_WALK_DAEMON_STATE_H
#define TESTS_SIM_WALK_DAEMON_STATE_H

#include <cstddef>
#include <cstdint>
#include <vector>

namespace sim {

// A state is kept as its difference to the base, in blocks: the block's number (16 bits) and its 32 bytes. The two
// message buffers are no part of it: what an event leaves in them has no effect on the next one, which the walk tries
// out.
class daemon_state {
public:
    // The state as it is now becomes the base.
    daemon_state();
    std::vector<uint8_t> save();
    void restore(const uint8_t *saved, size_t size);
    // Fills the message buffers.
    static void leave_in_buffers(uint8_t value);

private:
    std::vector<uint64_t> base_;
    std::vector<uint16_t> dirty_;  // the blocks that may differ from the base
};

// The hash of a saved state, wide enough that no two different ones share it.
struct state_hash {
    uint64_t high;
    uint64_t low;
};
state_hash hash_of(const std::vector<uint8_t> &saved);

}  // namespace sim

#endif
