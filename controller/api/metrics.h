// The controller's numbers in the exposition format of Prometheus. No label is a MAC address or anything else that a
// station or an HTTP client chooses.
#ifndef CONTROLLER_API_METRICS_H
#define CONTROLLER_API_METRICS_H

#include <prometheus/counter.h>
#include <prometheus/family.h>
#include <prometheus/histogram.h>
#include <prometheus/registry.h>

#include <string>

#include "controller/api/request.h"
#include "controller/exchange.h"
#include "controller/store/store.h"

namespace controller::api {

class metrics {
public:
    metrics();

    void count_request(method how, int status, double seconds);
    std::string text(const exchange &with, const store_status &stored) const;

private:
    prometheus::Registry registry_;
    prometheus::Family<prometheus::Counter> &requests_;
    prometheus::Histogram &seconds_;
};

}  // namespace controller::api

#endif
