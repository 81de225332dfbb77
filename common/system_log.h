// Lines for the system log, sent without blocking. libc's syslog blocks for as long as the system log does not read.
#ifndef COMMON_SYSTEM_LOG_H
#define COMMON_SYSTEM_LOG_H

#include <array>
#include <cstdarg>
#include <cstddef>
#include <ctime>
#include <string_view>

namespace kx {

class system_log {
public:
    // `path` names the datagram socket of the system log, "/dev/log", and outlives the object.
    constexpr explicit system_log(const char *path) : path_(path) {}
    ~system_log();
    system_log(const system_log &) = delete;
    system_log &operator=(const system_log &) = delete;

    // Like vsyslog, with the facility in `priority`. Sends one line of at most 1 KiB; the rest of a longer one is cut
    // off. A line that cannot be sent at once is dropped. The next line that is sent is preceded by one with the number
    // of dropped lines. Throws std::system_error when the path is too long for a socket's name.
    void write(int priority, const char *format, va_list arguments);

private:
    [[gnu::format(printf, 3, 4)]] bool send_line(int priority, const char *format, ...);
    bool vsend_line(int priority, const char *format, va_list arguments);
    bool send_bytes(const char *line, std::size_t size);
    std::string_view line_head();

    const char *path_;
    int fd_ = -1;
    bool connected_ = false;
    unsigned long dropped_ = 0;
    std::time_t second_ = -1;
    std::array<char, 96> head_{};  // of `second_`
};

}  // namespace kx

#endif
