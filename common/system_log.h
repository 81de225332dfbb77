// Lines for the system log that never make the daemon wait: libc's own syslog blocks in its send for as long as the
// system log does not read.
#ifndef COMMON_SYSTEM_LOG_H
#define COMMON_SYSTEM_LOG_H

#include <array>
#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <string>
#include <string_view>

#include "common/ipc_endpoint.h"

namespace kx {

class system_log {
public:
    // The datagram socket that the system log reads, "/dev/log". Throws std::system_error when the path is too long.
    explicit system_log(const std::string &path);
    ~system_log();
    system_log(const system_log &) = delete;
    system_log &operator=(const system_log &) = delete;

    // As vsyslog, with the facility in `priority`; one line, cut after 1 KiB. A line that nobody takes now is dropped;
    // how many were is said ahead of the next one that gets through.
    void write(int priority, const char *format, va_list arguments);

private:
    [[gnu::format(printf, 3, 4)]] bool send_line(int priority, const char *format, ...);
    bool vsend_line(int priority, const char *format, va_list arguments);
    bool send_bytes(const char *line, std::size_t size);
    std::string_view line_head();

    ipc_address address_;
    int fd_ = -1;
    bool connected_ = false;
    unsigned long dropped_ = 0;
    std::time_t second_ = -1;
    std::array<char, 96> head_{};  // of `second_`
};

}  // namespace kx

#endif
