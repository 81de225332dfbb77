#include "controller/api/times.h"

#include <cstdio>
#include <ctime>

namespace controller::api {

std::string format_time(wall_time at) {
    const auto seconds = std::chrono::floor<std::chrono::seconds>(at);
    const auto time = static_cast<std::time_t>(seconds.time_since_epoch().count());
    tm utc{};
    gmtime_r(&time, &utc);
    char text[40];
    const std::size_t length = std::strftime(text, sizeof(text), "%Y-%m-%dT%H:%M:%S", &utc);
    std::snprintf(text + length, sizeof(text) - length, ".%03dZ", static_cast<int>((at - seconds).count()));
    return text;
}

wall_time now() { return std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now()); }

}  // namespace controller::api
