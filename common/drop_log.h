// Lines in the system log about dropped local messages.
#ifndef COMMON_DROP_LOG_H
#define COMMON_DROP_LOG_H

#include <cstdint>

namespace kx {

struct ipc_datagram;

// Writes a bounded number of lines in any period: whoever floods an endpoint does not flood the log. The first line
// after a period that was cut short says how many are missing.
class drop_log {
public:
    void write(const ipc_datagram &datagram);

private:
    static constexpr unsigned lines_per_period = 10;
    static constexpr std::int64_t period_secs = 10;

    std::int64_t period_start_ = -period_secs;
    unsigned lines_ = 0;
    unsigned long suppressed_ = 0;
};

}  // namespace kx

#endif
