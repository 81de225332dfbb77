// What the radio prints on standard output: lines for people, or one JSON object per line.
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
    // A line for people; nothing in JSON.
    void note(const std::string &line) const;
    // Numbers under their names, empty groups left out for people.
    void summary(const nlohmann::ordered_json &numbers) const;

private:
    bool json_;
};

}  // namespace radio

#endif
