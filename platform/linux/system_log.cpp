#include "platform/linux/system_log.h"

#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>

namespace kx {

namespace {

constexpr std::size_t line_max = 1024;

}  // namespace

system_log::system_log(const std::string &path) : address_(make_ipc_address(path)) {}

system_log::~system_log() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

void system_log::write(int priority, const char *format, va_list arguments) {
    std::array<char, line_max> text;
    std::vsnprintf(text.data(), text.size(), format, arguments);
    if (dropped_ > 0) {
        std::array<char, 64> gap;
        std::snprintf(gap.data(), gap.size(), "%lu lines for the system log dropped", dropped_);
        if (send_line(LOG_USER | LOG_WARNING, gap.data())) {
            dropped_ = 0;
        }
    }
    if (dropped_ > 0 || !send_line(priority, text.data())) {
        dropped_++;
    }
}

// The line as libc's syslog sends it.
bool system_log::send_line(int priority, const char *text) {
    std::array<char, line_max + 128> line;
    int size = std::snprintf(line.data(), line.size(), "<%d>%s %s: %s", priority, time_now(),
                             program_invocation_short_name, text);
    return size > 0 && send_bytes(line.data(), std::min(static_cast<std::size_t>(size), line.size() - 1));
}

bool system_log::send_bytes(const char *line, std::size_t size) {
    if (fd_ < 0) {
        fd_ = socket(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    }
    if (connected_) {
        if (send(fd_, line, size, MSG_NOSIGNAL) >= 0) {
            return true;
        }
        if (errno == EAGAIN || errno == ENOBUFS || errno == ENOMEM) {
            return false;
        }
    }
    // A system log that was restarted has another socket at the same path.
    connected_ = connect(fd_, address_.get(), address_.length) == 0;
    return connected_ && send(fd_, line, size, MSG_NOSIGNAL) >= 0;
}

const char *system_log::time_now() {
    std::time_t now = std::time(nullptr);
    if (now != second_) {
        std::tm local{};
        localtime_r(&now, &local);
        std::strftime(time_text_.data(), time_text_.size(), "%b %e %T", &local);
        second_ = now;
    }
    return time_text_.data();
}

}  // namespace kx
