// Finds out a station's IPv4 address from what passes in the clear.
#ifndef LAB_RADIO_ADDRESS_FINDER_H
#define LAB_RADIO_ADDRESS_FINDER_H

#include <optional>

#include "lab/radio/air_event.h"
#include "lab/radio/frame.h"

namespace radio {

// From a data frame: an ARP packet that the station sent about itself, or a DHCP server's acknowledgement to it.
// Encrypted frames, fragments and A-MSDUs tell nothing, nor do packets that are cut or malformed.
std::optional<air_event> find_address(const frame &data);

}  // namespace radio

#endif
