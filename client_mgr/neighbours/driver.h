// The wireless driver and the daemon's four requests to it. Each is one ioctl on a socket of its own. When the socket
// cannot be created, the ioctl fails.
#ifndef CLIENT_MGR_NEIGHBOURS_DRIVER_H
#define CLIENT_MGR_NEIGHBOURS_DRIVER_H

#include <cstdint>
#include <span>

extern "C" {

// Disassociates station `sta`. `ifname`: NUL-terminated unless it fills 16 bytes. `reason` goes to the system log
// alone. Returns 0.
int client_mgr_sta_disassoc(const char *ifname, const uint8_t bssid[6], const uint8_t sta[6], int reason);

// Reads the hardware address of `ifname` (NUL-terminated unless it fills 16 bytes). Returns 0, or -1 with bssid
// untouched.
int client_mgr_get_bssid(uint8_t bssid[6], const char *ifname);
}

// Reads the stations of a VAP into `room`: driver_station records one after the other, at any address. `ifname` is
// NUL-terminated unless it fills 16 bytes. Returns the number of bytes, or -1.
int driver_read_stations(const char *ifname, std::span<uint8_t> room);

// Hands over the verdict of a MAC ACL question, with at most DRIVER_ACL_DATA_MAX bytes of the question's data; the
// length goes along as it is. `ifname`: 12 bytes, NUL-terminated if shorter. Returns 0, or -1 when the driver refused.
int driver_push_acl_verdict(const char *ifname, uint32_t verdict, const uint8_t *data, uint32_t data_len);

#endif
