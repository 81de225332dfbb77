// The capture headers before an 802.11 frame, and the FCS after it.
#ifndef LAB_RADIO_LINK_HEADER_H
#define LAB_RADIO_LINK_HEADER_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "lab/radio/bytes.h"

namespace radio {

// Why a frame was skipped.
enum class skip : std::uint8_t {
    cut,          // the capture holds only the beginning of the frame
    link_header,  // the header in front of the frame is malformed
    bad_fcs,      // the capturing radio received the frame damaged
    malformed,    // the frame's contents are inconsistent
};
inline constexpr std::array<std::string_view, 4> skip_names = {"cut", "link_header", "bad_fcs", "malformed"};

// libpcap's link types (DLT_*), with the same values in pcap and pcapng files.
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

// Extracts the 802.11 frame from a captured packet that had `original_length` bytes on the air. Removes the FCS when
// the header indicates one. When the header gives no indication, removes the last four bytes if they are the frame's
// FCS.
bare_frame strip_link_header(int link, bytes packet, std::size_t original_length);

// The frame check sequence of `frame` (IEEE 802.11-2020, 9.2.4.8). Its bytes follow the frame in little-endian order.
std::uint32_t frame_check_sequence(bytes frame);

}  // namespace radio

#endif
