#include "radiod/hostapd/events.h"

#include <algorithm>
#include <utility>

#include "common/hex.h"
#include "common/mac_address.h"

namespace radiod {
namespace {

// The front of `text` up to a space or its end, which is taken from `text` with the space.
std::string_view take_word(std::string_view &text) {
    const std::string_view word = text.substr(0, text.find(' '));
    text.remove_prefix(std::min(word.size() + 1, text.size()));
    return word;
}

template <typename Event>
std::optional<hostapd_event> station_event(std::string_view arguments) {
    const auto station = kx::parse_mac(take_word(arguments));
    if (!station) {
        return std::nullopt;
    }
    return Event{*station};
}

std::optional<hostapd_event> probe_event(std::string_view arguments) {
    constexpr std::string_view prefix = "sa=";
    if (!arguments.starts_with(prefix)) {
        return std::nullopt;
    }
    arguments.remove_prefix(prefix.size());
    return station_event<station_heard>(arguments);
}

std::optional<hostapd_event> frame_event(std::string_view arguments) {
    constexpr std::string_view prefix = "buf=";
    const std::string_view word = take_word(arguments);
    if (!word.starts_with(prefix)) {
        return std::nullopt;
    }
    const auto bytes = kx::parse_hex(word.substr(prefix.size()));
    if (!bytes) {
        return std::nullopt;
    }
    auto frame = parse_frame(*bytes);
    if (!frame) {
        return std::nullopt;
    }
    return frame_received{std::move(*frame)};
}

}  // namespace

std::optional<hostapd_event> parse_event(std::string_view line) {
    constexpr std::size_t level_size = 3;  // "<3>"
    if (line.size() < level_size || line[0] != '<' || line[2] != '>') {
        return std::nullopt;
    }
    line.remove_prefix(level_size);
    const std::string_view name = take_word(line);
    if (name == "AP-MGMT-FRAME-RECEIVED") {
        return frame_event(line);
    }
    if (name == "RX-PROBE-REQUEST") {
        return probe_event(line);
    }
    if (name == "AP-STA-CONNECTED") {
        return station_event<station_connected>(line);
    }
    if (name == "AP-STA-DISCONNECTED") {
        return station_event<station_disconnected>(line);
    }
    if (name == "AP-STA-POLL-OK") {
        return station_event<station_polled>(line);
    }
    if (name == "EAPOL-4WAY-HS-COMPLETED") {
        return station_event<handshake_completed>(line);
    }
    if (name == "AP-ENABLED" || name == "INTERFACE-ENABLED") {
        return ap_enabled{};
    }
    if (name == "AP-DISABLED" || name == "INTERFACE-DISABLED") {
        return ap_disabled{};
    }
    if (name == "CTRL-EVENT-TERMINATING") {
        return terminating{};
    }
    return std::nullopt;
}

}  // namespace radiod
