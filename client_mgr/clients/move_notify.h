// Clients that moved.
#ifndef CLIENT_MGR_CLIENTS_MOVE_NOTIFY_H
#define CLIENT_MGR_CLIENTS_MOVE_NOTIFY_H

#include <cstdint>

extern "C" {

// Returns 0, or -1 when the client is unknown, for kind 2 not local, or when the record leaves the buffer.
int client_mgr_process_move_notify(uint8_t *rec);
}

#endif
