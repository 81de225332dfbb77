// Reports of why the daemon cannot start.
#ifndef KX_LINUX_START_FAILURE_H
#define KX_LINUX_START_FAILURE_H

#include <string>

namespace kx {

// Writes one line to standard error and to the system log.
void report_start_failure(const std::string &line);

}  // namespace kx

#endif
