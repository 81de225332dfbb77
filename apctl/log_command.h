// apctl log
#ifndef APCTL_LOG_COMMAND_H
#define APCTL_LOG_COMMAND_H

#include <optional>
#include <string>

#include "apctl/output.h"
#include "common/mac_address.h"

namespace apctl {

struct log_options {
    bool follow = false;
    std::optional<int> level;  // of the daemon while the log is followed
    std::optional<mac_address> client;
};

// Throws std::system_error when the log cannot be read, and what log_level.h throws.
void show_log(const log_options &wanted, output &to);

}  // namespace apctl

#endif
