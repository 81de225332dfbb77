#include "radiod/expected_stations.h"

namespace radiod {

bool expected_stations::heard(const mac_address &station, time_point now) {
    if (now - second_ >= std::chrono::seconds(1)) {
        second_ = now;
        questions_ = 0;
        std::erase_if(asked_, [now](const auto &each) { return each.second + ask_again <= now; });
    }
    if (questions_ >= questions_each_second || !asked_.try_emplace(station, now).second) {
        return false;
    }
    questions_++;
    return true;
}

}  // namespace radiod
