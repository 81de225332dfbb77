// Start-up.
#ifndef CLIENT_MGR_STARTUP_H
#define CLIENT_MGR_STARTUP_H

#include <cstdint>

inline constexpr uint32_t CLIENT_MGR_HB_PERIOD_SECS = 60;

extern "C" {

// Starts the daemon and runs its event loop. Returns 0 if the loop ever ends and -1 when the log cannot be opened.
// Exits with status -1 when the local endpoint cannot be opened or the radio's MAC address cannot be read.
int client_mgr_main(void);
}

#endif
