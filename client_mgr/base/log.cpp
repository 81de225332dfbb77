#include "client_mgr/base/log.h"

#include <syslog.h>
#include <unistd.h>

#include <cstdarg>
#include <cstring>
#include <ctime>

#include "client_mgr/base/text_buffer.h"
#include "kx/kx_log.h"

namespace {

// More than the longest line, which has a shell command of 199 characters.
constexpr size_t line_max = 512;

// The text of the current second, kept for all lines of that second.
struct second_text {
    time_t second = -1;
    char text[24] = "-1";
    size_t len = 2;

    void show(time_t now) {
        text_buffer shown(text, sizeof text);
        shown.put_decimal(static_cast<long>(now));
        len = shown.size();
        second = now;
    }
};
second_text second;

void put_prefix(text_buffer &line, const char *module) {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    if (now.tv_sec != second.second) {
        second.show(now.tv_sec);
    }
    line.put(module, strnlen(module, sizeof submod_name));
    line.put(':');
    line.put(second.text, second.len);
    line.put(':');
    line.put_decimal(static_cast<long>(now.tv_nsec / 1000000));
    line.put(": ", 2);
}

// One write: the stream is flushed with each line. Unlocked, as the daemon is one thread.
void write_through(FILE *stream, const char *text, size_t len) {
    fwrite_unlocked(text, 1, len, stream);
    fflush_unlocked(stream);
}

void write_to_log(const char *text, size_t len) {
    const bool full = cur_log_size > kx_log_conf_data.max_file_size;
    if (full) {
        cur_log_size = 0;
    }
    cur_log_size += static_cast<uint32_t>(len);
    const int fd = fileno_unlocked(log_file_name);
    if (fd < 0) {
        if (full) {
            rewind(log_file_name);
        }
        write_through(log_file_name, text, len);
        return;
    }
    // Not through the stream, which costs a twentieth of an event at level 3.
    if (full) {
        lseek(fd, 0, SEEK_SET);
    }
    (void)!write(fd, text, len);
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
        write_to_log(line.data(), line.size());
    }
    if (kx_log_conf_data.console != 0) {
        write_through(stdout, line.data() + prefix_len, line.size() - prefix_len);
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
