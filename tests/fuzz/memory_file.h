// A file in memory, for code that reads files by name.
#ifndef TESTS_FUZZ_MEMORY_FILE_H
#define TESTS_FUZZ_MEMORY_FILE_H

#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdint>
#include <span>
#include <string>
#include <system_error>

namespace fuzz {

class memory_file {
public:
    explicit memory_file(std::span<const uint8_t> content) : fd_(memfd_create("fuzz", MFD_CLOEXEC)) {
        if (fd_ < 0 || fchmod(fd_, S_IRUSR | S_IWUSR) != 0 ||
            write(fd_, content.data(), content.size()) != static_cast<ssize_t>(content.size())) {
            throw std::system_error(errno, std::generic_category(), "a file in memory");
        }
    }
    ~memory_file() { close(fd_); }
    memory_file(const memory_file &) = delete;
    memory_file &operator=(const memory_file &) = delete;

    std::string path() const { return "/proc/self/fd/" + std::to_string(fd_); }

private:
    int fd_;
};

}  // namespace fuzz

#endif
