// syslog: the program is linked with --wrap=syslog, which redirects its calls here, the daemon's and the port's.
#include <cstdarg>

#include "common/system_log.h"

extern "C" void __wrap_syslog(int priority, const char *format, ...);

namespace {

constinit kx::system_log process_log("/dev/log");

}  // namespace

void __wrap_syslog(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    process_log.write(priority, format, arguments);
    va_end(arguments);
}
