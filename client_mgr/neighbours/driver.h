// The wireless driver and the daemon's four requests to it. Each is one ioctl on a socket of its own. When the socket
// cannot be created, the ioctl fails.
#ifndef CLIENT_MGR_NEIGHBOURS_DRIVER_H
#define CLIENT_MGR_NEIGHBOURS_DRIVER_H

#include <cstddef>
#include <cstdint>

#include "wire/driver_records.h"

extern "C" {

// Disassociates station `sta`. `ifname`: NUL-terminated unless it fills 16 bytes. `reason` goes to the system log
// alone. Returns 0.
int client_mgr_sta_disassoc(const char *ifname, const uint8_t bssid[6], const uint8_t sta[6], int reason);

// Reads the hardware address of `ifname` (NUL-terminated unless it fills 16 bytes). Returns 0, or -1 with bssid
// untouched.
int client_mgr_get_bssid(uint8_t bssid[6], const char *ifname);
}

// The driver's list of the stations of a VAP. There is one buffer, so one list at a time.
class driver_stations {
public:
    // Asks the driver. `ifname`: NUL-terminated unless it fills 16 bytes.
    explicit driver_stations(const char *ifname);

    // Whether the driver gave a list.
    bool valid() const { return valid_; }

    // Copies the next station to `station`. Returns false at the list's end, and behind a station whose record has
    // length 0 or runs past the end.
    bool next(driver_station &station);

private:
    bool valid_;
    size_t offset_ = 0;
    size_t left_ = 0;
};

// Hands over the verdict of a MAC ACL question, with at most DRIVER_ACL_DATA_MAX bytes of the question's data; the
// length goes along as it is. `ifname`: 12 bytes, NUL-terminated if shorter. Returns 0, or -1 when the driver refused.
int driver_push_acl_verdict(const char *ifname, uint32_t verdict, const uint8_t *data, uint32_t data_len);

#endif
