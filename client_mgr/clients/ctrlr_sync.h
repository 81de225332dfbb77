// Lists of clients from the controller. The two functions differ on purpose: in the reason of the disassociation, in
// whether the search stops at the first VAP with the client's BSSID, and in whether a zero BSSID counts.
#ifndef CLIENT_MGR_CLIENTS_CTRLR_SYNC_H
#define CLIENT_MGR_CLIENTS_CTRLR_SYNC_H

#include "wire/ctrlr_messages.h"
#include "wire/mac_address.h"

// Stores a client whose home is another access point. If it is on a VAP of this one, it is disassociated first.
void take_over_from_controller(const client_entry &entry);

// Disassociates a client and forgets it.
void remove_client(const mac_address &mac);

#endif
