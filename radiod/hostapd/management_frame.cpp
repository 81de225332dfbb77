#include "radiod/hostapd/management_frame.h"

#include <algorithm>
#include <array>

namespace radiod {
namespace {

using bytes = std::span<const std::uint8_t>;

// Takes fields from the front of a frame or of an element. After a field that is missing or cut nothing is left.
class field_reader {
public:
    explicit field_reader(bytes data) : left_(data) {}

    bytes take(std::size_t count) {
        if (left_.size() < count) {
            failed_ = true;
            left_ = {};
            return {};
        }
        const bytes taken = left_.first(count);
        left_ = left_.subspan(count);
        return taken;
    }
    std::uint16_t little16() {
        const bytes taken = take(2);
        return taken.empty() ? std::uint16_t{0} : static_cast<std::uint16_t>(taken[0] | taken[1] << 8);
    }
    std::uint32_t selector() {
        std::uint32_t value = 0;
        for (const std::uint8_t byte : take(4)) {
            value = value << 8U | byte;
        }
        return value;
    }
    mac_address mac() {
        mac_address address{};
        const bytes taken = take(mac_address::size());
        std::ranges::copy(taken, address.begin());
        return address;
    }

    bool failed() const { return failed_; }
    std::size_t left() const { return left_.size(); }

private:
    bytes left_;
    bool failed_ = false;
};

// Numbers of elements (table 9-92).
constexpr std::uint8_t element_rsn = 48;
constexpr std::uint8_t element_mobility_domain = 54;
constexpr std::uint8_t element_fast_bss_transition = 55;
constexpr std::uint8_t element_vendor = 221;

// IEEE 802.11-2020, 9.4.2.24. The element may end after any field; an AKM that is missing is 802.1X.
void read_rsn(bytes contents, management_frame &frame) {
    field_reader in(contents);
    if (in.little16() != 1) {
        frame.suite = akm::other;
        return;
    }
    in.selector();                            // group data cipher
    in.take(std::size_t{4} * in.little16());  // pairwise ciphers
    const std::uint16_t suites = in.little16();
    frame.suite = suites == 0 ? akm::ieee8021x : akm_of_selector(in.selector());
    in.take(suites == 0 ? 0 : std::size_t{4} * (suites - 1U));
    in.little16();  // capabilities
    for (std::uint16_t ids = in.little16(); ids > 0 && in.left() >= pmkid{}.size(); ids--) {
        std::ranges::copy(in.take(pmkid{}.size()), frame.pmkids.emplace_back().begin());
    }
}

// The element of WPA, which came before RSN.
bool is_wpa(bytes contents) {
    constexpr std::array<std::uint8_t, 4> type = {0x00, 0x50, 0xf2, 0x01};
    return contents.size() >= type.size() && std::ranges::equal(contents.first(type.size()), type);
}

void read_elements(field_reader &in, management_frame &frame) {
    bool has_rsn = false;
    while (in.left() >= 2) {
        const bytes head = in.take(2);
        const bytes contents = in.take(head[1]);
        if (in.failed()) {
            return;
        }
        if (head[0] == element_rsn && !has_rsn) {
            has_rsn = true;
            read_rsn(contents, frame);
        } else if (head[0] == element_mobility_domain || head[0] == element_fast_bss_transition) {
            frame.ft = true;
        } else if (head[0] == element_vendor && !has_rsn && is_wpa(contents)) {
            frame.suite = akm::other;
        }
    }
}

std::optional<frame_kind> kind_of(std::uint8_t subtype) {
    switch (subtype) {  // table 9-1
        case 0:
            return frame_kind::assoc_request;
        case 2:
            return frame_kind::reassoc_request;
        case 10:
            return frame_kind::disassoc;
        case 11:
            return frame_kind::auth;
        case 12:
            return frame_kind::deauth;
        default:
            return std::nullopt;
    }
}

// The fixed fields (9.3.3.5, 9.3.3.7, 9.3.3.11). False when they are incomplete.
bool read_fields(field_reader &in, management_frame &frame) {
    switch (frame.kind) {
        case frame_kind::assoc_request:
            in.take(4);  // capabilities, listen interval
            break;
        case frame_kind::reassoc_request:
            in.take(4);
            frame.current_ap = in.mac();
            break;
        case frame_kind::auth:
            frame.auth_algorithm = in.little16();
            in.take(4);  // transaction, status
            break;
        case frame_kind::disassoc:
        case frame_kind::deauth:
            break;
    }
    return !in.failed();
}

bool has_elements(const management_frame &frame) {
    switch (frame.kind) {
        case frame_kind::assoc_request:
        case frame_kind::reassoc_request:
            return true;
        case frame_kind::auth:
            return frame.auth_algorithm == auth_ft;  // SAE has other fields there
        default:
            return false;
    }
}

bool is_station(const mac_address &address) { return (address[0] & 1U) == 0 && address != mac_address{}; }

}  // namespace

std::optional<management_frame> parse_frame(bytes data) {
    field_reader in(data);
    const bytes control = in.take(2);
    constexpr std::uint8_t version_and_type = 0x0f;
    if (in.failed() || (control[0] & version_and_type) != 0) {
        return std::nullopt;
    }
    const std::optional<frame_kind> kind = kind_of(control[0] >> 4U);
    if (!kind) {
        return std::nullopt;
    }
    management_frame frame;
    frame.kind = *kind;
    in.take(2);  // duration
    const mac_address receiver = in.mac();
    frame.station = in.mac();
    frame.bssid = in.mac();
    in.take(2);  // sequence control
    const bool has_ht_control = (control[1] & 0x80U) != 0;
    in.take(has_ht_control ? 4 : 0);
    // An encrypted authentication frame is one of shared key authentication.
    const bool is_encrypted = (control[1] & 0x40U) != 0;
    if (in.failed() || receiver != frame.bssid || !is_station(frame.station) || frame.station == frame.bssid ||
        (is_encrypted && frame.kind == frame_kind::auth)) {
        return std::nullopt;
    }
    if (!read_fields(in, frame)) {
        return std::nullopt;
    }
    if (has_elements(frame)) {
        read_elements(in, frame);
    }
    return frame;
}

}  // namespace radiod
