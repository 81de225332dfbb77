// SIGINT and SIGTERM end a command that goes on until then.
#ifndef APCTL_ENDING_H
#define APCTL_ENDING_H

#include <chrono>

namespace apctl {

// From now on the signals only end waits.
void catch_ending_signals();
bool has_ended();
// Ends early when a signal comes.
void pause_for(std::chrono::milliseconds time);

}  // namespace apctl

#endif
