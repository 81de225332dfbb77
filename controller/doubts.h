// What of one access point's stations is not certain, because messages may have crossed.
//
// A client that associates with an access point which was just told something about it may have done so before or after
// that message took effect. An access point takes and sends messages in order, so a report of the stations that is
// asked for afterwards tells.
#ifndef CONTROLLER_DOUBTS_H
#define CONTROLLER_DOUBTS_H

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "controller/message.h"

namespace controller {

// What an access point was told about a client.
enum class told : std::uint8_t {
    removal,      // to drop it
    moved,        // that it has roamed to another VLAN
    answer,       // what it had asked about it
    association,  // to treat it as associated
};

enum class presence : std::uint8_t {
    present,
    absent,
    unclear,  // the report may lack stations
};

class doubts {
public:
    struct finding {
        mac_address station;
        bool present;
        std::vector<record> held_back;  // what the access point said about it, in order
        bool maybe_stale;               // what it said first may be old news: the use of an answer it got before
    };

    // A new tunnel is up and a report was asked for through it: nothing is left to cross.
    void restart();

    // The access point was told something about the station, and may say something that it could not have known of.
    void told_about(const mac_address &station, told what);
    std::optional<told> told_last(const mac_address &station) const;
    // It has said something that came after that.
    void has_heard(const mac_address &station) { notices_.erase(station); }

    // Keeps what the access point said about a station until a report tells whether the station is there; one that is
    // asked for from now on when the station has `come` with it.
    void hold_back(const mac_address &station, const record &said, bool come);
    bool holds_back(const mac_address &station) const;
    // The station is believed to be there, and the next report is to confirm it.
    void confirm(const mac_address &station);
    // A report that settled nothing lacks a station that is believed to be there.
    void missed(const mac_address &station);
    // The access point may have taken `old` news of the station for new: to be told anew at the next tick.
    void correct(const mac_address &station, told old) { to_correct_[station] = old; }
    // The station has left, or is elsewhere.
    void drop(const mac_address &station);

    // About once a second: a tick.
    void tick();
    // True when a report is to be asked for now; it is taken as asked for.
    bool asks_for_report();
    std::map<mac_address, told> corrections() { return std::exchange(to_correct_, {}); }

    // A report has come. A driver that fails gives an empty report: only the second one in a row without the station
    // makes it absent.
    std::vector<finding> settle(const std::function<presence(const mac_address &)> &look_up);

    bool awaits_report() const { return asked_; }
    std::size_t open() const { return checks_.size() + to_correct_.size(); }

private:
    struct notice {
        told what;
        bool over_answer = false;     // an answer went before it, and nothing has come of that yet
        bool before_request = false;  // the report that is awaited was asked for after it
        unsigned age = 0;             // in ticks
    };
    struct check {
        unsigned wait = 0;  // ticks until it is worth a report of its own
        bool asked = false;
        unsigned absences = 0;
        std::vector<record> held_back = {};
        bool maybe_stale = false;
    };

    bool asked_ = false;
    unsigned ticks_ = 0;  // since a report was asked for
    std::map<mac_address, notice> notices_;
    std::map<mac_address, check> checks_;
    std::map<mac_address, told> to_correct_;
};

}  // namespace controller

#endif
