// A message from the controller that arrives in parts (wire/apcomm_channel.h).
#ifndef KX_LINUX_PART_ASSEMBLY_H
#define KX_LINUX_PART_ASSEMBLY_H

#include <cstdint>
#include <span>

#include "wire/apcomm_channel.h"

namespace kx {

class part_assembly {
public:
    enum class outcome {
        incomplete,  // more parts follow
        complete,    // `message` is the whole message
        misplaced,   // the part does not follow the one before; nothing is kept
    };

    // `room` has apcomm_message_max bytes and outlives the object.
    constexpr explicit part_assembly(std::span<std::uint8_t> room) : room_(room) {}

    // Appends a part within its bounds: its bytes are copied from `bytes` and erased there. `message` is valid until
    // the next call; the caller erases it.
    outcome add(const apcomm_part &part, std::uint8_t *bytes, std::span<std::uint8_t> &message);
    // Erases the parts that have arrived.
    void clear();

private:
    std::span<std::uint8_t> room_;
    std::uint32_t total_ = 0, length_ = 0;  // of the message, and of its parts so far
};

}  // namespace kx

#endif
