// What the daemon is told of the stations: arrivals, departures and addresses, and again whatever it may have missed.
#ifndef RADIOD_ANNOUNCER_H
#define RADIOD_ANNOUNCER_H

#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "common/mac_address.h"
#include "radio_service/notifications.h"

namespace radiod {

using kx::mac_address;

// The daemon drops notifications while it has no controller, and loads its VAPs once it has one again. all_again() then
// repeats the departures since the last load, and the stations. An arrival or an address that the daemon has already
// changes nothing there.
class announcer {
public:
    struct place {  // of a station
        std::string ifname;
        mac_address bssid{};
    };

    explicit announcer(std::function<void(kx::notification)> send) : send_(std::move(send)) {}

    // `previous`: the BSSID of another VAP that the station came from.
    void arrived(const place &at, const mac_address &station, const std::optional<mac_address> &previous);
    void departed(const place &from, const mac_address &station);
    // Of a station that an earlier process announced.
    void departed_unseen(const place &from, const mac_address &station, bool roamed_in);
    // The daemon itself has sent the station away.
    void sent_away(const place &from, const mac_address &station);
    // The station's IPv4 address, in the host's order. Ignored when the station is not there.
    void has_address(const place &at, const mac_address &station, std::uint32_t ip);

    // `is_heard`: whether a station has been heard lately. One that has not may be at another access point, whose
    // announcement must not be undone.
    void all_again(const std::function<bool(const place &, const mac_address &)> &is_heard);

private:
    static constexpr std::size_t departures_max = 2048;

    struct station {
        place at;
        std::optional<mac_address> previous;
        std::uint32_t ip = 0;       // 0: unknown
        std::uint64_t arrival = 0;  // number, in the order of arrivals
    };
    using key = std::pair<mac_address, mac_address>;  // BSSID, station

    void send_arrival(const mac_address &address, const station &its);
    std::optional<station> remove(const place &from, const mac_address &address);

    std::function<void(kx::notification)> send_;
    std::map<key, station> stations_;
    std::deque<std::pair<key, kx::notification>> departures_;  // since the last load
    std::uint64_t last_arrival_ = 0;
};

}  // namespace radiod

#endif
