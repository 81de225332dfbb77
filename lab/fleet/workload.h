// The stations of a large site and what they do, generated as it is played. The events and their times depend on the
// plan alone: a station that an access point sends away comes back and goes on as planned.
//
// Every access point has three networks: "office" (VLAN 10, and VLAN 20 in the second half of the row), "guest" (VLAN
// 30, behind the portal) and "restricted" (VLAN 40, MAC ACL 1). First all stations come, in the order of their numbers.
// Then, at random times and in no order, they roam to the next access point (two thirds of the events), leave, come
// back to any access point, and get new addresses and keys. An arrival or a roam is followed by hostapd's request for
// the key, or by its new key, and by the address.
#ifndef LAB_FLEET_WORKLOAD_H
#define LAB_FLEET_WORKLOAD_H

#include <cstdint>
#include <queue>
#include <random>
#include <vector>

#include "lab/radio/air_event.h"
#include "lab/radio/scenario.h"

namespace fleet {

using kx::mac_address;

struct workload_plan {
    static constexpr unsigned aps_max = 10'000;
    static constexpr unsigned stations_max = 2'000'000;

    unsigned access_points = 10;
    unsigned stations = 100;
    unsigned guests = 10;      // per cent of the stations
    unsigned restricted = 10;  // per cent of the stations
    double arrivals = 1000;    // a second, at the beginning
    double rate = 50;          // events a second after that, without what follows them
    unsigned seconds = 60;     // of these events
    std::uint64_t seed = 1;
};

class workload : public radio::event_source {
public:
    explicit workload(const workload_plan &plan);

    static std::vector<radio::scenario_ap> access_points(const workload_plan &plan);

    step next(radio::timed_event &event) override;
    bool is_here(const mac_address &client, const mac_address &bssid, radio::lab_time now) const override;
    std::vector<radio::timed_event> when_sent_away(const mac_address &client, const mac_address &bssid,
                                                   radio::lab_time now) const override;

private:
    enum class network : std::uint8_t { office, guest, restricted };
    enum class follow_up : std::uint8_t { key, key_request, address, silence };

    static constexpr unsigned nowhere = workload_plan::aps_max;
    struct station {
        unsigned ap = nowhere;
        std::uint32_t moves = 0;  // arrivals, roams and departures so far
        std::uint32_t keys = 0;
        std::uint32_t ip = 0;
        radio::lab_time since{};  // its last event
        network on = network::office;
    };
    struct pending {
        radio::lab_time at;
        std::uint32_t station;
        std::uint32_t moves;  // it is dropped when the station has moved since
        follow_up what;
        unsigned ap;  // of a silence, which is dropped when the station is there again
        bool operator>(const pending &other) const { return at > other.at; }
    };

    unsigned below(unsigned limit) { return static_cast<unsigned>(random_() % limit); }
    std::uint32_t number_of(const mac_address &client) const;
    mac_address mac_of(std::uint32_t number) const;
    static mac_address bssid_of(unsigned ap, const station &of);
    mac_address bssid_of(std::uint32_t number) const { return bssid_of(stations_[number].ap, stations_[number]); }
    radio::pmk key_of(std::uint32_t number, const station &of) const;
    radio::air_event make(std::uint32_t number, radio::air what) const;
    void plan_next_action();
    bool applies(const pending &next) const;
    radio::air_event take(const pending &next);
    std::uint32_t draw_station();
    radio::air_event act();
    radio::air_event arrive(std::uint32_t number, unsigned ap);
    radio::air_event roam(std::uint32_t number);
    radio::air_event leave(std::uint32_t number);
    void follow(std::uint32_t number, follow_up what, std::chrono::milliseconds after);

    workload_plan plan_;
    std::mt19937_64 random_;
    std::vector<station> stations_;
    std::uint32_t arrived_ = 0;
    radio::lab_time action_at_{};  // of the next arrival or event
    radio::lab_time end_{};        // of the events
    std::priority_queue<pending, std::vector<pending>, std::greater<>> pending_;
};

}  // namespace fleet

#endif
