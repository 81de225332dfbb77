// The controller's counters for operators.
#ifndef CONTROLLER_STATISTICS_H
#define CONTROLLER_STATISTICS_H

#include <nlohmann/json.hpp>

#include "controller/exchange.h"

namespace controller {

// {"malformed", "frames_ignored", "messages_unsent", "tunnels_refused", "connections_displaced", "accept_errors",
// "output_lines_dropped"}, each a number since the start
nlohmann::ordered_json losses_of(const exchange &with);

// {"tunnels", "records", "records_per_second", "messages_sent", "certificate_expires"}, the losses and, unless the
// controller only listens, {"clients", "roams", "guests_waiting", "guests_approved", "unsettled"}
nlohmann::ordered_json statistics_of(const exchange &with);

}  // namespace controller

#endif
