// Finds out which IPv4 address a station uses, from packets of the network layer.
#ifndef RADIO_SERVICE_ADDRESS_PACKETS_H
#define RADIO_SERVICE_ADDRESS_PACKETS_H

#include <cstdint>
#include <optional>
#include <span>

#include "wire/mac_address.h"

namespace kx {

inline constexpr std::uint16_t ethertype_ipv4 = 0x0800;
inline constexpr std::uint16_t ethertype_arp = 0x0806;

struct used_address {
    mac_address station{};
    std::uint32_t ip = 0;  // as a number: 10.0.0.1 is 0x0a000001

    bool operator==(const used_address &) const = default;
};

// Each returns none for a packet that is cut, malformed or of another kind.
// The sender of an ARP packet that comes from the MAC address `source`; none of a probe, which has no address yet, nor
// when the packet names another sender.
std::optional<used_address> sender_of_arp(const mac_address &source, std::span<const std::uint8_t> packet);
// The client of a DHCP server's acknowledgement that goes to the MAC address `destination`: the client's or a group's.
// Only the caller can say whether the packet comes from where DHCP servers are.
std::optional<used_address> client_of_dhcp(const mac_address &destination, std::span<const std::uint8_t> ipv4_packet);

}  // namespace kx

#endif
