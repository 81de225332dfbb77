// Reports of one client to the controller.
#ifndef CLIENT_MGR_NEIGHBOURS_CLIENT_UPDATES_H
#define CLIENT_MGR_NEIGHBOURS_CLIENT_UPDATES_H

#include <cstdint>

#include "wire/local_messages.h"

// Both send one record of type `type` and log a send that failed.
void send_client_update(const association &event, uint8_t type);
void send_foreign_client_update(const reassociation &event, uint8_t type);

#endif
