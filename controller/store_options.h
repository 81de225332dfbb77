// Which store the controller uses, and what it keeps.
#ifndef CONTROLLER_STORE_OPTIONS_H
#define CONTROLLER_STORE_OPTIONS_H

#include <string>

namespace controller {

inline constexpr unsigned history_days_min = 1, history_days_max = 3650;
inline constexpr unsigned history_mib_min = 16, history_mib_max = 1U << 20;

struct store_options {
    std::string file;        // empty: nothing outlives the process
    std::string key_file;    // empty: PMKs are not stored
    bool set_aside = false;  // a damaged store
    unsigned history_days = 30;
    unsigned history_mib = 256;
    bool operator==(const store_options &) const = default;
};

}  // namespace controller

#endif
