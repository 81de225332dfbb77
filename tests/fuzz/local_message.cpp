// One local message to the daemon. Input: the daemon's state (daemon_rig), then the message without its length word.
#include "daemon_rig.h"

void fuzz_one(std::span<const uint8_t> bytes) {
    fuzz::input in(bytes);
    fuzz::daemon_rig rig(in);
    const uint32_t id = in.word32();
    const uint32_t flags = in.word32();
    rig.local(id, flags, in.rest());
    rig.check();
}
