// Authentication and key management (AKM) of a station, and the name of its key.
#ifndef RADIOD_AKM_H
#define RADIOD_AKM_H

#include <array>
#include <cstdint>

namespace radiod {

enum class akm {
    none,  // an open network: the station's request has no RSN element
    psk,
    psk_sha256,
    ieee8021x,
    ieee8021x_sha256,
    ft_psk,
    ft_8021x,
    sae,
    ft_sae,
    owe,
    other,
};

// The AKM of a suite selector in an RSN element (IEEE 802.11-2020, table 9-151), its four bytes in the order of
// transmission.
constexpr akm akm_of_selector(std::uint32_t selector) {
    constexpr std::uint32_t ieee80211 = 0x000fac00;
    switch (selector) {
        case ieee80211 | 1U:
            return akm::ieee8021x;
        case ieee80211 | 2U:
            return akm::psk;
        case ieee80211 | 3U:
            return akm::ft_8021x;
        case ieee80211 | 4U:
            return akm::ft_psk;
        case ieee80211 | 5U:
            return akm::ieee8021x_sha256;
        case ieee80211 | 6U:
            return akm::psk_sha256;
        case ieee80211 | 8U:
            return akm::sae;
        case ieee80211 | 9U:
            return akm::ft_sae;
        case ieee80211 | 18U:
            return akm::owe;
        default:
            return akm::other;
    }
}

using pmkid = std::array<std::uint8_t, 16>;

}  // namespace radiod

#endif
