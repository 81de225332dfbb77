// What a capture puts in front of an 802.11 frame and behind it.
#ifndef LAB_RADIO_LINK_HEADER_H
#define LAB_RADIO_LINK_HEADER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>

namespace radio {

using bytes = std::span<const std::uint8_t>;

// Why a frame was not listened to.
enum class skip : std::uint8_t {
    cut,          // the capture holds only the beginning of the frame
    link_header,  // the header in front of the frame is malformed
    bad_fcs,      // the capturing radio heard the frame damaged
    malformed,    // the frame contradicts itself
};
inline constexpr std::array<std::string_view, 4> skip_names = {"cut", "link_header", "bad_fcs", "malformed"};

// Link types as libpcap numbers them (DLT_*); the same values in pcap and pcapng files.
enum link_type : int {
    link_80211 = 105,
    link_prism = 119,
    link_radiotap = 127,
    link_avs = 163,
    link_ppi = 192,
};
bool is_wireless(int link);

struct bare_frame {
    std::optional<skip> skipped{};  // when set, the rest is meaningless
    bytes frame{};                  // without its FCS
    bool padded = false;            // the MAC header is padded to a multiple of 4 bytes
};

// Takes the 802.11 frame out of a captured packet of `original_length` bytes on the air. The FCS is removed when the
// header says there is one; where the header does not say, when the last four bytes are the frame's checksum.
bare_frame strip_link_header(int link, bytes packet, std::size_t original_length);

// The frame check sequence of `frame` (IEEE 802.11-2020, 9.2.4.8), whose bytes follow the frame lowest first.
std::uint32_t frame_check_sequence(bytes frame);

}  // namespace radio

#endif
