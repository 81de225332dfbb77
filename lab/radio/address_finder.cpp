#include "lab/radio/address_finder.h"

#include <algorithm>

namespace radio {
namespace {

constexpr std::uint16_t ethertype_ipv4 = 0x0800;
constexpr std::uint16_t ethertype_arp = 0x0806;
constexpr std::uint8_t snap[] = {0xaa, 0xaa, 0x03, 0x00, 0x00, 0x00};  // RFC 1042

std::optional<air_event> address_event(const mac_address &client, const mac_address &bssid, std::uint32_t ip) {
    if (ip == 0 || is_group(client)) {
        return std::nullopt;
    }
    return air_event{.what = air::address, .client = client, .bssid = bssid, .ip = ip};
}

// RFC 826, for Ethernet and IPv4. A probe (RFC 5227) has the sender address 0.
std::optional<air_event> from_arp(bytes packet, const mac_address &station, const mac_address &bssid) {
    constexpr std::uint8_t ethernet_ipv4[] = {0, 1, 8, 0, 6, 4};
    if (packet.size() < 28 || !std::ranges::equal(packet.first(6), ethernet_ipv4) || mac_at(packet, 8) != station) {
        return std::nullopt;
    }
    return address_event(station, bssid, big32(packet, 14));
}

// RFC 2131 and 2132: the message type is option 53, 5 is an acknowledgement.
bool is_dhcp_ack(bytes options) {
    while (!options.empty() && options[0] != 255) {
        if (options[0] == 0) {
            options = options.subspan(1);
            continue;
        }
        if (options.size() < 2 || options.size() - 2 < options[1]) {
            return false;
        }
        if (options[0] == 53) {
            return options[1] == 1 && options[2] == 5;
        }
        options = options.subspan(std::size_t{2} + options[1]);
    }
    return false;
}

std::optional<air_event> from_dhcp(bytes message, const mac_address &bssid) {
    constexpr std::size_t options_at = 240;
    constexpr std::uint32_t magic_cookie = 0x63825363;
    constexpr std::uint8_t reply_to_ethernet[] = {2, 1, 6};
    if (message.size() < options_at || !std::ranges::equal(message.first(3), reply_to_ethernet) ||
        big32(message, 236) != magic_cookie || !is_dhcp_ack(message.subspan(options_at))) {
        return std::nullopt;
    }
    return address_event(mac_at(message, 28), bssid, big32(message, 16));
}

std::optional<air_event> from_ipv4(bytes packet, const mac_address &bssid) {
    if (packet.size() < 20 || packet[0] >> 4U != 4) {
        return std::nullopt;
    }
    const std::size_t header = std::size_t{packet[0] & 0x0fU} * 4;
    const std::size_t total = big16(packet, 2);
    const bool fragment = (big16(packet, 6) & 0x3fffU) != 0;
    constexpr std::uint8_t udp = 17;
    if (header < 20 || total < header + 8 || total > packet.size() || fragment || packet[9] != udp) {
        return std::nullopt;
    }
    const bytes datagram = packet.first(total).subspan(header);
    const std::size_t length = big16(datagram, 4);
    if (big16(datagram, 0) != 67 || big16(datagram, 2) != 68 || length < 8 || length > datagram.size()) {
        return std::nullopt;
    }
    return from_dhcp(datagram.first(length).subspan(8), bssid);
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
    if (data.to_ds && ethertype == ethertype_arp) {
        return from_arp(packet, data.transmitter, data.receiver);
    }
    if (data.from_ds && ethertype == ethertype_ipv4) {
        return from_ipv4(packet, data.transmitter);
    }
    return std::nullopt;
}

}  // namespace radio
