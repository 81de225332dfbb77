#include "common/system_log.h"

#include <sys/socket.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <cstdio>
#include <cstring>

#include "common/ipc_endpoint.h"

namespace kx {

namespace {

constexpr std::size_t line_max = 1024;

// Writes less than `line_max` characters, without a NUL counted, and returns their number.
std::size_t put_text(char *out, const char *format, va_list arguments) {
    if (std::strcmp(format, "%s") == 0) {
        // All lines of the daemon are complete texts.
        const char *text = va_arg(arguments, const char *);
        std::size_t size = strnlen(text, line_max - 1);
        std::memcpy(out, text, size);
        return size;
    }
    int size = std::vsnprintf(out, line_max, format, arguments);
    return std::min(static_cast<std::size_t>(std::max(size, 0)), line_max - 1);
}

}  // namespace

system_log::~system_log() {
    if (fd_ >= 0) {
        close(fd_);
    }
}

void system_log::write(int priority, const char *format, va_list arguments) {
    if (dropped_ > 0 && send_line(LOG_USER | LOG_WARNING, "%lu lines for the system log dropped", dropped_)) {
        dropped_ = 0;
    }
    if (dropped_ > 0 || !vsend_line(priority, format, arguments)) {
        dropped_++;
    }
}

bool system_log::send_line(int priority, const char *format, ...) {
    va_list arguments;
    va_start(arguments, format);
    bool sent = vsend_line(priority, format, arguments);
    va_end(arguments);
    return sent;
}

// The line has the format of libc's syslog.
bool system_log::vsend_line(int priority, const char *format, va_list arguments) {
    std::array<char, line_max + 128> line;
    char *end = line.data();
    *end++ = '<';
    end = std::to_chars(end, line.end(), priority).ptr;
    *end++ = '>';
    std::string_view head = line_head();
    end = std::copy(head.begin(), head.end(), end);
    end += put_text(end, format, arguments);
    return send_bytes(line.data(), static_cast<std::size_t>(end - line.data()));
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
    // After a restart the system log has another socket at the same path.
    const ipc_address address = make_ipc_address(path_);
    connected_ = connect(fd_, address.get(), address.length) == 0;
    return connected_ && send(fd_, line, size, MSG_NOSIGNAL) >= 0;
}

// "Nov  2 07:05:09 client_mgr: "
std::string_view system_log::line_head() {
    std::time_t now = std::time(nullptr);
    if (now != second_) {
        std::tm local{};
        localtime_r(&now, &local);
        std::size_t size = std::strftime(head_.data(), head_.size(), "%b %e %T ", &local);
        std::snprintf(head_.data() + size, head_.size() - size, "%.64s: ", program_invocation_short_name);
        second_ = now;
    }
    return head_.data();
}

}  // namespace kx
