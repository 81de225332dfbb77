#include "apctl/log_lines.h"

#include <algorithm>
#include <cctype>
#include <charconv>

namespace apctl {

namespace {

constexpr std::size_t key_bytes_min = 8;  // in a row, "AB CD "; a MAC address has colons

bool is_hex(char c) { return std::isxdigit(static_cast<unsigned char>(c)) != 0; }

// Reads a number and the ':' behind it.
template <typename Number>
bool take_number(std::string_view &from, Number &number) {
    const auto [end, error] = std::from_chars(from.data(), from.data() + from.size(), number);
    const auto length = static_cast<std::size_t>(end - from.data());
    if (error != std::errc() || length == from.size() || from[length] != ':') {
        return false;
    }
    from.remove_prefix(length + 1);
    return true;
}

// The length of the bytes of a key at the beginning of `text`; 0 when there are none.
std::size_t key_length(std::string_view text) {
    std::size_t bytes = 0;
    while (text.size() >= 3 * bytes + 2 && is_hex(text[3 * bytes]) && is_hex(text[3 * bytes + 1]) &&
           (text.size() == 3 * bytes + 2 || text[3 * bytes + 2] == ' ')) {
        bytes++;
    }
    return bytes < key_bytes_min ? 0 : std::min(3 * bytes, text.size());
}

void append(std::vector<log_entry> &to, std::string_view line) {
    if (auto begun = parse_log_line(line)) {
        to.push_back(*begun);
    } else if (!to.empty() && !is_blank(line)) {
        to.back().text += '\n' + hide_keys(line);
    }
}

}  // namespace

std::optional<log_entry> parse_log_line(std::string_view line) {
    log_entry entry;
    if (!line.starts_with(':')) {
        return std::nullopt;
    }
    line.remove_prefix(1);
    if (!take_number(line, entry.time.seconds) || !take_number(line, entry.time.milliseconds) ||
        !line.starts_with(' ')) {
        return std::nullopt;
    }
    entry.text = hide_keys(line.substr(1));
    return entry;
}

std::string hide_keys(std::string_view text) {
    std::string shown;
    while (!text.empty()) {
        const bool word_begins = shown.empty() || shown.back() == ' ';
        if (const std::size_t length = word_begins ? key_length(text) : 0; length > 0) {
            shown += "(hidden)";
            text.remove_prefix(length);
        } else {
            shown += text.front();
            text.remove_prefix(1);
        }
    }
    return shown;
}

bool is_blank(std::string_view line) { return line.find_first_not_of(' ') == std::string_view::npos; }

// Between the newest and the oldest line is a line of blanks.
std::vector<log_entry> read_log(std::string_view content) {
    std::vector<log_entry> entries;
    std::size_t oldest = 0;
    bool blank = false;
    while (!content.empty()) {
        const std::size_t end = std::min(content.find('\n'), content.size());
        const std::string_view line = content.substr(0, end);
        const std::size_t before = entries.size();
        append(entries, line);
        if (blank && before > 0 && entries.size() > before && entries[before].time < entries[before - 1].time) {
            oldest = before;
        }
        blank = is_blank(line);
        content.remove_prefix(std::min(end + 1, content.size()));
    }
    std::rotate(entries.begin(), entries.begin() + static_cast<std::ptrdiff_t>(oldest), entries.end());
    return entries;
}

}  // namespace apctl
