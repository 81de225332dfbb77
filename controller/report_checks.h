// Checks of one access point's stations that await its report, because messages may have crossed.
//
// A client may associate before or after a message about it takes effect at the access point. The controller cannot see
// the order. An access point processes and sends messages in order, so a report that is requested afterwards shows the
// result.
#ifndef CONTROLLER_REPORT_CHECKS_H
#define CONTROLLER_REPORT_CHECKS_H

#include <cstdint>
#include <functional>
#include <limits>
#include <map>
#include <optional>
#include <utility>
#include <vector>

#include "controller/message.h"

namespace controller {

// A message to an access point about one client.
enum class notice : std::uint8_t {
    removal,      // drop the client
    move,         // the client has roamed to another VLAN
    answer,       // the client's entry, as the access point requested
    association,  // treat the client as associated
};

enum class presence : std::uint8_t {
    present,
    absent,
    unclear,  // the report may lack stations
};

class report_checks {
public:
    struct result {
        mac_address station;
        bool present;
        std::vector<record> deferred;  // the access point's records about the station, in order
        bool maybe_stale;              // the first of them may result from an earlier answer
    };

    // A new tunnel is up and a report was requested through it. Discards all checks.
    void restart();

    // Records that the access point was sent a notice about the station.
    void add_notice(const mac_address &station, notice kind);
    // The last notice whose effect is not known to precede the access point's records; none when there is none.
    std::optional<notice> last_notice(const mac_address &station) const;
    // The access point has sent a record after it processed the notice.
    void clear_notice(const mac_address &station) { notices_.erase(station); }

    // Keeps a record about a station until a report shows whether the station is there. `joined` is true for an
    // association: the report must then be requested from now on.
    void defer(const mac_address &station, const record &one, bool joined);
    bool has_deferred(const mac_address &station) const;
    // Verifies with a later report that the station is there.
    void confirm(const mac_address &station);
    // A report outside a check lacks a station that should be there. Counts as its first absence.
    void add_absence(const mac_address &station);
    // The access point may have applied `old` after the station's return. The correction is due at the next tick.
    void add_correction(const mac_address &station, notice old) { corrections_[station] = old; }
    // Discards the checks of a station that has left or is elsewhere.
    void drop(const mac_address &station);

    // To be called about once a second.
    void tick();
    // True when a report must be requested now; it then counts as requested.
    bool begin_report();
    // Returns the due corrections and removes them.
    std::map<mac_address, notice> extract_corrections() { return std::exchange(corrections_, {}); }

    // Evaluates a report. A driver that fails gives an empty report, so a station counts as absent when two reports in
    // a row lack it.
    std::vector<result> settle(const std::function<presence(const mac_address &)> &look_up);

    bool awaits_report() const { return requested_; }
    std::size_t size() const { return checks_.size() + corrections_.size(); }
    // Whether a check or a correction of the station is open.
    bool has_any(const mac_address &station) const {
        return checks_.contains(station) || corrections_.contains(station);
    }
    // Those with a check or a correction.
    std::vector<mac_address> stations() const;

private:
    // Counts ticks and requests since the last restart. A request covers what was added before it.
    struct sent_notice {
        notice kind;
        bool after_answer = false;  // an answer preceded it and has had no visible effect yet
        unsigned requests = 0;      // when it was sent
        unsigned sent = 0;          // at this tick
    };
    struct check {
        unsigned due = 0;       // tick from which the check justifies a report of its own
        unsigned requests = 0;  // when the check began
        unsigned absences = 0;  // reports in a row without the station
        std::vector<record> deferred = {};
        bool maybe_stale = false;
    };
    static constexpr unsigned never = std::numeric_limits<unsigned>::max();

    bool has_expired(const sent_notice &one) const;
    const sent_notice *find_notice(const mac_address &station) const;
    void schedule(check &one, unsigned ticks);
    bool is_due();

    bool requested_ = false;
    unsigned requested_at_ = 0;  // tick of the last request
    unsigned now_ = 0;           // ticks
    unsigned requests_ = 0;
    unsigned earliest_due_ = never;               // no check is due before
    std::map<mac_address, sent_notice> notices_;  // some have expired
    std::map<mac_address, check> checks_;
    std::map<mac_address, notice> corrections_;
};

}  // namespace controller

#endif
