// Events between stations and access points, from a capture or a scenario.
#ifndef LAB_RADIO_AIR_EVENT_H
#define LAB_RADIO_AIR_EVENT_H

#include <array>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "common/mac_address.h"

namespace radio {

using pmk = std::array<std::uint8_t, 32>;

inline constexpr mac_address broadcast = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};

// IEEE 802-2014, 8.2.2: the first bit in transmission marks a group address.
inline bool is_group(const mac_address &mac) { return (mac[0] & 1U) != 0; }

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
    mac_address last_bssid{};  // zero when not known
    std::uint32_t ip = 0;      // as a number: 10.0.0.1 is 0x0a000001
    std::uint16_t code = 0;    // 0 when it could not be read
    bool by_station = false;
    pmk key{};
};

struct timed_event {
    lab_time at{};
    air_event event;
};

// A source of events, in the order of their times.
class event_source {
public:
    enum class step : std::uint8_t { event, nothing_yet, end };

    virtual ~event_source() = default;
    // Does a bounded piece of work. Writes `event` when it returns step::event.
    virtual step next(timed_event &event) = 0;

    // A defect of the source itself, and whether events may be missing because of it.
    struct damage {
        std::string what;  // empty when there is none
        bool is_loss = false;
    };
    virtual damage found_damage() const { return {}; }

    // Whether the station considers itself associated with that BSSID at that time. Always true for a capture, which
    // does not show it.
    virtual bool is_here(const mac_address & /*client*/, const mac_address & /*bssid*/, lab_time /*now*/) const {
        return true;
    }
    // The station's reaction to a disassociation that the daemon ordered. Each event applies only if the station is
    // still there at its time.
    virtual std::vector<timed_event> when_sent_away(const mac_address & /*client*/, const mac_address & /*bssid*/,
                                                    lab_time /*now*/) const {
        return {};
    }
};

}  // namespace radio

#endif
