// What hostapd and the kernel report, down to arrivals and departures. Input: events, each a byte for its kind and a
// block:
//
//   0 a line of hostapd's control interface    4 the kernel has removed a station: its number
//   1 a management frame                       5 seconds pass: one byte
//   2 a station's event: which, its number     6 hostapd does not answer
//   3 a station in the kernel: authorized,     7 hostapd answers again: the numbers of the authorized stations
//     its number
#include <map>
#include <string>
#include <variant>
#include <vector>

#include "common/hex.h"
#include "input.h"
#include "radiod/stations/station_tracker.h"
#include "require.h"

namespace {

using radiod::station_tracker;

constexpr mac_address own_bssid = {0x02, 0x00, 0x00, 0x00, 0x10, 0x01};

mac_address station_number(uint8_t number) { return {0x02, 0x00, 0x00, 0x00, 0x0a, number}; }

// The tracker, and who is there by its own reports.
class followed_tracker {
public:
    followed_tracker() : tracker_(own_bssid) {
        tracker_.on_arrival = [this](const radiod::arrival &event) {
            fuzz::require(event.previous_bssid != own_bssid, "no station roams from the BSS to itself");
            roamed_in_[event.station] = event.previous_bssid.has_value();
        };
        tracker_.on_departure = [this](const radiod::departure &event) {
            const auto found = roamed_in_.find(event.station);
            fuzz::require(found != roamed_in_.end(), "only who has arrived departs");
            fuzz::require(found->second == event.roamed_in, "a departure is of the kind of the arrival");
            roamed_in_.erase(found);
        };
    }

    void take(uint8_t kind, fuzz::input in) {
        switch (kind % 8) {
            case 0:
                take_line(in.rest());
                break;
            case 1:
                take_frame(in.rest());
                break;
            case 2:
                take_station_event(in);
                break;
            case 3: {
                const bool authorized = (in.byte() & 1U) != 0;
                tracker_.kernel_station(station_number(in.byte()), authorized, now_);
                break;
            }
            case 4:
                tracker_.kernel_gone(station_number(in.byte()), now_);
                break;
            case 5:
                now_ += std::chrono::seconds(in.byte());
                tracker_.expire(now_);
                break;
            case 6:
                tracker_.hostapd_lost(now_);
                break;
            default:
                take_list(in);
        }
        check();
    }

private:
    void take_line(std::span<const uint8_t> line) {
        if (const auto event = radiod::parse_event({reinterpret_cast<const char *>(line.data()), line.size()})) {
            tracker_.handle(*event, now_);
        }
    }

    void take_frame(std::span<const uint8_t> bytes) {
        const auto frame = radiod::parse_frame(bytes);
        const auto event = radiod::parse_event("<3>AP-MGMT-FRAME-RECEIVED buf=" + kx::format_hex(bytes));
        fuzz::require(frame.has_value() == event.has_value(), "a frame is an event");
        if (frame) {
            fuzz::require(frame->pmkids.size() <= 15, "an element has room for 15 PMKIDs");
            tracker_.handle(*event, now_);
        }
    }

    void take_station_event(fuzz::input &in) {
        const uint8_t which = in.byte();
        const mac_address station = station_number(in.byte());
        switch (which % 5) {
            case 0:
                tracker_.handle(radiod::station_connected{station}, now_);
                break;
            case 1:
                tracker_.handle(radiod::station_disconnected{station}, now_);
                break;
            case 2:
                tracker_.handle(radiod::handshake_completed{station}, now_);
                break;
            case 3:
                tracker_.handle(radiod::ap_disabled{}, now_);
                break;
            default:
                tracker_.handle(radiod::terminating{}, now_);
        }
    }

    void take_list(fuzz::input &in) {
        std::vector<mac_address> stations;
        while (!in.empty()) {
            stations.push_back(station_number(in.byte()));
        }
        tracker_.resync(stations, now_);
        for (const mac_address &station : stations) {
            fuzz::require(tracker_.is_present(station), "a listed station is present");
        }
    }

    void check() const {
        const std::vector<mac_address> present = tracker_.present();
        fuzz::require(present.size() == roamed_in_.size(), "who has arrived and not departed is present");
        for (const mac_address &station : present) {
            fuzz::require(roamed_in_.contains(station), "who is present has arrived");
        }
        fuzz::require(tracker_.size() <= station_tracker::stations_max, "the memory is bounded");
    }

    station_tracker tracker_;
    std::map<mac_address, bool> roamed_in_;
    station_tracker::time now_{std::chrono::hours(1)};
};

}  // namespace

void fuzz_one(std::span<const uint8_t> bytes) {
    fuzz::input in(bytes);
    followed_tracker tracker;
    while (!in.empty()) {
        const uint8_t kind = in.byte();
        tracker.take(kind, fuzz::input(in.block()));
    }
}
