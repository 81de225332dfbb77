#include "controller/enrolment/whole_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <stdexcept>
#include <string_view>

namespace controller {

namespace {

[[noreturn]] void fail(const std::string &name) { throw std::runtime_error(name + ": " + std::strerror(errno)); }

class descriptor {
public:
    explicit descriptor(int fd) : fd_(fd) {}
    ~descriptor() {
        if (fd_ >= 0) {
            close(fd_);
        }
    }
    descriptor(const descriptor &) = delete;
    descriptor &operator=(const descriptor &) = delete;
    int get() const { return fd_; }

private:
    int fd_;
};

// A file that is removed unless it gets its name.
class file_aside {
public:
    explicit file_aside(const std::string &name)
        : name_(name), aside_(name + ".XXXXXX"), made_(mkostemp(aside_.data(), O_CLOEXEC)) {
        if (made_.get() < 0) {
            fail(name_);
        }
    }
    ~file_aside() {
        if (!aside_.empty()) {
            unlink(aside_.c_str());
        }
    }
    file_aside(const file_aside &) = delete;
    file_aside &operator=(const file_aside &) = delete;

    void allow(mode_t mode) const { require(fchmod(made_.get(), mode)); }
    void give_to(gid_t group) const { require(fchown(made_.get(), static_cast<uid_t>(-1), group)); }

    void write_all(std::string_view text) const {
        while (!text.empty()) {
            const ssize_t size = write(made_.get(), text.data(), text.size());
            if (size < 0) {
                fail(name_);
            }
            text.remove_prefix(static_cast<std::size_t>(size));
        }
        require(fsync(made_.get()));
    }

    void take_its_name() {
        require(renameat2(AT_FDCWD, aside_.c_str(), AT_FDCWD, name_.c_str(), RENAME_NOREPLACE));
        aside_.clear();
        const auto parent = std::filesystem::path(name_).parent_path();
        const descriptor directory(open(parent.empty() ? "." : parent.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
        if (directory.get() < 0 || fsync(directory.get()) != 0) {
            const int why = errno;
            unlink(name_.c_str());
            errno = why;
            fail(name_);
        }
    }

private:
    void require(int result) const {
        if (result != 0) {
            fail(name_);
        }
    }

    std::string name_, aside_;  // the second is empty once the file has its name
    descriptor made_;           // with mode 0600
};

}  // namespace

void write_new_file(const std::string &name, std::string_view content, mode_t mode, std::optional<gid_t> group) {
    file_aside made(name);
    if (group && geteuid() == 0) {
        made.give_to(*group);
    }
    made.allow(mode);
    made.write_all(content);
    made.take_its_name();
}

secret_text read_file(const std::string &name, std::size_t size_max) {
    const descriptor from(open(name.c_str(), O_RDONLY | O_CLOEXEC));
    if (from.get() < 0) {
        fail(name);
    }
    secret_text text(size_max + 1, '\0');
    std::size_t length = 0;
    while (length < text.size()) {
        const ssize_t size = read(from.get(), text.data() + length, text.size() - length);
        if (size < 0) {
            fail(name);
        }
        if (size == 0) {
            text.resize(length);
            return text;
        }
        length += static_cast<std::size_t>(size);
    }
    throw std::runtime_error(name + ": has more than " + std::to_string(size_max) + " bytes");
}

void require_no_file(const std::string &name) {
    std::error_code error;
    if (std::filesystem::symlink_status(name, error).type() != std::filesystem::file_type::not_found) {
        throw std::runtime_error(name + " exists already");
    }
}

}  // namespace controller
