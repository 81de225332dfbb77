// The metrics over HTTP.
#ifndef APCTL_METRICS_SERVER_H
#define APCTL_METRICS_SERVER_H

#include "common/ap_config.h"

namespace apctl {

// Answers GET /metrics until a signal ends it. The daemons are asked at most once a second. Throws std::runtime_error
// when it cannot listen.
void serve_metrics(const kx::metrics_config &at);

}  // namespace apctl

#endif
