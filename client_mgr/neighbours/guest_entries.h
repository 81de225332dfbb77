// The kernel entries that let an unauthorised guest reach the captive portal, and their count per VAP.
#ifndef CLIENT_MGR_NEIGHBOURS_GUEST_ENTRIES_H
#define CLIENT_MGR_NEIGHBOURS_GUEST_ENTRIES_H

#include "client_mgr/base/client_mgr_cfg.h"
#include "wire/big_endian.h"
#include "wire/mac_address.h"

// Lowers the VAP's guest count, logs `reason` at level 1 unless it is null, removes the ARP entry and the host route of
// `ip` and, when this was the VAP's last guest, the address of the VAP's interface.
void remove_guest_entries(vap_cfg &vap, be32 ip, const char *reason);

// Raises the VAP's guest count and installs the ARP entry and the host route of `ip` on `ifname`; for the VAP's first
// guest, the interface first gets the address of the guest's /24. `ifname`: NUL-terminated if shorter than 16 bytes.
void install_guest_entries(vap_cfg &vap, const mac_address &mac, be32 ip, const char *ifname);

#endif
