// When the daemon has loaded its VAPs.
#ifndef RADIOD_DAEMON_LOADS_H
#define RADIOD_DAEMON_LOADS_H

#include <chrono>
#include <cstddef>
#include <functional>

#include "common/events.h"

namespace radiod {

// The driver sees a load only by its requests: the address of every VAP, once. For a report to the controller the
// daemon requests every address twice, and once the stations of every VAP whose address it got. It has dropped nothing
// then, and to announce the stations again would make the controller ask for another report.
class daemon_loads {
public:
    static constexpr std::chrono::milliseconds quiet_time{200};  // after the last request

    daemon_loads(event_base *base, std::size_t vaps) : vaps_(vaps), quiet_(base, -1, 0, [this] { settle(); }) {}

    std::function<void()> on_load;  // the requests since the last call were more than those of reports

    // The addresses of all VAPs have been requested once more.
    void addresses_requested();
    // The stations of one VAP were requested.
    void stations_requested();

private:
    void settle();

    std::size_t vaps_;
    std::size_t rounds_ = 0;  // of address requests
    std::size_t lists_ = 0;
    kx::watch quiet_;
};

}  // namespace radiod

#endif
