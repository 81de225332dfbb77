// Guests on their way through the captive portal.
#ifndef CLIENT_MGR_CLIENTS_GUEST_H
#define CLIENT_MGR_CLIENTS_GUEST_H

#include "client_mgr/tables/client_tbl.h"
#include "wire/big_endian.h"
#include "wire/mac_address.h"

// Installs the kernel entries with which a guest reaches the portal from its new address, after those of its stored
// address, if there is one, are removed. `ifname`: as of learn_client_ip.
void let_guest_reach_portal(const client_info &guest, be32 new_ip, const char *ifname);

// The controller has authorised a client: clears its guest flag, removes its kernel entries and notifies the portal.
void authorise_guest(const mac_address &mac);

#endif
