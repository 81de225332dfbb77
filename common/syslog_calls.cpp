// The program is linked with --wrap=syslog, so that its calls of syslog, the daemon's and the port's, come here.
#include <cstdarg>

#include "common/system_log.h"

extern "C" void __wrap_syslog(int priority, const char *format, ...);

void __wrap_syslog(int priority, const char *format, ...) {
    static kx::system_log log("/dev/log");
    va_list arguments;
    va_start(arguments, format);
    log.write(priority, format, arguments);
    va_end(arguments);
}
