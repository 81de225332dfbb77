// Whether a station that asks to authenticate is let in: the daemon's verdict first, then, while hostapd still waits,
// where the station has its home, and its PMK from the access point where it was. No I/O; callers pass the time.
#ifndef RADIOD_ADMISSION_H
#define RADIOD_ADMISSION_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>

#include "common/mac_address.h"

namespace radiod {

using kx::mac_address;

// The verdict comes first: asking for the home or for a PMK makes the client known to the daemon, which then lets it in
// without a verdict. The home comes before the PMK: asking for a PMK makes the daemon take the VAP's VLAN for the home
// VLAN of a client that it does not have.
class admission {
public:
    using time_point = std::chrono::steady_clock::time_point;

    struct settings {
        // Stations send three Authentication frames 115 ms apart, and give up after some 340 ms.
        std::chrono::milliseconds hold{120};
        bool allows_without_verdict = false;
    };
    struct vap_rules {
        mac_address bssid{};
        bool has_acl = false;
        bool asks_home = false;
        bool fetches_pmk = false;
    };
    struct actions {
        std::function<void(const mac_address &station, const mac_address &bssid)> ask_verdict;
        std::function<void(const mac_address &station, const mac_address &bssid)> ask_home;
        // Returns false when no key has to be waited for.
        std::function<bool(const mac_address &station, const mac_address &bssid)> get_pmk;
        // `by_verdict`: not because none came.
        std::function<void(std::uint32_t question, const mac_address &station, const mac_address &bssid, bool allowed,
                           bool by_verdict)>
            answer;
    };

    admission(settings how, actions act) : how_(how), act_(std::move(act)) {}

    // hostapd asks. A station has one open question on a VAP; an older one is dropped unanswered.
    void asked(std::uint32_t question, const mac_address &station, const vap_rules &vap, time_point now);
    // The daemon can be asked again: repeats the questions that wait for its verdict.
    void ask_again() const;
    // The daemon's verdict. False when no question waits for it: it came late, or it has changed.
    bool verdict(const mac_address &station, const mac_address &bssid, bool allowed);
    // It is known where the station has its home. False when no question waits for it.
    bool home_found(const mac_address &station, const mac_address &bssid);
    bool waits_for_pmk(const mac_address &station, const mac_address &bssid) const;
    // The station's PMK is at the VAP's hostapd, or there will be none.
    void pmk_settled(const mac_address &station, const mac_address &bssid);

    // When expire() has to be called; none when no question is open.
    std::optional<time_point> next_deadline() const;
    // Answers the questions whose time is over.
    void expire(time_point now);

private:
    struct open_question {
        std::uint32_t id = 0;
        enum class stage : std::uint8_t { verdict, home, pmk } waits_for = stage::verdict;
        bool asks_home = false;
        bool fetches_pmk = false;
        time_point deadline{};
    };
    using key = std::pair<mac_address, mac_address>;  // station, BSSID

    using stage = open_question::stage;

    void allow(std::map<key, open_question>::iterator question);
    void get_pmk(std::map<key, open_question>::iterator question);
    void close(std::map<key, open_question>::iterator question, bool allowed, bool by_verdict = true);

    settings how_;
    actions act_;
    std::map<key, open_question> open_;
};

}  // namespace radiod

#endif
