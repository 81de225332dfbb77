#include "controller/capture_blocks.h"

#include <cstring>

namespace controller::capture_blocks {

namespace {

constexpr std::uint32_t section_block = 0x0a0d0d0a;
constexpr std::uint32_t interface_block = 1;
constexpr std::uint32_t packet_block = 6;
constexpr std::uint32_t byte_order_magic = 0x1a2b3c4d;
constexpr std::uint16_t link_exported_pdu = 252;  // LINKTYPE_WIRESHARK_UPPER_PDU

constexpr std::uint16_t option_end = 0;
constexpr std::uint16_t option_section_program = 4;
constexpr std::uint16_t option_interface_name = 2;
constexpr std::uint16_t option_interface_description = 3;
constexpr std::uint16_t option_packet_flags = 2;
constexpr std::uint16_t option_packet_dropped = 4;
constexpr std::uint32_t flag_inbound = 1;
constexpr std::uint32_t flag_outbound = 2;

// Wireshark's epan/exported_pdu.h, big-endian.
constexpr std::uint16_t tag_end = 0;
constexpr std::uint16_t tag_protocol = 12;
constexpr std::uint16_t tag_ipv4_source = 20;
constexpr std::uint16_t tag_ipv4_destination = 21;

template <typename Integer>
void put(std::string &to, Integer value) {
    char bytes[sizeof(value)];
    std::memcpy(bytes, &value, sizeof(value));
    to.append(bytes, sizeof(value));
}

void put_big(std::string &to, std::uint32_t value, unsigned width) {
    for (unsigned i = width; i > 0; i--) {
        to += static_cast<char>(value >> 8 * (i - 1));
    }
}

void pad(std::string &to) { to.resize((to.size() + 3) / 4 * 4); }

void put_option(std::string &to, std::uint16_t code, std::string_view value) {
    put(to, code);
    put(to, static_cast<std::uint16_t>(value.size()));
    to += value;
    pad(to);
}

template <typename Integer>
void put_number_option(std::string &to, std::uint16_t code, Integer value) {
    std::string content;
    put(content, value);
    put_option(to, code, content);
}

void put_tag(std::string &to, std::uint16_t tag, std::string value) {
    pad(value);
    put_big(to, tag, 2);
    put_big(to, static_cast<std::uint32_t>(value.size()), 2);
    to += value;
}

std::string block(std::uint32_t type, const std::string &body) {
    const auto length = static_cast<std::uint32_t>(body.size() + 3 * sizeof(std::uint32_t));
    std::string result;
    put(result, type);
    put(result, length);
    result += body;
    put(result, length);
    return result;
}

std::string exported(const packet &what) {
    std::string content;
    put_tag(content, tag_protocol, std::string(what.protocol));
    if (what.ipv4 != 0) {
        std::string address;
        put_big(address, what.ipv4, 4);
        put_tag(content, what.to_controller ? tag_ipv4_source : tag_ipv4_destination, address);
    }
    put_tag(content, tag_end, "");
    content.append(what.message.begin(), what.message.end());
    return content;
}

}  // namespace

std::string section(std::string_view program) {
    std::string body;
    put(body, byte_order_magic);
    put(body, std::uint16_t{1});  // version 1.0
    put(body, std::uint16_t{0});
    put(body, std::int64_t{-1});  // of unknown length
    put_option(body, option_section_program, program);
    put_option(body, option_end, "");
    return block(section_block, body);
}

std::string interface(std::string_view name, std::string_view description) {
    std::string body;
    put(body, link_exported_pdu);
    put(body, std::uint16_t{0});
    put(body, std::uint32_t{0});  // packets are whole
    put_option(body, option_interface_name, name);
    put_option(body, option_interface_description, description);
    put_option(body, option_end, "");
    return block(interface_block, body);
}

std::string enhanced_packet(const packet &what) {
    const std::string content = exported(what);
    const auto size = static_cast<std::uint32_t>(content.size());
    const auto time = static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::microseconds>(what.at.time_since_epoch()).count());
    std::string body;
    put(body, what.interface);
    put(body, static_cast<std::uint32_t>(time >> 32));
    put(body, static_cast<std::uint32_t>(time));
    put(body, size);  // captured
    put(body, size);  // of the packet
    body += content;
    pad(body);
    put_number_option(body, option_packet_flags, what.to_controller ? flag_inbound : flag_outbound);
    if (what.dropped > 0) {
        put_number_option(body, option_packet_dropped, what.dropped);
    }
    put_option(body, option_end, "");
    return block(packet_block, body);
}

}  // namespace controller::capture_blocks
