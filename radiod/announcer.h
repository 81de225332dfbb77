// What the daemon is told of the stations: arrivals, departures and addresses, and again whatever it may have missed.
#ifndef RADIOD_ANNOUNCER_H
#define RADIOD_ANNOUNCER_H

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "common/mac_address.h"
#include "radio_service/notifications.h"

namespace radiod {

using kx::mac_address;

// The daemon drops notifications while it has no controller, and loads its VAPs once it has one again. all_again() then
// repeats the departures since the last load, and has the stations asked whether they are still there. An arrival or an
// address that the daemon has already changes nothing there. A station that does not answer sleeps, is out of range, or
// is at another access point, whose announcement must not be undone. It is announced when it is heard.
class announcer {
public:
    using time_point = std::chrono::steady_clock::time_point;

    struct place {  // of a station
        std::string ifname;
        mac_address bssid{};
    };

    // hostapd disconnects a station that roams between two of its VAPs from the old one first. The daemon would then
    // take it for a new client.
    static constexpr std::chrono::milliseconds roam_time{300};
    static constexpr std::chrono::minutes address_time{5};  // of a station that is away, and of other hosts
    static constexpr std::size_t departures_max = 2048, addresses_max = 2048;
    // A station is polled at polls_max calls of ask_unconfirmed(), and then at each of slow_polls.
    static constexpr unsigned polls_max = 2, slow_polls = 5;

    // With `holds_departures` a departure is sent after roam_time, unless the station has arrived anywhere by then.
    announcer(std::function<void(kx::notification)> send, bool holds_departures)
        : send_(std::move(send)), holds_departures_(holds_departures) {}

    std::function<void()> on_held;  // next_deadline() has changed
    // The address of a station that is here was announced. May be empty.
    std::function<void(const mac_address &station, std::uint32_t ip)> on_address;
    // Nothing is left to be said of a departure: it was `announced`, or needs no announcement, because the station has
    // arrived elsewhere or its arrival was not announced. May be empty.
    std::function<void(const place &from, const mac_address &station, bool announced)> on_settled;

    // `previous`: the BSSID of another VAP that the station came from.
    void arrived(const place &at, const mac_address &address, const std::optional<mac_address> &previous,
                 time_point now);
    void departed(const place &from, const mac_address &address, time_point now);
    // Of a station that an earlier process announced.
    void departed_unseen(const place &from, const mac_address &address, bool roamed_in);
    // The daemon itself has sent the station away.
    void sent_away(const place &from, const mac_address &address, time_point now);
    // The station's IPv4 address, in the host's order, by a frame of `source`. It may be seen before the arrival. One
    // station of this access point is not believed about another.
    void has_address(const place &at, const mac_address &address, std::uint32_t ip, const mac_address &source,
                     time_point now);

    // That an earlier process announced.
    void remember_address(const mac_address &address, std::uint32_t ip, time_point now);

    void all_again();
    // The stations of a VAP that all_again() has left to be asked now, at most `most` of them. They count as asked.
    std::vector<mac_address> ask_unconfirmed(const place &at, std::size_t most);
    // Those that were asked polls_max times and were not heard since.
    std::vector<mac_address> silent(const place &at);
    // It was heard.
    void confirmed(const place &at, const mac_address &address);

    // When expire() has to be called; none when no departure is held.
    std::optional<time_point> next_deadline() const;
    void expire(time_point now);

private:
    struct station {
        place at;
        std::optional<mac_address> previous;
        bool to_confirm = false;
        unsigned polls = 0;    // calls of ask_unconfirmed() without an answer
        std::uint32_t ip = 0;  // that was sent; 0: none
    };
    struct departure {
        place from;
        mac_address station{};
        bool roamed_in = false;
        time_point due{};
    };
    struct ip_address {
        std::uint32_t ip = 0;
        time_point until{};  // max() while its station is here
    };
    using key = std::pair<mac_address, mac_address>;  // BSSID, station

    void send_arrival(const mac_address &address, station &its);
    void send_address(const mac_address &address, station &its, std::uint32_t ip) const;
    void send_departure(const departure &gone);
    void settle(const place &from, const mac_address &address, bool announced) const;
    bool is_present(const mac_address &address) const;
    std::optional<station> remove(const place &from, const mac_address &address, time_point now);
    // Calls `visit` for each unconfirmed station of the VAP until it returns false.
    void visit_unconfirmed(const place &at, const std::function<bool(const mac_address &, station &)> &visit);
    bool make_room_for_address(bool is_here, time_point now);

    std::function<void(kx::notification)> send_;
    bool holds_departures_;
    std::map<key, station> stations_;
    std::deque<departure> held_;
    std::deque<departure> sent_;  // since the last load
    std::map<mac_address, ip_address> addresses_;
};

}  // namespace radiod

#endif
