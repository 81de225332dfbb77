// What happens between stations and access points, whoever tells it: a capture or a scenario.
#ifndef LAB_RADIO_AIR_EVENT_H
#define LAB_RADIO_AIR_EVENT_H

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "lab/radio/mac.h"

namespace radio {

using pmk = std::array<std::uint8_t, 32>;

// Time since the capture's first frame or the scenario's beginning.
using lab_time = std::chrono::microseconds;

enum class air : std::uint8_t {
    association,    // granted by the access point
    reassociation,  // granted; last_bssid
    refusal,        // of either; code is the status
    departure,      // disassociated or deauthenticated; by_station, code is the reason
    address,        // the station uses ip
    pmk_add,        // hostapd has a new PMK for the station
    pmk_fetch,      // hostapd has no PMK for the station
    portal,         // the station's user has passed the captive portal
};

struct air_event {
    air what = air::association;
    mac_address client{};  // of a departure, broadcast: every station of the BSSID
    mac_address bssid{};
    mac_address last_bssid{};  // zero when nobody knows
    std::uint32_t ip = 0;      // as a number: 10.0.0.1 is 0x0a000001
    std::uint16_t code = 0;    // 0 when it could not be read
    bool by_station = false;
    pmk key{};
};

struct timed_event {
    lab_time at{};
    air_event event;
};

// Where events come from, in the order of their times.
class event_source {
public:
    enum class step : std::uint8_t { event, nothing_yet, end };

    virtual ~event_source() = default;
    // Does a bounded piece of work; `event` is written when the result says so.
    virtual step next(timed_event &event) = 0;

    // What came to light about the source itself that people should know, and whether events may be missing for it.
    struct damage {
        std::string what;  // empty: nothing
        bool is_loss = false;
    };
    virtual damage found_damage() const { return {}; }

    // Whether the station itself takes that BSSID for its access point at that time. Nobody knows, in a capture.
    virtual bool is_here(const mac_address & /*client*/, const mac_address & /*bssid*/, lab_time /*now*/) const {
        return true;
    }
    // The daemon had the station disassociated: what the station does about it, if it is still there at those times.
    virtual std::vector<timed_event> when_sent_away(const mac_address & /*client*/, const mac_address & /*bssid*/,
                                                    lab_time /*now*/) const {
        return {};
    }
};

}  // namespace radio

#endif
