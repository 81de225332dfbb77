// The PMKs of EAP: from the RADIUS server to the daemon, from the daemon to the hostapd to which a station comes, and
// erased when it leaves.
#ifndef RADIOD_PMK_SHARING_H
#define RADIOD_PMK_SHARING_H

#include <chrono>
#include <cstddef>
#include <functional>
#include <list>
#include <map>
#include <set>

#include "common/program_log.h"
#include "radio_service/hostapd_endpoint.h"
#include "radio_service/notifications.h"
#include "radiod/admission.h"
#include "radiod/keys/pmk_cache.h"
#include "radiod/radius/settings.h"
#include "radiod/vap.h"

namespace radiod {

class pmk_sharing {
public:
    struct surroundings {
        std::list<vap> &vaps;
        admission &questions;
        kx::detail_log details;
        std::function<void(kx::notification)> send;  // to the daemon
        std::function<bool()> daemon_is_ready;
        std::function<void()> on_answered;  // questions.next_deadline() has changed
    };

    static constexpr std::size_t fetches_max = 256;  // in fetches_period, of stations that then do not associate
    static constexpr std::chrono::hours fetches_period{1};
    // From EAP or a fetch to the association; what is left then is erased.
    static constexpr std::chrono::seconds arrival_time{60};
    static constexpr std::size_t suites_max = 2048;

    explicit pmk_sharing(surroundings with) : with_(std::move(with)) {}

    // EAP has made a PMK.
    void session_began(const radius::session_key &session);
    // The daemon's answer to a fetch.
    void fetched(const kx::pmk_answer &answer);
    // A station asks to be let in. Returns false when no key has to be waited for.
    bool get(const mac_address &station, const mac_address &bssid);

    void station_arrived(vap &at, const mac_address &station, akm suite);
    // Its departure was announced.
    void station_departed(const mac_address &station);
    // To another access point.
    void station_moved(const mac_address &station);

    // To be called once a second.
    void expire();
    // PMKs in memory.
    std::size_t size() const { return keys_.size(); }

private:
    using clock = std::chrono::steady_clock;

    struct coming_station {
        mac_address bssid{};
        bool is_shared = false;  // its PMK is for the daemon
        clock::time_point since{};
    };

    vap *find_vap(const mac_address &bssid) const;
    akm suite_of(const mac_address &station) const;
    void note_suite(const mac_address &station, akm suite);
    void note_coming(const mac_address &station, coming_station its);
    void lose(const mac_address &station);
    void install(vap &at, const mac_address &station, const pmk &key, std::chrono::seconds lifetime);

    surroundings with_;
    pmk_cache keys_;
    std::map<mac_address, coming_station> coming_;  // have a PMK, and no association since
    std::map<mac_address, akm> suites_;             // of the last associations by 802.1X
    std::set<mac_address> fetches_;                 // stations without an association yet
    clock::time_point fetches_since_ = clock::now();
    bool has_met_ft_ = false;
};

}  // namespace radiod

#endif
