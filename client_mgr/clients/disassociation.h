// Clients that leave.
#ifndef CLIENT_MGR_CLIENTS_DISASSOCIATION_H
#define CLIENT_MGR_CLIENTS_DISASSOCIATION_H

#include "wire/local_messages.h"

// Both forget the client if it is on the VAP that it left, and report it. Neither does anything while the link to the
// controller is not ready. They differ on purpose: only the local one writes to the system log, cleans up after a guest
// and forgets the client's MAC ACL verdict.

// A client that is at home here.
void disassociate(const association &event);

// A client that roamed in.
void disassociate_foreign(const reassociation &event);

#endif
