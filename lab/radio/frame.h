// The parts of the 802.11 MAC frame (IEEE 802.11-2020, clause 9) that the radio uses. Nothing outside the frame is
// read.
#ifndef LAB_RADIO_FRAME_H
#define LAB_RADIO_FRAME_H

#include <cstdint>
#include <optional>
#include <string>

#include "lab/radio/bytes.h"

namespace radio {

enum class frame_type : std::uint8_t { management = 0, control = 1, data = 2, extension = 3 };

// Subtypes of management frames (table 9-1).
enum class management : std::uint8_t {
    association_request = 0,
    association_response = 1,
    reassociation_request = 2,
    reassociation_response = 3,
    probe_response = 5,
    beacon = 8,
    disassociation = 10,
    authentication = 11,
    deauthentication = 12,
};

struct frame {
    frame_type type = frame_type::extension;
    std::uint8_t subtype = 0;
    bool to_ds = false, from_ds = false, more_fragments = false, retry = false, is_protected = false;
    bool aggregate = false;           // the body is an A-MSDU
    std::optional<std::uint8_t> tid;  // of QoS data
    mac_address receiver{}, transmitter{}, address3{};
    std::uint16_t sequence = 0;  // the sequence control field: number << 4 | fragment
    bytes body;
};

// None when the frame is malformed. Only the type and subtype of control and extension frames are parsed.
std::optional<frame> parse_frame(bytes data, bool padded);

// Calls visit(id, contents) for each element in `data`. False when an element exceeds the end.
template <typename F>
bool for_each_element(bytes data, F visit) {
    while (!data.empty()) {
        if (data.size() < 2 || data.size() - 2 < data[1]) {
            return false;
        }
        visit(data[0], data.subspan(2, data[1]));
        data = data.subspan(std::size_t{2} + data[1]);
    }
    return true;
}

// The body of a management frame with an SSID element: fixed fields, then elements.
struct network_body {
    bytes fields;
    std::string ssid;  // empty when it is missing or hidden
};
// `fixed` is the length of the fixed fields in bytes. None when the body is malformed.
std::optional<network_body> parse_network_body(bytes body, std::size_t fixed);

}  // namespace radio

#endif
