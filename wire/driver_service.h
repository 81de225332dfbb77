// How driver requests travel to the lab's radio, the process that stands in for a wireless driver.
//
// The radio listens on one AF_UNIX SOCK_SEQPACKET socket per VAP interface, "$KX_ROOT/kx/radio/<ifname>". An interface
// with such a socket belongs to the radio, every other one to the kernel. A request is one connection: one packet with
// a radio_request and its data, one packet back with a radio_reply and its data. The words of the two headers are in
// the host's order, as everything that passes through an ioctl is.
//
//   request                          data of the request        data of the reply
//   SIOCGIFHWADDR        (0x8927)    none                       6 bytes: the BSSID
//   SIOCIWFIRSTPRIV + 6  (0x8BE6)    the 42-byte request body   none
//   SIOCDEVPRIVATE + 6   (0x89F6)    none                       the station records, at most 16384 bytes
//   SIOCDEVPRIVATE + 12  (0x89FC)    the 136-byte verdict       none
#ifndef WIRE_DRIVER_SERVICE_H
#define WIRE_DRIVER_SERVICE_H

#include <cstdint>

namespace kx {

struct radio_request {
    std::uint32_t request;  // the ioctl's number
    std::uint32_t length;   // bytes of data that follow
    char ifname[16];        // NUL-padded
};

struct radio_reply {
    std::int32_t error;    // 0, or the errno that the ioctl fails with
    std::uint32_t length;  // bytes of data that follow
};

inline constexpr std::uint32_t radio_data_max = 16384;
inline constexpr unsigned radio_wait_ms = 250;  // how long the daemon waits for the radio before the ioctl fails

// One station in the answer to SIOCDEVPRIVATE + 6; fields in the host's order.
struct radio_station {
    std::uint16_t length;  // of this record: 156
    std::uint8_t unused1[14];
    std::uint8_t mac[6];  // offset 16
    std::uint8_t unused2[118];
    std::uint16_t inactivity;  // offset 140: seconds since the station was last heard
    std::uint8_t unused3[14];
};
static_assert(sizeof(radio_station) == 156);

}  // namespace kx

#endif
