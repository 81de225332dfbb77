// What of one access point's stations has to be asked again, because messages may have crossed.
//
// A client that associates with an access point which was just told something about it may have done so before or
// after that message took effect. A report of the stations that is asked for afterwards tells, since an access point
// takes and sends messages in order.
#ifndef LAB_CONTROLLER_DOUBTS_H
#define LAB_CONTROLLER_DOUBTS_H

#include <cstdint>
#include <functional>
#include <map>
#include <vector>

#include "platform/linux/ap_config.h"

namespace controller {

// What an access point was told about a client.
enum class told : std::uint8_t {
    removal,      // to drop it
    moved,        // that it has roamed to another VLAN
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
        kx::mac_address station;
        told what;
        bool present;
    };

    // A new tunnel is up and a report was asked for through it: nothing is left to cross.
    void restart();

    // The access point was told something about the station.
    void told_about(const kx::mac_address &station, told what);
    // The access point says that the station associated.
    void associated(const kx::mac_address &station);
    // The access point says that the station left.
    void left(const kx::mac_address &station) { checks_.erase(station); }
    // A report that settled nothing lacks the station.
    void missed(const kx::mac_address &station);

    // About once a second: a tick. True when a report is to be asked for now; it is taken as asked for.
    bool tick();

    // A report has come. A driver that fails gives an empty report: only the second one in a row without the station
    // makes it absent.
    std::vector<finding> settle(const std::function<presence(const kx::mac_address &)> &look_up);

    bool awaits_report() const { return asked_; }
    std::size_t open() const { return checks_.size(); }

private:
    struct notice {
        told what;
        bool before_request = false;  // the report that is awaited was asked for after it
        unsigned age = 0;             // in ticks
    };
    struct check {
        told what;
        unsigned wait;  // ticks until it is worth a report of its own
        bool asked = false;
        unsigned absences = 0;
    };

    static check check_after(told what);
    void ask();
    void grow_older();

    bool asked_ = false;
    unsigned ticks_ = 0;  // since a report was asked for
    std::map<kx::mac_address, notice> notices_;
    std::map<kx::mac_address, check> checks_;
};

}  // namespace controller

#endif
