#include "apctl/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <system_error>
#include <utility>

namespace apctl {

namespace {

constexpr std::size_t chunk = std::size_t{64} * 1024;
constexpr std::size_t first_line_max = 1024;

}  // namespace

log_file::log_file(std::string path) : path_(std::move(path)) { open(); }

log_file::~log_file() { close(fd_); }

void log_file::open() {
    const int fd = ::open(path_.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), path_);
    }
    if (fd_ >= 0) {
        close(fd_);
    }
    fd_ = fd;
    position_ = 0;
    first_.clear();
}

std::string log_file::read_at(off_t offset, std::size_t size) const {
    std::string bytes(size, '\0');
    const ssize_t got = pread(fd_, bytes.data(), size, offset);
    bytes.resize(got > 0 ? static_cast<std::size_t>(got) : 0);
    return bytes;
}

std::vector<log_entry> log_file::read_all() {
    std::string content;
    for (;;) {
        const std::string more = read_at(static_cast<off_t>(content.size()), chunk);
        if (more.empty()) {
            break;
        }
        content += more;
    }
    first_ = content.substr(0, std::min(content.find('\n'), first_line_max));
    auto entries = read_log(content);
    last_ = entries.empty() ? log_time{} : entries.back().time;
    // The newest line is in front of the line of blanks, or at the end.
    position_ = static_cast<off_t>(content.size());
    const std::string blanks = "\n  ";
    for (std::size_t at = content.find(blanks); at != std::string::npos; at = content.find(blanks, at + 1)) {
        const std::size_t next = content.find('\n', at + 1);
        if (next == std::string::npos || content.find_first_not_of(' ', at + 1) != next) {
            continue;
        }
        const auto oldest = parse_log_line(std::string_view(content).substr(next + 1, first_line_max));
        if (oldest && oldest->time < last_) {
            position_ = static_cast<off_t>(at) + 1;
            break;
        }
    }
    return entries;
}

bool log_file::is_replaced() const {
    struct stat ours {
    }, theirs{};
    return fstat(fd_, &ours) == 0 && stat(path_.c_str(), &theirs) == 0 &&
           (ours.st_ino != theirs.st_ino || ours.st_dev != theirs.st_dev);
}

bool log_file::has_wrapped() const {
    const std::string begin = read_at(0, first_line_max);
    const std::string line = begin.substr(0, begin.find('\n'));
    const auto first = parse_log_line(line);
    return first && line != first_ && first->time >= last_;
}

bool log_file::is_newer(std::string_view text) const {
    const auto next = parse_log_line(text.substr(0, text.find('\n')));
    return next && next->time >= last_;
}

// Up to an older line, or the line of blanks before it: there the file has not been written again yet.
std::vector<log_entry> log_file::take_lines() {
    std::vector<log_entry> entries;
    for (;;) {
        const std::string bytes = read_at(position_, chunk);
        const std::size_t end = bytes.find('\n');
        if (end == std::string::npos) {
            return entries;
        }
        const std::string line = bytes.substr(0, end);
        auto entry = parse_log_line(line);
        if (!entry && is_blank(line) && !is_newer(std::string_view(bytes).substr(end + 1))) {
            return entries;
        }
        if (entry && entry->time < last_) {
            return entries;
        }
        if (entry) {
            last_ = entry->time;
            entries.push_back(*entry);
        } else if (!entries.empty() && !is_blank(line) && line.starts_with(' ')) {
            entries.back().text += '\n' + hide_keys(line);
        }
        if (position_ == 0) {
            first_ = line.substr(0, first_line_max);
        }
        position_ += static_cast<off_t>(end) + 1;
    }
}

std::vector<log_entry> log_file::read_more() {
    auto entries = take_lines();
    if (entries.empty() && is_replaced()) {
        open();
        return take_lines();
    }
    if (entries.empty() && has_wrapped()) {
        position_ = 0;
        return take_lines();
    }
    return entries;
}

}  // namespace apctl
