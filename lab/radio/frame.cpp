#include "lab/radio/frame.h"

#include <algorithm>

namespace radio {
namespace {

constexpr std::size_t control_size = 10;  // frame control, duration, receiver: the shortest frame
constexpr std::size_t header_size = 24;

}  // namespace

std::optional<frame> parse_frame(bytes data, bool padded) {
    if (data.size() < control_size || (data[0] & 3U) != 0) {
        return std::nullopt;
    }
    frame result;
    result.type = static_cast<frame_type>((data[0] >> 2U) & 3U);
    result.subtype = data[0] >> 4U;
    if (result.type == frame_type::control || result.type == frame_type::extension) {
        return result;
    }
    const std::uint8_t flags = data[1];
    result.to_ds = (flags & 0x01U) != 0;
    result.from_ds = (flags & 0x02U) != 0;
    result.more_fragments = (flags & 0x04U) != 0;
    result.retry = (flags & 0x08U) != 0;
    result.is_protected = (flags & 0x40U) != 0;
    const bool order = (flags & 0x80U) != 0;

    const bool is_data = result.type == frame_type::data;
    const bool qos = is_data && (result.subtype & 8U) != 0;
    const bool four_addresses = is_data && result.to_ds && result.from_ds;
    const bool ht_control = order && (qos || !is_data);
    const std::size_t qos_at = header_size + (four_addresses ? 6U : 0U);
    std::size_t length = qos_at + (qos ? 2U : 0U) + (ht_control ? 4U : 0U);
    if (is_data && padded) {
        length = (length + 3) / 4 * 4;
    }
    if (data.size() < length) {
        return std::nullopt;
    }
    if (qos) {
        result.tid = static_cast<std::uint8_t>(data[qos_at] & 0x0fU);
        result.aggregate = (data[qos_at] & 0x80U) != 0;
    }
    result.receiver = mac_at(data, 4);
    result.transmitter = mac_at(data, 10);
    result.address3 = mac_at(data, 16);
    result.sequence = little16(data, 22);
    result.body = data.subspan(length);
    return result;
}

std::optional<network_body> parse_network_body(bytes body, std::size_t fixed) {
    if (body.size() < fixed) {
        return std::nullopt;
    }
    network_body result{.fields = body.first(fixed), .ssid = {}};
    bool ssid_fits = true;
    const bool complete = for_each_element(body.subspan(fixed), [&](std::uint8_t id, bytes contents) {
        if (id != 0) {
            return;
        }
        ssid_fits = ssid_fits && contents.size() <= 32;
        // A hidden SSID is sent empty or as zeros.
        if (std::ranges::any_of(contents, [](std::uint8_t byte) { return byte != 0; })) {
            result.ssid.assign(contents.begin(), contents.end());
        }
    });
    if (!complete || !ssid_fits) {
        return std::nullopt;
    }
    return result;
}

}  // namespace radio
