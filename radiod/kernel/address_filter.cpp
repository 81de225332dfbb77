#include "radiod/kernel/address_filter.h"

#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <netinet/in.h>

#include <array>
#include <cstddef>

namespace radiod {
namespace {

constexpr std::size_t destination_at = 0, source_at = 6;
constexpr std::uint32_t ethertype_at = 12;
constexpr std::uint32_t payload_at = 14;
constexpr std::uint32_t tag_size = 4;  // IEEE 802.1Q-2018, 9.5

// Instruction numbers that are jumped to.
enum place : std::uint8_t {
    behind_tag = 5,
    plain_ip = 8,
    tagged_ip = 17,
    client_port = 25,
    arp = 28,
    pass = 30,
    drop = 31
};

constexpr int load8 = BPF_LD | BPF_B | BPF_ABS;
constexpr int load16 = BPF_LD | BPF_H | BPF_ABS;
constexpr int load_port = BPF_LD | BPF_H | BPF_IND;  // relative to the IP header's length
constexpr int load_ip_header_length = BPF_LDX | BPF_B | BPF_MSH;
constexpr int load_ancillary = BPF_LD | BPF_W | BPF_ABS;
constexpr int if_equal = BPF_JMP | BPF_JEQ | BPF_K;
constexpr int if_any_bit = BPF_JMP | BPF_JSET | BPF_K;
constexpr int go = BPF_JMP | BPF_JA;
constexpr int end = BPF_RET | BPF_K;

constexpr sock_filter run(int code, std::uint32_t operand) { return {static_cast<std::uint16_t>(code), 0, 0, operand}; }

// Jumps to `yes` or `no`; `here` is the instruction's own number.
constexpr sock_filter test(int here, int code, std::uint32_t operand, int yes, int no) {
    return {static_cast<std::uint16_t>(code), static_cast<std::uint8_t>(yes - here - 1),
            static_cast<std::uint8_t>(no - here - 1), operand};
}

constexpr std::uint32_t ip_fragment_at = payload_at + 6, ip_protocol_at = payload_at + 9;
constexpr std::uint32_t source_port_at = payload_at, destination_port_at = payload_at + 2;
constexpr std::uint32_t fragment_offset_bits = 0x1fff;
constexpr std::uint32_t server_port = 67, dhcp_client_port = 68;
constexpr auto packet_type = static_cast<std::uint32_t>(SKF_AD_OFF + SKF_AD_PKTTYPE);
constexpr std::uint32_t whole_frame = 0xffff;

// The kernel takes a VLAN tag off before a packet socket gets the frame, but not the second of two.
constexpr std::array<sock_filter, 32> program{
    run(load16, ethertype_at),
    test(1, if_equal, ETH_P_ARP, arp, 2),
    test(2, if_equal, ETH_P_IP, plain_ip, 3),
    test(3, if_equal, ETH_P_8021Q, behind_tag, 4),
    test(4, if_equal, ETH_P_8021AD, behind_tag, drop),
    run(load16, ethertype_at + tag_size),  // behind_tag
    test(6, if_equal, ETH_P_ARP, arp, 7),
    test(7, if_equal, ETH_P_IP, tagged_ip, drop),
    run(load8, ip_protocol_at),  // plain_ip
    test(9, if_equal, IPPROTO_UDP, 10, drop),
    run(load16, ip_fragment_at),
    test(11, if_any_bit, fragment_offset_bits, drop, 12),
    run(load_ip_header_length, payload_at),
    run(load_port, source_port_at),
    test(14, if_equal, server_port, 15, drop),
    run(load_port, destination_port_at),
    run(go, client_port - 16 - 1),
    run(load8, ip_protocol_at + tag_size),  // tagged_ip
    test(18, if_equal, IPPROTO_UDP, 19, drop),
    run(load16, ip_fragment_at + tag_size),
    test(20, if_any_bit, fragment_offset_bits, drop, 21),
    run(load_ip_header_length, payload_at + tag_size),
    run(load_port, source_port_at + tag_size),
    test(23, if_equal, server_port, 24, drop),
    run(load_port, destination_port_at + tag_size),
    test(25, if_equal, dhcp_client_port, 26, drop),  // client_port
    run(load_ancillary, packet_type),
    test(27, if_equal, PACKET_OUTGOING, pass, drop),
    run(load_ancillary, packet_type),  // arp
    test(29, if_equal, PACKET_OUTGOING, drop, pass),
    run(end, whole_frame),  // pass
    run(end, 0),            // drop
};

std::uint16_t ethertype_of(std::span<const std::uint8_t> frame, std::size_t at) {
    return static_cast<std::uint16_t>(frame[at] << 8 | frame[at + 1]);
}

}  // namespace

std::span<const sock_filter> address_filter() { return program; }

std::optional<seen_address> find_address(std::span<const std::uint8_t> frame) {
    if (frame.size() < payload_at + tag_size) {
        return std::nullopt;
    }
    std::uint16_t ethertype = ethertype_of(frame, ethertype_at);
    std::size_t payload = payload_at;
    if (ethertype == ETH_P_8021Q || ethertype == ETH_P_8021AD) {
        ethertype = ethertype_of(frame, ethertype_at + tag_size);
        payload += tag_size;
    }
    const mac_address source = mac_at(&frame[source_at]);
    std::optional<kx::used_address> used;
    if (ethertype == kx::ethertype_arp) {
        used = kx::sender_of_arp(source, frame.subspan(payload));
    } else if (ethertype == kx::ethertype_ipv4) {
        used = kx::client_of_dhcp(mac_at(&frame[destination_at]), frame.subspan(payload));
    }
    return used ? std::optional(seen_address{.used = *used, .source = source}) : std::nullopt;
}

}  // namespace radiod
