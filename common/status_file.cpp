#include "common/status_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>

#include "common/paths.h"

namespace kx {

namespace {

std::string file_of(const std::string &program) { return place("/kx/" + program + ".status"); }

bool write_whole(const std::string &file, const std::string &text) {
    int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, S_IRUSR | S_IWUSR);
    if (fd < 0) {
        return false;
    }
    bool whole = write(fd, text.data(), text.size()) == static_cast<ssize_t>(text.size());
    close(fd);
    return whole;
}

}  // namespace

void write_status_file(const std::string &program, const std::string &text) {
    std::string file = file_of(program);
    std::string aside = file + ".new";
    if (!write_whole(aside, text) || std::rename(aside.c_str(), file.c_str()) != 0) {
        unlink(aside.c_str());
        unlink(file.c_str());
    }
}

void remove_status_file(const std::string &program) { unlink(file_of(program).c_str()); }

}  // namespace kx
