// Who comes to a VAP and who leaves, from what hostapd and the kernel report.
#ifndef RADIOD_STATIONS_STATION_TRACKER_H
#define RADIOD_STATIONS_STATION_TRACKER_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <vector>

#include "radiod/hostapd/events.h"

namespace radiod {

// A station has associated and is authorized.
struct arrival {
    mac_address station;
    std::optional<mac_address> previous_bssid;  // the other BSS that it came from
    akm suite;                                  // `other` when the request was not seen
};

struct departure {
    mac_address station;
    bool roamed_in;           // its arrival had a previous BSSID
    bool in_hostapd = false;  // the kernel has lost it, and hostapd has not noticed
};

// The kind of an arrival is in the station's request, which hostapd reports as a frame before it grants or refuses it.
// The request is granted when hostapd then reports the station as connected. It does not when it still lists the
// station, which happens with protected management frames. Then the kernel has removed the station, and a 4-way
// handshake grants the request, or an authorized station in the kernel.
//
// Handlers must not call the tracker. Times do not decrease.
class station_tracker {
public:
    using time = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds request_life{60};  // EAP may wait for a user in between
    static constexpr std::chrono::seconds refused_life{10};  // of a refused request, see `refusal`
    static constexpr std::chrono::seconds gone_limit{2};     // between DEL_STATION and NEW_STATION
    static constexpr std::chrono::seconds away_limit{5};     // of hostapd, until resync()
    static constexpr std::size_t stations_max = 2048;

    explicit station_tracker(const mac_address &bssid) : bssid_(bssid) {}

    std::function<void(const arrival &)> on_arrival;
    std::function<void(const departure &)> on_departure;

    void handle(const hostapd_event &event, time now);
    // The kernel lists the station: after NEW_STATION, and of a station dump.
    void kernel_station(const mac_address &station, bool authorized, time now);
    // DEL_STATION, or a station dump lacks the station.
    void kernel_gone(const mac_address &station, time now);

    // hostapd does not answer. Its stations depart after away_limit.
    void hostapd_lost(time now);
    // The stations that are authorized by hostapd's and the kernel's view, once hostapd reports events. All of them
    // arrive, those of before again. Others depart.
    void resync(std::span<const mac_address> authorized, time now);
    // To be called about once a second.
    void expire(time now);

    // A station is back in the kernel, and hostapd has not reported it. A station dump shows when it is authorized.
    bool has_open_return() const;

    bool is_present(const mac_address &station) const;
    // Of its last request; `other` when that was not seen.
    akm suite_of(const mac_address &station) const;
    std::vector<mac_address> present() const;
    // Stations in memory, present or not.
    std::size_t size() const { return stations_.size(); }

private:
    struct origin {
        std::optional<mac_address> previous_bssid;
        akm suite = akm::other;
    };
    struct request {
        origin from;
        time at;
    };
    // hostapd refuses a reassociation by a PMK of SAE that it does not have, with status 53, invalid PMKID (IEEE
    // 802.11-2020, 9.4.1.9). The station then authenticates with its password, and its association request does not
    // name the access point that it comes from.
    struct refusal {
        mac_address previous_bssid;
        time at;
        bool has_retried = false;  // by SAE
    };
    struct entry {
        std::optional<origin> arrived;   // present
        std::optional<request> waiting;  // neither granted nor expired
        std::optional<refusal> refused;  // or about to be granted
        std::optional<time> gone_since;  // present, but no longer in the kernel
        bool was_gone = false;           // from the kernel, since its arrival
    };
    using table = std::map<mac_address, entry>;

    void receive(const management_frame &frame, time now);
    void receive_request(const management_frame &frame, entry &known, time now);
    std::optional<mac_address> previous_of(const management_frame &frame) const;
    void grant_request(const mac_address &station, entry &known, time now);
    void grant_if_new(const mac_address &station, entry &known, time now);
    void arrive(const mac_address &station, entry &known, const origin &from);
    void depart(const mac_address &station, entry &known, bool in_hostapd = false);
    void all_depart();
    entry *find(const mac_address &station);
    entry *find_or_add(const mac_address &station);

    mac_address bssid_;
    table stations_;
    std::optional<time> away_since_;
};

}  // namespace radiod

#endif
