// The kernel entries that let an unauthorised guest reach the captive portal, and their count per VAP.
#ifndef CLIENT_MGR_NEIGHBOURS_GUEST_ENTRIES_H
#define CLIENT_MGR_NEIGHBOURS_GUEST_ENTRIES_H

#include <cstdint>

#include "client_mgr/base/client_mgr_cfg.h"

struct vap_cfg;

// Lowers the VAP's guest count, logs `reason` at level 1 unless it is null, removes the ARP entry and the host route of
// `ip` and, when this was the VAP's last guest, the address of the VAP's interface.
void remove_guest_entries(vap_cfg &vap, const uint8_t ip[4], const char *reason);

// Raises the VAP's guest count and installs the ARP entry and the host route of `ip` on `ifname`; for the VAP's first
// guest, the interface first gets the address of the guest's /24. `ifname`: NUL-terminated if shorter than 16 bytes.
void install_guest_entries(vap_cfg &vap, const uint8_t mac[6], const uint8_t ip[4], const char *ifname);

#endif
