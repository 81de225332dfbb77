// The control service of the lab's radio: local messages (wire/local_ipc.h) to the endpoint "/kx/ipc/radio". A request
// (flags 2) is answered to its sender with the same id and flags 2. Malformed and unknown messages get no answer.
#ifndef LAB_RADIO_RADIO_CONTROL_H
#define LAB_RADIO_RADIO_CONTROL_H

#include <cstdint>
#include <string_view>

namespace radio {

inline constexpr std::string_view endpoint_radio = "/kx/ipc/radio";

enum : std::uint32_t {
    // Request: the stations that the radio serves. Payload: none, or one big-endian word, the number of stations to
    // skip. The answer's payload is one JSON object without a terminator:
    //
    //   {"state": "waiting" | "playing" | "played", "total": 40, "from": 0, "stations": [
    //     {"client": "02:...", "bssid": "02:...", "ifname": "wlan0", "ip": "10.0.10.5" | "0.0.0.0", "roamed": false,
    //      "pmk": false, "here": true, "since": 1700000000000}, ...]}
    //
    // with as many stations as fit into one message, ordered by address; the next page starts at from + the number of
    // stations. `pmk`: a fetched PMK was installed. `here`: false when the station has moved to another access point
    // without notice to this one; always true for a capture, which does not show it. `since`: the time of the
    // association, in milliseconds of the real-time clock.
    RADIO_MSG_STATIONS = 1001,

    // Notification: installs a PMK. Payload: the 54 bytes of pmk_info_message (wire/local_messages.h) with sub-type
    // 129, unchanged from the daemon's command to hostapd. A PMK for a station that is not on that BSSID is counted and
    // ignored.
    RADIO_MSG_INSTALL_PMK = 1002,
};

}  // namespace radio

#endif
