// The daemon on the simulated platform, with clients and verdicts, for one input.
#ifndef TESTS_FUZZ_DAEMON_RIG_H
#define TESTS_FUZZ_DAEMON_RIG_H

#include <memory>

#include "input.h"
#include "platform.h"
#include "random/event.h"

namespace fuzz {

class daemon_rig {
public:
    // Two VAPs, one of them for guests, the link up, and clients and verdicts of every kind. The input's first byte
    // selects more: bits 0-1 the log level (1 to 4), bit 2 the link is down, bit 3 the driver fails, bit 4 the
    // controller channel is full, bits 5-7 when 1 both tables are full.
    explicit daemon_rig(input &in);
    // Empty tables and no VAPs.
    daemon_rig();
    ~daemon_rig();
    daemon_rig(const daemon_rig &) = delete;
    daemon_rig &operator=(const daemon_rig &) = delete;

    sim::platform &sim() { return sim_; }

    // Handles a local message in a buffer that ends where the platform contract lets a handler's reads and writes end.
    void local(uint32_t id, uint32_t flags, std::span<const uint8_t> payload);
    // Makes the event happen. A local message is handled as above.
    void happen(const sim::event &e);
    // Ends the process when the daemon is not sound. Drops the effects so far.
    void check();

private:
    void arrange();

    std::unique_ptr<uint8_t[]> message_;
    sim::platform sim_;
};

// A controller message from input bytes. When the first byte is 0, the rest is the message, with a count of records
// of at most 15. Otherwise the rest are records, each a type and a block with its body; their headers are added.
sim::bytes controller_message(input &in);

// The driver's station list, in the host's order. When the first byte is 0, the rest is the list. Otherwise each
// station is a byte (the number of bytes after the fixed ones), its MAC address and its inactivity in 16 bits.
sim::bytes station_list(input &in);

}  // namespace fuzz

#endif
