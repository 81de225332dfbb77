// Client addresses.
#ifndef CLIENT_MGR_CLIENTS_CLIENT_IP_H
#define CLIENT_MGR_CLIENTS_CLIENT_IP_H

#include "wire/big_endian.h"
#include "wire/mac_address.h"

// Stores and reports the new address of a known client. For a guest that has not passed the captive portal it also
// moves the kernel entries to the new address; `ifname` (NUL-terminated if shorter than 16 bytes) is the interface that
// serves it. Does nothing for address 0, for the stored address, or while the link to the controller is not ready.
void learn_client_ip(const mac_address &mac, be32 ip, const char *ifname);

#endif
