// One message from the controller. Input: the daemon's state (daemon_rig), then a controller_message.
#include "daemon_rig.h"

void fuzz_one(std::span<const uint8_t> bytes) {
    fuzz::input in(bytes);
    fuzz::daemon_rig rig(in);
    rig.sim().controller(fuzz::controller_message(in));
    rig.check();
}
