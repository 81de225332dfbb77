// Stations near a VAP that may come by fast BSS transition (FT), which leaves no time for a question: whom to ask the
// daemon about before they come. A station that roams has scanned first, so it was heard.
#ifndef RADIOD_EXPECTED_STATIONS_H
#define RADIOD_EXPECTED_STATIONS_H

#include <chrono>
#include <cstddef>
#include <map>

#include "common/mac_address.h"

namespace radiod {

using kx::mac_address;

// Whoever passes by scans too, and may use a new address each time. So only some questions are asked in a second.
class expected_stations {
public:
    using time_point = std::chrono::steady_clock::time_point;

    static constexpr std::chrono::seconds ask_again{20};  // before acl_lists forgets the verdict
    static constexpr std::size_t questions_each_second = 16;

    // A station was heard. True when the daemon is to be asked about it now.
    bool heard(const mac_address &station, time_point now);

private:
    std::map<mac_address, time_point> asked_;  // in the last `ask_again`
    time_point second_{};
    std::size_t questions_ = 0;  // in this second
};

}  // namespace radiod

#endif
