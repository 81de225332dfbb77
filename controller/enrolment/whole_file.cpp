#include "controller/enrolment/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>
#include <utility>

namespace controller {

namespace {

[[noreturn]] void fail(const std::string &name) { throw std::runtime_error(name + ": " + std::strerror(errno)); }

// A file that is removed unless it gets its name.
class file_aside {
public:
    file_aside(const std::string &name, mode_t mode)
        : name_(name), aside_(name + ".new"), fd_(open(aside_.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600)) {
        if (fd_ < 0) {
            fail(aside_);
        }
        if (fchmod(fd_, mode) != 0) {
            fail(aside_);
        }
    }
    ~file_aside() {
        close(fd_);
        if (!aside_.empty()) {
            unlink(aside_.c_str());
        }
    }
    file_aside(const file_aside &) = delete;
    file_aside &operator=(const file_aside &) = delete;

    void give_to(gid_t group) const {
        if (fchown(fd_, static_cast<uid_t>(-1), group) != 0) {
            fail(aside_);
        }
    }

    void write_all(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t size = write(fd_, text.data(), text.size());
            if (size < 0) {
                fail(aside_);
            }
            text.remove_prefix(static_cast<std::size_t>(size));
        }
        if (fsync(fd_) != 0) {
            fail(aside_);
        }
    }

    void take_its_name() {
        if (renameat2(AT_FDCWD, aside_.c_str(), AT_FDCWD, name_.c_str(), RENAME_NOREPLACE) != 0) {
            fail(name_);
        }
        aside_.clear();
    }

private:
    std::string name_, aside_;  // the second is empty once the file has its name
    int fd_;
};

}  // namespace

void write_new_file(const std::string &name, const std::string &content, mode_t mode, std::optional<gid_t> group) {
    file_aside made(name, mode);
    if (group && geteuid() == 0) {
        made.give_to(*group);
    }
    made.write_all(content);
    made.take_its_name();
}

void require_no_file(const std::string &name) {
    std::error_code error;
    if (std::filesystem::symlink_status(name, error).type() != std::filesystem::file_type::not_found) {
        throw std::runtime_error(name + " exists already");
    }
}

}  // namespace controller
