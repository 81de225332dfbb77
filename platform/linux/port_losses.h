// What the port has lost of the daemon's messages since the start.
#ifndef KX_LINUX_PORT_LOSSES_H
#define KX_LINUX_PORT_LOSSES_H

#include <cstddef>

#include "common/losses.h"

namespace kx {

enum port_loss : std::size_t {
    loss_stranger,
    loss_malformed,
    loss_undelivered,
    loss_no_tunnel,
    loss_queue_full,
    loss_unsent,
    loss_from_apd,
    loss_log_lines,
    loss_console_lines,
};

// Of this process. Lines go to the system log.
losses &port_losses();

}  // namespace kx

#endif
