// What the daemon asks of the wireless driver: private requests and their records. Records are in the host's order, as
// everything that passes through an ioctl is. Besides these the driver is asked for an interface's address
// (SIOCGIFHWADDR of linux/sockios.h).
#ifndef WIRE_DRIVER_RECORDS_H
#define WIRE_DRIVER_RECORDS_H

#include <linux/sockios.h>
#include <linux/wireless.h>

#include <cstddef>
#include <cstdint>

#include "wire/mac_address.h"

// Operations on one station; linux/wireless.h: private requests of wireless interfaces begin at SIOCIWFIRSTPRIV.
inline constexpr unsigned DRIVER_STATION_REQUEST = SIOCIWFIRSTPRIV + 6;
static_assert(DRIVER_STATION_REQUEST == 0x8BE6);

// The stations of a VAP; linux/sockios.h: private requests of devices begin at SIOCDEVPRIVATE.
inline constexpr unsigned DRIVER_STATION_LIST = SIOCDEVPRIVATE + 6;
static_assert(DRIVER_STATION_LIST == 0x89F6);

// The verdict of a MAC ACL question.
inline constexpr unsigned DRIVER_ACL_VERDICT = SIOCDEVPRIVATE + 12;
static_assert(DRIVER_ACL_VERDICT == 0x89FC);

inline constexpr uint8_t DRIVER_OP_DISASSOC = 2;
inline constexpr uint16_t DRIVER_REASON_UNSPECIFIED = 1;  // IEEE 802.11-2020, 9.4.1.7

// Body of DRIVER_STATION_REQUEST.
struct driver_station_op {
    uint8_t op;  // DRIVER_OP_DISASSOC
    uint8_t ssid_len;
    uint16_t reason;
    mac_address station;
    uint8_t ssid[32];
};
static_assert(sizeof(driver_station_op) == 42 && offsetof(driver_station_op, station) == 4);

inline constexpr uint16_t DRIVER_STATION_LIST_MAX = 16384;

// One station in the answer to DRIVER_STATION_LIST. The next one begins `length` bytes further on, at any address.
struct driver_station {
    uint16_t length;  // of this record, at least sizeof(driver_station)
    uint8_t unused1[14];
    mac_address mac;
    uint8_t unused2[118];
    uint16_t inactivity;  // seconds since the station was last heard
    uint8_t unused3[14];
};
static_assert(sizeof(driver_station) == 156);
static_assert(offsetof(driver_station, mac) == 16 && offsetof(driver_station, inactivity) == 140);

inline constexpr uint32_t DRIVER_ACL_DATA_MAX = 128;
inline constexpr uint32_t DRIVER_ACL_ALLOWED = 1;  // the one verdict that lets the station in

// Body of DRIVER_ACL_VERDICT.
struct driver_acl_verdict {
    uint32_t verdict;
    uint32_t data_len;  // as it was given, which may be more than there is room for
    uint8_t data[DRIVER_ACL_DATA_MAX];
};
static_assert(sizeof(driver_acl_verdict) == 136);

#endif
