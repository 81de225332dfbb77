// Station control by the wireless driver.
#ifndef CLIENT_MGR_NEIGHBOURS_STA_CTRL_H
#define CLIENT_MGR_NEIGHBOURS_STA_CTRL_H

#include <cstdint>

extern "C" {

// Makes the driver disassociate `sta`. `ifname`: NUL-terminated unless it fills 16 bytes. `reason` goes to the system
// log alone. Returns 0.
int client_mgr_sta_disassoc(const char *ifname, const uint8_t bssid[6], const uint8_t sta[6], int reason);
// The hardware address of `ifname` (NUL-terminated unless it fills 16 bytes). Returns 0, or -1 with bssid untouched.
int client_mgr_get_bssid(uint8_t bssid[6], const char *ifname);
}

#endif
