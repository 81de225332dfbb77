// The life of the daemon.
#ifndef CLIENT_MGR_STARTUP_H
#define CLIENT_MGR_STARTUP_H

#include <cstdint>

inline constexpr uint32_t CLIENT_MGR_HB_PERIOD_SECS = 60;

extern "C" {

// The whole life of the daemon: start-up, then the event loop. Returns 0 if the loop ever ends and -1 when the log
// cannot be opened; exits with -1 when the endpoint or the radio's MAC address cannot be had.
int client_mgr_main(void);
}

#endif
