// Management frames from stations, as hostapd reports them.
#ifndef RADIOD_HOSTAPD_MANAGEMENT_FRAME_H
#define RADIOD_HOSTAPD_MANAGEMENT_FRAME_H

#include <cstdint>
#include <optional>
#include <span>
#include <vector>

#include "radiod/akm.h"
#include "wire/mac_address.h"

namespace radiod {

enum class frame_kind { auth, assoc_request, reassoc_request, disassoc, deauth };

struct management_frame {
    frame_kind kind = frame_kind::auth;
    mac_address station{}, bssid{};
    mac_address current_ap{};          // of a reassociation request: the BSSID that the station comes from
    std::uint16_t auth_algorithm = 0;  // of an authentication frame (IEEE 802.11-2020, 9.4.1.1)
    akm suite = akm::none;             // of a request, and of an authentication frame of FT
    std::vector<pmkid> pmkids;         // from the RSN element
    bool ft = false;                   // the frame has a mobility domain or fast BSS transition element
};

inline constexpr std::uint16_t auth_open = 0, auth_shared_key = 1, auth_ft = 2, auth_sae = 3;

// Reads a frame that starts with its MAC header (IEEE 802.11-2020, 9.3.3). Nothing outside `data` is read. None for
// every frame but those of frame_kind from a station to an access point, and for one that is too short for its fixed
// fields. Elements are read up to the first that exceeds the frame.
std::optional<management_frame> parse_frame(std::span<const std::uint8_t> data);

}  // namespace radiod

#endif
