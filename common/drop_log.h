// Reports dropped local messages in the system log.
#ifndef COMMON_DROP_LOG_H
#define COMMON_DROP_LOG_H

#include <cstdint>

namespace kx {

struct ipc_datagram;

// Writes at most 10 lines in 10 s, so that a flood of bad messages does not flood the log. The first line after that
// says how many drops were not reported.
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
