#include "lab/radio/address_finder.h"

#include <algorithm>

#include "radio_service/address_packets.h"

namespace radio {
namespace {

constexpr std::uint8_t snap[] = {0xaa, 0xaa, 0x03, 0x00, 0x00, 0x00};  // RFC 1042

std::optional<air_event> address_event(const std::optional<kx::used_address> &found, const mac_address &bssid) {
    if (!found) {
        return std::nullopt;
    }
    return air_event{.what = air::address, .client = found->station, .bssid = bssid, .ip = found->ip};
}

}  // namespace

std::optional<air_event> find_address(const frame &data) {
    const bool fragment = data.more_fragments || (data.sequence & 0x0fU) != 0;
    if (data.is_protected || data.aggregate || fragment || data.to_ds == data.from_ds) {
        return std::nullopt;
    }
    if (data.body.size() < 8 || !std::ranges::equal(data.body.first(6), snap)) {
        return std::nullopt;
    }
    const std::uint16_t ethertype = big16(data.body, 6);
    const bytes packet = data.body.subspan(8);
    if (data.to_ds && ethertype == kx::ethertype_arp) {
        return address_event(kx::sender_of_arp(data.transmitter, packet), data.receiver);
    }
    if (data.from_ds && ethertype == kx::ethertype_ipv4) {
        return address_event(kx::client_of_dhcp(data.receiver, packet), data.transmitter);
    }
    return std::nullopt;
}

}  // namespace radio
