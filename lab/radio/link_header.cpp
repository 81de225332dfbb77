#include "lab/radio/link_header.h"

namespace radio {
namespace {

constexpr std::size_t fcs_size = 4;

enum class fcs : std::uint8_t { absent, present, unknown };

struct link_info {
    std::optional<skip> skipped{};
    std::size_t length = 0;  // of the header
    fcs check = fcs::unknown;
    bool padded = false;
};

constexpr link_info malformed_header{.skipped = skip::link_header};

// radiotap.org: version 0, a pad byte, the header's length, words of presence bits (bit 31: another word follows),
// then the fields, each aligned to its size. Only TSFT (bit 0, 8 bytes) comes before the flags (bit 1, 1 byte).
link_info read_radiotap(bytes packet) {
    if (packet.size() < 8 || packet[0] != 0) {
        return malformed_header;
    }
    const std::size_t length = little16(packet, 2);
    if (length < 8 || length > packet.size()) {
        return malformed_header;
    }
    const std::uint32_t present = little32(packet, 4);
    std::size_t at = 4;
    while ((little32(packet, at) & 0x80000000U) != 0) {
        at += 4;
        if (at + 4 > length) {
            return malformed_header;
        }
    }
    at += 4;
    link_info info{.length = length, .check = fcs::absent};
    if ((present & 2U) == 0) {
        info.check = fcs::unknown;
        return info;
    }
    if ((present & 1U) != 0) {
        at = (at + 7) / 8 * 8 + 8;
    }
    if (at >= length) {
        return malformed_header;
    }
    const std::uint8_t flags = packet[at];
    if ((flags & 0x40U) != 0) {
        info.skipped = skip::bad_fcs;
    }
    if ((flags & 0x10U) != 0) {
        info.check = fcs::present;
    }
    info.padded = (flags & 0x20U) != 0;
    return info;
}

// CACE's Per-Packet Information: version, flags, length, link type, then fields of type, length and data. Field 2
// (802.11 common) has its flags after the 8-byte TSF timer: bit 0: an FCS follows, bit 2: the FCS was wrong.
link_info read_ppi(bytes packet) {
    if (packet.size() < 8 || packet[0] != 0) {
        return malformed_header;
    }
    const std::size_t length = little16(packet, 2);
    if (length < 8 || length > packet.size() || little32(packet, 4) != link_80211) {
        return malformed_header;
    }
    link_info info{.length = length};
    for (std::size_t at = 8; at + 4 <= length;) {
        const std::uint16_t type = little16(packet, at);
        const std::size_t size = little16(packet, at + 2);
        at += 4;
        if (size > length - at) {
            return malformed_header;
        }
        if (type == 2 && size >= 10) {
            const std::uint16_t flags = little16(packet, at + 8);
            info.check = (flags & 1U) != 0 ? fcs::present : fcs::absent;
            if ((flags & 4U) != 0) {
                info.skipped = skip::bad_fcs;
            }
        }
        at += size;
    }
    return info;
}

// AVS capture header, version 1 or 2: magic and length are big-endian.
link_info read_avs(bytes packet) {
    if (packet.size() < 8 || (big32(packet, 0) & 0xfffff000U) != 0x80211000U) {
        return malformed_header;
    }
    const std::uint32_t length = big32(packet, 4);
    if (length < 8 || length > packet.size()) {
        return malformed_header;
    }
    return {.length = length};
}

// Prism II monitor header: message code 0x41 or 0x44 and length, in the byte order of the capturing host. Some drivers
// write the AVS header under the same link type.
link_info read_prism(bytes packet) {
    if (packet.size() < 8) {
        return malformed_header;
    }
    if ((big32(packet, 0) & 0xfffff000U) == 0x80211000U) {
        return read_avs(packet);
    }
    const auto is_code = [](std::uint32_t code) { return code == 0x41 || code == 0x44; };
    const bool little = is_code(little32(packet, 0));
    if (!little && !is_code(big32(packet, 0))) {
        return malformed_header;
    }
    const std::uint32_t length = little ? little32(packet, 4) : big32(packet, 4);
    if (length < 8 || length > packet.size()) {
        return malformed_header;
    }
    return {.length = length};
}

link_info read_link_header(int link, bytes packet) {
    switch (link) {
        case link_80211:
            return {};
        case link_radiotap:
            return read_radiotap(packet);
        case link_ppi:
            return read_ppi(packet);
        case link_prism:
            return read_prism(packet);
        case link_avs:
            return read_avs(packet);
        default:
            return malformed_header;
    }
}

bool ends_in_fcs(bytes frame) {
    return frame.size() > fcs_size &&
           frame_check_sequence(frame.first(frame.size() - fcs_size)) == little32(frame, frame.size() - fcs_size);
}

}  // namespace

bool is_wireless(int link) {
    return link == link_80211 || link == link_prism || link == link_radiotap || link == link_avs || link == link_ppi;
}

std::uint32_t frame_check_sequence(bytes frame) {
    std::uint32_t crc = 0xffffffffU;
    for (const std::uint8_t byte : frame) {
        crc ^= byte;
        for (int bit = 0; bit < 8; ++bit) {
            crc = (crc >> 1) ^ ((crc & 1U) != 0 ? 0xedb88320U : 0U);
        }
    }
    return ~crc;
}

bare_frame strip_link_header(int link, bytes packet, std::size_t original_length) {
    if (packet.size() < original_length) {
        return {.skipped = skip::cut};
    }
    const link_info info = read_link_header(link, packet);
    if (info.skipped) {
        return {.skipped = info.skipped};
    }
    bytes frame = packet.subspan(info.length);
    if (info.check == fcs::present && frame.size() < fcs_size) {
        return {.skipped = skip::malformed};
    }
    if (info.check == fcs::present || (info.check == fcs::unknown && ends_in_fcs(frame))) {
        frame = frame.first(frame.size() - fcs_size);
    }
    return {.frame = frame, .padded = info.padded};
}

}  // namespace radio
