// Log lines of apd.
#ifndef APD_LOG_H
#define APD_LOG_H

#include "common/program_log.h"

namespace apd {

using kx::detail_log;
using kx::log_line;
using kx::report;
using kx::report_error;

}  // namespace apd

#endif
