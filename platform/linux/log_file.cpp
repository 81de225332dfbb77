// write: the program is linked with --wrap=write. The daemon's lines go through here, every other call to the kernel.
#include "platform/linux/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/uio.h>
#include <syslog.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <cstring>
#include <limits>
#include <system_error>
#include <utility>

#include "kx/kx_log.h"
#include "platform/linux/port_losses.h"

extern "C" {
ssize_t __real_write(int fd, const void *bytes, size_t size);
ssize_t __wrap_write(int fd, const void *bytes, size_t size);
}

namespace {

// Cleared at once: a sixteenth of the file, within these bounds. A smaller part costs more calls, a larger one more
// lines.
constexpr off_t cleared_least = 4096, cleared_most = 65536;
constexpr off_t line_max = 1024;  // more than a line of the daemon has
constexpr off_t everything = std::numeric_limits<off_t>::max();

// Throws std::system_error.
int open_file(const std::string &path) {
    int fd = open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
    return fd;
}

// Makes `size` bytes at `start` one line of blanks; at most cleared_most + 2 * line_max.
void write_blank_line(int fd, off_t start, std::size_t size) {
    static constexpr auto blanks = [] {
        std::array<char, 4096> made{};
        made.fill(' ');
        return made;
    }();
    static const char newline = '\n';
    std::array<iovec, (cleared_most + 2 * line_max) / blanks.size() + 2> pieces{};
    std::size_t count = 0;
    for (std::size_t left = size - 1; left > 0; ++count) {
        pieces[count] = {const_cast<char *>(blanks.data()), std::min(left, blanks.size())};
        left -= pieces[count].iov_len;
    }
    pieces[count++] = {const_cast<char *>(&newline), 1};
    (void)!pwritev(fd, pieces.data(), static_cast<int>(count), start);
}

kx::log_file the_log;

}  // namespace

kx::log_file &kx::process_log() { return the_log; }

void kx::log_file::open(std::string path) {
    int fd = open_file(path);
    off_t end = lseek(fd, 0, SEEK_END);
    FILE *stream = end < 0 ? nullptr : fdopen(fd, "w");
    if (stream == nullptr) {
        int error = errno;
        close(fd);
        throw std::system_error(error, std::generic_category(), path);
    }
    // The daemon writes whole lines. A line may show a key, which must not stay in a stream's buffer.
    setvbuf(stream, nullptr, _IONBF, 0);
    log_file_name = stream;
    path_ = std::move(path);
    fd_ = fd;
    start_at(end);
}

void kx::log_file::reopen() {
    try {
        int fd = open_file(path_);
        off_t end = lseek(fd, 0, SEEK_END);
        dup3(fd, fd_, O_CLOEXEC);  // the stream stays
        close(fd);
        start_at(std::max<off_t>(end, 0));
    } catch (const std::system_error &error) {
        syslog(LOG_USER | LOG_ERR, "%s; the log stays where it was", error.what());
    }
}

// The daemon writes from the start again once the size exceeds the maximum, also that of an earlier run.
void kx::log_file::start_at(off_t end) {
    cur_log_size = static_cast<std::uint32_t>(std::min<off_t>(end, std::numeric_limits<std::uint32_t>::max()));
    at_ = end;
    cleared_ = everything;
    lost_ = 0;
}

ssize_t kx::log_file::write(const void *line, std::size_t size) {
    // The daemon counts a line before it writes it: this one is the first since the start of the file.
    if (cur_log_size == size && at_ > 0) {
        at_ = 0;
        cleared_ = 0;
    }
    auto length = static_cast<off_t>(size);
    if (at_ + length > cleared_) {
        clear_ahead(at_ + length);
    }
    ssize_t written = __real_write(fd_, line, size);
    if (written == length) {
        at_ += length;
        if (lost_ > 0) {
            report_written_again();
        }
        return written;
    }
    int error = written < 0 ? errno : ENOSPC;
    if (written > 0) {
        take_back(written);
    }
    report_lost(error);
    errno = error;
    return written;
}

// Overwrites old lines with one of blanks, up to the end of a line behind `needed`.
void kx::log_file::clear_ahead(off_t needed) {
    struct stat status {};
    if (fstat(fd_, &status) != 0 || status.st_size <= std::max(at_, cleared_)) {
        cleared_ = everything;
        return;
    }
    off_t end = needed + std::clamp(status.st_size / 16, cleared_least, cleared_most);
    std::array<char, line_max> text{};
    ssize_t size = pread(fd_, text.data(), text.size(), end - 1);
    if (size > 0) {
        const void *newline = std::memchr(text.data(), '\n', static_cast<std::size_t>(size));
        end += newline == nullptr ? size - 1 : static_cast<const char *>(newline) - text.data();
    }
    off_t start = std::max(at_, cleared_);
    cleared_ = std::min({end, status.st_size, start + cleared_most + 2 * line_max});
    write_blank_line(fd_, start, static_cast<std::size_t>(cleared_ - start));
}

// Removes the first part of a line that did not fit.
void kx::log_file::take_back(ssize_t written) {
    struct stat status {};
    if (fstat(fd_, &status) == 0 && status.st_size == at_ + written && ftruncate(fd_, at_) != 0) {
        at_ += written;
    }
    lseek(fd_, at_, SEEK_SET);
}

void kx::log_file::report_lost(int error) {
    port_losses().add_quietly(loss_log_lines);
    if (lost_++ == 0) {
        syslog(LOG_USER | LOG_ERR, "%s: %s; lines of the log are lost", path_.c_str(), std::strerror(error));
    }
}

void kx::log_file::report_written_again() {
    syslog(LOG_USER | LOG_WARNING, "%s: written again, %lu lines were lost", path_.c_str(), std::exchange(lost_, 0));
}

ssize_t __wrap_write(int fd, const void *bytes, size_t size) {
    return the_log.is(fd) ? the_log.write(bytes, size) : __real_write(fd, bytes, size);
}
