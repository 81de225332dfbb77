// Names of pairwise master keys.
#ifndef RADIOD_KEYS_PMKID_H
#define RADIOD_KEYS_PMKID_H

#include <array>
#include <cstdint>
#include <optional>

#include "common/mac_address.h"
#include "radiod/akm.h"

namespace radiod {

using kx::mac_address;

using pmk = std::array<std::uint8_t, 32>;

// The PMKID of a PMK that EAP made (IEEE 802.11-2020, 12.7.1.3): for 802.1X by HMAC-SHA-1, for 802.1X-SHA256 by
// HMAC-SHA-256. None for every other suite: it has no PMK, or its PMKID is no function of the BSSID, or the PMK stays
// where it was made.
std::optional<pmkid> make_pmkid(akm suite, const pmk &key, const mac_address &bssid, const mac_address &station);

}  // namespace radiod

#endif
