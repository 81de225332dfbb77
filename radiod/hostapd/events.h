// What hostapd reports on its control interface: "<3>AP-STA-CONNECTED 02:00:00:00:0a:01".
#ifndef RADIOD_HOSTAPD_EVENTS_H
#define RADIOD_HOSTAPD_EVENTS_H

#include <optional>
#include <string_view>
#include <variant>

#include "radiod/hostapd/management_frame.h"

namespace radiod {

// The station is authorized, or no longer.
struct station_connected {
    mac_address station;
};
struct station_disconnected {
    mac_address station;
};
// It scans, associated here or not. Reported after "ATTACH probe_rx_events=1" alone.
struct station_heard {
    mac_address station;
};
// It answered POLL_STA.
struct station_polled {
    mac_address station;
};
// After an association, and after each new pairwise key.
struct handshake_completed {
    mac_address station;
};
struct frame_received {
    management_frame frame;
};
// Of the radio. Only the first BSS of a radio reports them.
struct ap_enabled {};
struct ap_disabled {};
// The control socket is about to be closed.
struct terminating {};

using hostapd_event = std::variant<station_connected, station_disconnected, handshake_completed, frame_received,
                                   ap_enabled, ap_disabled, terminating, station_polled, station_heard>;

// The names of the events are in hostapd's src/common/wpa_ctrl.h. None for any other event, and for what is malformed.
std::optional<hostapd_event> parse_event(std::string_view line);

}  // namespace radiod

#endif
