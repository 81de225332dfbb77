// The level of client_mgr's log, by its own local messages.
#ifndef APCTL_LOG_LEVEL_H
#define APCTL_LOG_LEVEL_H

namespace apctl {

// Both throw unreachable. Only root and the daemon's user may ask.
int ask_log_level();
// Throws std::runtime_error, too, when the daemon has not taken the level.
void set_log_level(int level);

}  // namespace apctl

#endif
