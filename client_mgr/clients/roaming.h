// Clients that roam in from another access point.
#ifndef CLIENT_MGR_CLIENTS_ROAMING_H
#define CLIENT_MGR_CLIENTS_ROAMING_H

#include "wire/local_messages.h"

// Serves a known client: as a home client of the VAP if the VAP is on the client's home VLAN, otherwise through the
// tunnel to that VLAN. Asks the controller about an unknown one. Writes the client's stored address to event.ip. Does
// nothing while the link to the controller is not ready.
void roam_in(reassociation &event);

#endif
