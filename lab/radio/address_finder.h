// Finds a station's IPv4 address in unencrypted traffic.
#ifndef LAB_RADIO_ADDRESS_FINDER_H
#define LAB_RADIO_ADDRESS_FINDER_H

#include <optional>

#include "lab/radio/air_event.h"
#include "lab/radio/frame.h"

namespace radio {

// Reads a data frame: the station's own ARP packet, or a DHCP server's acknowledgement to it. Returns none for
// encrypted frames, fragments, A-MSDUs, and packets that are cut or malformed.
std::optional<air_event> find_address(const frame &data);

}  // namespace radio

#endif
