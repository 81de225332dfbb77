// Lists of clients from the controller. The two functions differ on purpose: in the reason of the disassociation, in
// whether the search stops at the first VAP with the client's BSSID, and in whether a zero BSSID counts.
#ifndef CLIENT_MGR_CLIENTS_CTRLR_SYNC_H
#define CLIENT_MGR_CLIENTS_CTRLR_SYNC_H

#include "wire/ctrlr_messages.h"
#include "wire/mac_address.h"

// A client whose home is another access point: it is disassociated from a VAP of this one, and stored.
void take_over_from_controller(const client_entry &entry);

// A client that the site has forgotten.
void remove_client(const mac_address &mac);

#endif
