// Metrics of the access point in Prometheus' text format.
#ifndef APCTL_METRICS_H
#define APCTL_METRICS_H

#include <string>

#include "apctl/listings.h"

namespace apctl {

// `client_mgr` has the clients. What cannot be asked is left out, but for ap_daemon_up.
std::string metrics_of(const daemon_answer &client_mgr, const daemon_answer &apd);

// Asks the daemons.
std::string collect_metrics();

// For node_exporter's textfile collector: the file is there whole, or as it was. Throws std::system_error.
void write_metrics_file(const std::string &file);

}  // namespace apctl

#endif
