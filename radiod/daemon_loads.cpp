#include "radiod/daemon_loads.h"

#include <utility>

namespace radiod {

void daemon_loads::addresses_requested() {
    rounds_++;
    quiet_.start(quiet_time);
}

void daemon_loads::stations_requested() {
    lists_++;
    quiet_.start(quiet_time);
}

void daemon_loads::settle() {
    const std::size_t reports = (std::exchange(lists_, 0) + vaps_ - 1) / vaps_;
    if (std::exchange(rounds_, 0) > 2 * reports) {
        on_load();
    }
}

}  // namespace radiod
