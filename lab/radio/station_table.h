// The stations that one radio serves, each on one of its VAPs.
#ifndef LAB_RADIO_STATION_TABLE_H
#define LAB_RADIO_STATION_TABLE_H

#include <chrono>
#include <cstdint>
#include <map>
#include <vector>

#include "lab/radio/air_event.h"

namespace radio {

using clock = std::chrono::steady_clock;

struct station {
    std::size_t vap = 0;  // index
    std::uint32_t ip = 0;
    bool roamed_in = false;
    bool pmk_installed = false;
    clock::time_point heard;
    std::chrono::system_clock::time_point since;
};

class station_table {
public:
    // Replaces the entry of a station that was already here, on any VAP.
    void join(const mac_address &client, std::size_t vap, bool roamed_in, clock::time_point now);
    // False when the station is not on that VAP.
    bool leave(const mac_address &client, std::size_t vap);
    // The station if it is on that VAP, else null; valid until the table changes.
    station *find(const mac_address &client, std::size_t vap);
    std::vector<mac_address> on_vap(std::size_t vap) const;
    const std::map<mac_address, station> &all() const { return stations_; }

    // The answer to the driver's station list request: driver_station records (wire/driver_records.h), as many as an
    // answer holds.
    std::vector<std::uint8_t> driver_list(std::size_t vap, clock::time_point now) const;

private:
    std::map<mac_address, station> stations_;
};

}  // namespace radio

#endif
