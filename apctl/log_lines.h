// Lines of client_mgr's log: ":seconds:milliseconds: text", in a file that is written from its start again when it is
// full.
#ifndef APCTL_LOG_LINES_H
#define APCTL_LOG_LINES_H

#include <compare>
#include <ctime>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace apctl {

struct log_time {
    std::time_t seconds = 0;
    int milliseconds = 0;

    auto operator<=>(const log_time &) const = default;
};

struct log_entry {
    log_time time;
    std::string text;  // with the lines that continue it, keys hidden
};

// None when the line does not begin an entry.
std::optional<log_entry> parse_log_line(std::string_view line);

// Bytes of keys, in pairs of digits, become "(hidden)".
std::string hide_keys(std::string_view text);

bool is_blank(std::string_view line);

// The entries of a whole log, the oldest first.
std::vector<log_entry> read_log(std::string_view content);

}  // namespace apctl

#endif
