#include "common/drop_log.h"

#include <syslog.h>

#include <ctime>

#include "common/ipc_endpoint.h"

namespace kx {

namespace {

std::int64_t monotonic_secs() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now.tv_sec;
}

}  // namespace

void drop_log::write(const ipc_datagram &datagram) {
    std::int64_t now = monotonic_secs();
    if (now - period_start_ >= period_secs) {
        if (suppressed_ > 0) {
            syslog(LOG_USER | LOG_WARNING, "%lu more local messages dropped", suppressed_);
        }
        period_start_ = now;
        lines_ = 0;
        suppressed_ = 0;
    }
    if (lines_ == lines_per_period) {
        suppressed_++;
        return;
    }
    lines_++;
    syslog(LOG_USER | LOG_WARNING, "%s", describe_drop(datagram).c_str());
}

}  // namespace kx
