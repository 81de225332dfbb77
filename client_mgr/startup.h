// Start-up.
#ifndef CLIENT_MGR_STARTUP_H
#define CLIENT_MGR_STARTUP_H

extern "C" {

// Starts the daemon and runs its event loop. Returns 0 if the loop ever ends and -1 when the log cannot be opened.
// Exits with status -1 when the local endpoint cannot be opened or the radio's MAC address cannot be read.
int client_mgr_main(void);
}

#endif
