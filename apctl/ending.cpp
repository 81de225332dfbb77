#include "apctl/ending.h"

#include <poll.h>

#include <csignal>

namespace apctl {

namespace {

volatile std::sig_atomic_t ended = 0;

}  // namespace

void catch_ending_signals() {
    struct sigaction action {};
    action.sa_handler = [](int) { ended = 1; };  // without SA_RESTART
    sigaction(SIGINT, &action, nullptr);
    sigaction(SIGTERM, &action, nullptr);
}

bool has_ended() { return ended != 0; }

void pause_for(std::chrono::milliseconds time) { poll(nullptr, 0, static_cast<int>(time.count())); }

}  // namespace apctl
