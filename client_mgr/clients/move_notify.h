// Clients that moved, as the controller reports it.
#ifndef CLIENT_MGR_CLIENTS_MOVE_NOTIFY_H
#define CLIENT_MGR_CLIENTS_MOVE_NOTIFY_H

#include <cstdint>

#include "client_mgr/tables/client_tbl.h"
#include "wire/mac_address.h"

// Disassociates and forgets a client that is on another access point now.
void client_moved_away(const client_lookup &known);

// Records that a client whose home is here is on a VAP of another access point. `new_vlan`: that VAP's VLAN. Returns 0,
// or -1 when its home is not here.
int client_moved(const client_lookup &known, const mac_address &new_bssid, uint8_t new_vlan);

#endif
