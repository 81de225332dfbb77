#include "common/program_log.h"

#include <syslog.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>

namespace kx {

void log_line(const std::string &text) {
    using namespace std::chrono;
    auto now = system_clock::now();
    std::time_t seconds = system_clock::to_time_t(now);
    auto milliseconds =
        static_cast<int>(duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000);
    std::tm local{};
    localtime_r(&seconds, &local);
    std::array<char, 32> time{};
    std::strftime(time.data(), time.size(), "%F %T", &local);
    std::fprintf(stderr, "%s.%03d %s: %s\n", time.data(), milliseconds, program_invocation_short_name, text.c_str());
}

void report(const std::string &text) {
    log_line(text);
    syslog(LOG_DAEMON | LOG_WARNING, "%s", text.c_str());
}

void report_error(const std::string &text) {
    log_line(text);
    syslog(LOG_DAEMON | LOG_ERR, "%s", text.c_str());
}

}  // namespace kx
