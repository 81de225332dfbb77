#include "platform/linux/start_failure.h"

#include <syslog.h>

#include <cstdio>

void kx::report_start_failure(const std::string &line) {
    std::fprintf(stderr, "client_mgr: %s\n", line.c_str());
    syslog(LOG_USER | LOG_ERR, "%s", line.c_str());
}
