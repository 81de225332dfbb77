#include "radio_service/address_packets.h"

#include <algorithm>
#include <cstddef>
#include <cstring>

#include "wire/big_endian.h"

namespace kx {
namespace {

using bytes = std::span<const std::uint8_t>;

// Reads a value whose bounds the caller has checked.
template <typename T>
T read_at(bytes from, std::size_t at) {
    T value{};
    std::memcpy(&value, from.data() + at, sizeof value);
    return value;
}
std::uint16_t big16(bytes from, std::size_t at) { return read_at<be16>(from, at); }
std::uint32_t big32(bytes from, std::size_t at) { return read_at<be32>(from, at); }

// IEEE 802-2014, 8.2.2: the first bit in transmission marks a group address.
bool is_group(const mac_address &address) { return (address[0] & 1U) != 0; }

std::optional<used_address> of_station(const mac_address &station, std::uint32_t ip) {
    return ip == 0 || is_group(station) ? std::nullopt : std::optional(used_address{station, ip});
}

// RFC 2131 and 2132: the message type is option 53, 5 is an acknowledgement.
bool is_acknowledgement(bytes options) {
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

std::optional<used_address> from_dhcp(const mac_address &destination, bytes message) {
    constexpr std::size_t options_at = 240;
    constexpr std::uint32_t magic_cookie = 0x63825363;
    constexpr std::uint8_t reply_to_ethernet[] = {2, 1, 6};
    if (message.size() < options_at || !std::ranges::equal(message.first(3), reply_to_ethernet) ||
        big32(message, 236) != magic_cookie || !is_acknowledgement(message.subspan(options_at))) {
        return std::nullopt;
    }
    const auto client = read_at<mac_address>(message, 28);
    return is_group(destination) || client == destination ? of_station(client, big32(message, 16)) : std::nullopt;
}

}  // namespace

// RFC 826, for Ethernet and IPv4. A probe (RFC 5227) has the sender address 0.
std::optional<used_address> sender_of_arp(const mac_address &source, bytes packet) {
    constexpr std::uint8_t ethernet_ipv4[] = {0, 1, 8, 0, 6, 4};
    if (packet.size() < 28 || !std::ranges::equal(packet.first(6), ethernet_ipv4)) {
        return std::nullopt;
    }
    const auto sender = read_at<mac_address>(packet, 8);
    return sender == source ? of_station(sender, big32(packet, 14)) : std::nullopt;
}

std::optional<used_address> client_of_dhcp(const mac_address &destination, bytes packet) {
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
    return from_dhcp(destination, datagram.first(length).subspan(8));
}

}  // namespace kx
