#ifndef LAB_RADIO_MAC_H
#define LAB_RADIO_MAC_H

#include "common/mac_address.h"

namespace radio {

using kx::mac_address;

inline constexpr mac_address broadcast = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

inline bool is_group(const mac_address &mac) { return (mac[0] & 1U) != 0; }

}  // namespace radio

#endif
