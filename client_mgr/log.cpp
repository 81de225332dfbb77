#include "client_mgr/log.h"

#include <syslog.h>

#include <cstdarg>
#include <cstring>
#include <ctime>

#include "client_mgr/text_buffer.h"

namespace {

// Longer than every line: the longest shows a shell command of 199 characters.
constexpr size_t line_max = 512;

void put_prefix(text_buffer &line, const char *module) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    line.put(module, strnlen(module, sizeof submod_name));
    line.put(':');
    line.put_decimal(static_cast<long>(now.tv_sec));
    line.put(':');
    line.put_decimal(static_cast<long>(now.tv_nsec / 1000000));
    line.put(": ", 2);
}

// One write to the file: the stream is flushed with each line. Unlocked, as the daemon is one thread.
void write_line(FILE *stream, const char *text, size_t len) {
    fwrite_unlocked(text, 1, len, stream);
    fflush_unlocked(stream);
}

}  // namespace

void client_mgr_log_line(const char *module, const char *fmt, ...) {
    char buf[line_max];
    text_buffer line(buf, sizeof buf);
    put_prefix(line, module);
    const size_t prefix_len = line.size();
    va_list args;
    va_start(args, fmt);
    line.put_format(fmt, args);
    va_end(args);
    if (log_file_name != nullptr) {
        if (cur_log_size > kx_log_conf_data.max_file_size) {
            rewind(log_file_name);
            cur_log_size = 0;
        }
        write_line(log_file_name, line.data(), line.size());
        cur_log_size += static_cast<uint32_t>(line.size());
    }
    if (kx_log_conf_data.console != 0) {
        write_line(stdout, line.data() + prefix_len, line.size() - prefix_len);
    }
}

void client_mgr_syslog(int priority, const char *fmt, ...) {
    char buf[line_max];
    text_buffer line(buf, sizeof buf - 1);
    va_list args;
    va_start(args, fmt);
    line.put_format(fmt, args);
    va_end(args);
    buf[line.size()] = '\0';
    syslog(priority, "%s", buf);
}
