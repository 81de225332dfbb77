// The radio's standard output: lines of text, or one JSON object per line.
#ifndef LAB_RADIO_JOURNAL_H
#define LAB_RADIO_JOURNAL_H

#include <nlohmann/json.hpp>
#include <string>

#include "lab/radio/air_event.h"
#include "lab/radio/report.h"

namespace radio {

class journal {
public:
    explicit journal(bool json) : json_(json) {}

    // {"event": "association", "time": 1.25, "client": ..., "bssid": ..., "ifname": ..., then the report's facts}
    void write(lab_time at, const report &what) const;
    // Prints a line of text; prints nothing in JSON.
    void note(const std::string &line) const;
    // Prints groups of named numbers.
    void summary(const nlohmann::ordered_json &numbers) const;

private:
    bool json_;
};

}  // namespace radio

#endif
