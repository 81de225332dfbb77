// Guests on their way through the captive portal.
#ifndef CLIENT_MGR_CLIENTS_GUEST_H
#define CLIENT_MGR_CLIENTS_GUEST_H

#include "client_mgr/tables/client_tbl.h"
#include "wire/big_endian.h"
#include "wire/mac_address.h"

// Removes the kernel entries of the guest's stored address, if it has one, and installs those of the new address, with
// which the guest reaches the portal. `ifname`: as for learn_client_ip.
void let_guest_reach_portal(const client_info &guest, be32 new_ip, const char *ifname);

// Clears the client's guest flag, removes its kernel entries and notifies the portal.
void authorise_guest(const mac_address &mac);

#endif
