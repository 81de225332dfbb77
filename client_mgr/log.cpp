#include "client_mgr/log.h"

#include <cstdarg>
#include <ctime>

namespace {

uint32_t written(int count) { return count > 0 ? static_cast<uint32_t>(count) : 0; }

}  // namespace

void client_mgr_log_line(const char *module, const char *fmt, ...) {
    va_list args;
    if (log_file_name != nullptr) {
        if (cur_log_size > kx_log_conf_data.max_file_size) {
            rewind(log_file_name);
            cur_log_size = 0;
        }
        timespec now = {};
        clock_gettime(CLOCK_REALTIME, &now);
        cur_log_size += written(fprintf(log_file_name, "%s:%ld:%d: ", module, static_cast<long>(now.tv_sec),
                                        static_cast<int>(now.tv_nsec / 1000000)));
        va_start(args, fmt);
        cur_log_size += written(vfprintf(log_file_name, fmt, args));
        va_end(args);
        fflush(log_file_name);
    }
    if (kx_log_conf_data.console != 0) {
        va_start(args, fmt);
        vprintf(fmt, args);
        va_end(args);
        fflush(stdout);
    }
}
