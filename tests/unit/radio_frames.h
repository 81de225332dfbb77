// 802.11 frames for the radio's tests, in the byte order of the air.
#ifndef TESTS_UNIT_RADIO_FRAMES_H
#define TESTS_UNIT_RADIO_FRAMES_H

#include <cstdint>
#include <initializer_list>
#include <string_view>
#include <vector>

#include "lab/radio/air_event.h"
#include "lab/radio/bytes.h"
#include "lab/radio/link_header.h"

namespace radio_frames {

using raw = std::vector<std::uint8_t>;

inline constexpr kx::mac_address office = {0x02, 0x00, 0x00, 0x00, 0x10, 0x01};
inline constexpr kx::mac_address guest = {0x02, 0x00, 0x00, 0x00, 0x10, 0x02};
inline constexpr kx::mac_address anna = {0x02, 0x00, 0x00, 0x00, 0x0a, 0x01};
inline constexpr kx::mac_address ben = {0x02, 0x00, 0x00, 0x00, 0x0b, 0x02};

inline raw operator+(raw left, const raw &right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

inline raw as_bytes(const kx::mac_address &mac) { return {mac.begin(), mac.end()}; }

inline raw word16(unsigned value) { return {static_cast<std::uint8_t>(value), static_cast<std::uint8_t>(value >> 8U)}; }

inline raw element(std::uint8_t id, std::string_view contents) {
    return raw{id, static_cast<std::uint8_t>(contents.size())} + raw(contents.begin(), contents.end());
}

// Frame control and duration, three addresses, sequence control, body.
inline raw make_frame(std::uint8_t kind, std::uint8_t flags, const kx::mac_address &receiver,
                      const kx::mac_address &transmitter, const kx::mac_address &third, unsigned sequence,
                      const raw &body) {
    return raw{kind, flags, 0x3a, 0x01} + as_bytes(receiver) + as_bytes(transmitter) + as_bytes(third) +
           word16(sequence << 4U) + body;
}

inline constexpr std::uint8_t retry = 0x08;

inline raw association_request(const kx::mac_address &client, const kx::mac_address &bssid, unsigned sequence,
                               std::string_view ssid) {
    return make_frame(0x00, 0, bssid, client, bssid, sequence,
                      word16(0x0411) + word16(10) + element(0, ssid) + element(1, "\x82\x84\x8b\x96"));
}

inline raw association_response(const kx::mac_address &client, const kx::mac_address &bssid, unsigned sequence,
                                unsigned status, std::uint8_t flags = 0) {
    return make_frame(0x10, flags, client, bssid, bssid, sequence,
                      word16(0x0411) + word16(status) + word16(0xc001) + element(1, "\x82\x84\x8b\x96"));
}

inline raw reassociation_request(const kx::mac_address &client, const kx::mac_address &bssid, unsigned sequence,
                                 const kx::mac_address &current) {
    return make_frame(0x20, 0, bssid, client, bssid, sequence,
                      word16(0x0411) + word16(10) + as_bytes(current) + element(0, "office"));
}

inline raw reassociation_response(const kx::mac_address &client, const kx::mac_address &bssid, unsigned sequence,
                                  unsigned status) {
    return make_frame(0x30, 0, client, bssid, bssid, sequence, word16(0x0411) + word16(status) + word16(0xc002));
}

inline raw beacon(const kx::mac_address &bssid, std::string_view ssid) {
    return make_frame(0x80, 0, radio::broadcast, bssid, bssid, 7, raw(8) + word16(100) + word16(1) + element(0, ssid));
}

// 0xa0 is a disassociation, 0xc0 a deauthentication.
inline raw departure(std::uint8_t kind, const kx::mac_address &receiver, const kx::mac_address &transmitter,
                     const kx::mac_address &bssid, unsigned sequence, unsigned reason) {
    return make_frame(kind, 0, receiver, transmitter, bssid, sequence, word16(reason));
}

// A data frame from the station to its access point with an ARP packet of `sender`.
inline raw arp(const kx::mac_address &station, const kx::mac_address &bssid, const kx::mac_address &sender,
               std::initializer_list<std::uint8_t> ip) {
    return make_frame(0x08, 0x01, bssid, station, radio::broadcast, 20,
                      raw{0xaa, 0xaa, 0x03, 0, 0, 0, 0x08, 0x06, 0, 1, 8, 0, 6, 4, 0, 1} + as_bytes(sender) + raw(ip) +
                          raw(6) + raw{10, 0, 10, 1});
}

// A data frame from the access point to the station with a DHCP reply of type `type` for the address `ip`.
inline raw dhcp(const kx::mac_address &client, const kx::mac_address &bssid, std::uint8_t type,
                std::initializer_list<std::uint8_t> ip) {
    const raw bootp = raw{2, 1, 6, 0, 0x12, 0x34, 0x56, 0x78} + raw(8) + raw(ip) + raw(8) + as_bytes(client) +
                      raw(10 + 64 + 128) + raw{0x63, 0x82, 0x53, 0x63, 0, 54, 4, 10, 0, 10, 1, 53, 1, type, 255};
    const auto udp_length = static_cast<std::uint8_t>((8 + bootp.size()) & 0xffU);
    const auto ip_length = static_cast<std::uint8_t>((28 + bootp.size()) & 0xffU);
    const raw packet = raw{0x45, 0, 1, ip_length, 0, 1, 0, 0, 64, 17, 0, 0, 10, 0, 10, 1} + raw(ip) +
                       raw{0, 67, 0, 68, static_cast<std::uint8_t>((8 + bootp.size()) >> 8U), udp_length, 0, 0} + bootp;
    return make_frame(0x08, 0x02, client, bssid, bssid, 21, raw{0xaa, 0xaa, 0x03, 0, 0, 0, 0x08, 0x00} + packet);
}

inline raw fcs_of(const raw &frame) {
    const std::uint32_t check = radio::frame_check_sequence(frame);
    return word16(check) + word16(check >> 16U);
}

}  // namespace radio_frames

#endif
