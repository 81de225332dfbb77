#include "services/dump_file.h"

#include <fcntl.h>
#include <stdlib.h>
#include <unistd.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "inside.h"
#include "platform.h"
#include "services/names.h"

namespace sim {
namespace {

std::string own_directory() {
    char name[] = "/tmp/client_mgr_sim.XXXXXX";
    if (mkdtemp(name) == nullptr) {
        throw std::runtime_error("no directory of its own below /tmp");
    }
    return name;
}

bool is_dump_file(const char *path) { return platform::current != nullptr && strcmp(path, "/tmp/clientmgr_cli") == 0; }

// Whether a rule makes the opening of the file fail.
bool refused(const char *path) {
    if (!is_dump_file(path) || here().outcome("open", 0) >= 0) {
        return false;
    }
    errno = EACCES;
    return true;
}

// Whether a rule makes a call on the dump file's descriptor fail.
bool denied(const char *call) {
    const outside daemon;
    if (platform::current == nullptr || here().outcome(call, 0) >= 0) {
        return false;
    }
    errno = EIO;
    return true;
}

// The daemon's dump file is in the platform's own directory.
const char *redirected(const char *path) { return is_dump_file(path) ? here().dump_path().c_str() : path; }

// A stream on a descriptor. A rule can make its writes fail.
int descriptor_of(void *cookie) { return static_cast<int>(reinterpret_cast<intptr_t>(cookie)); }

ssize_t stream_written(void *cookie, const char *data, size_t len) {
    const outside daemon;
    if (platform::current != nullptr && here().outcome("write", 0) < 0) {
        errno = ENOSPC;
        return 0;
    }
    return write(descriptor_of(cookie), data, len);
}

int stream_closed(void *cookie) { return close(descriptor_of(cookie)); }

}  // namespace

dump_file_service::~dump_file_service() {
    if (!dump_file_.empty()) {
        unlink(dump_file_.c_str());
        rmdir(dump_file_.substr(0, dump_file_.rfind('/')).c_str());
    }
}

const std::string &dump_file_service::dump_path() {
    if (dump_file_.empty()) {
        dump_file_ = own_directory() + "/clientmgr_cli";
    }
    return dump_file_;
}

extern "C" {

int __real_open(const char *path, int flags, ...);
int __real_open64(const char *path, int flags, ...);
FILE *__real_fdopen(int fd, const char *mode);
int __real_fstat(int fd, void *out);
int __real_fstat64(int fd, void *out);
int __real_fchmod(int fd, mode_t mode);
int __real_ftruncate(int fd, off_t length);
int __real_ftruncate64(int fd, int64_t length);

int __wrap_open(const char *path, int flags, ...) {
    const outside daemon;
    va_list args;
    va_start(args, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
    va_end(args);
    if (refused(path)) {
        return -1;
    }
    return __real_open(redirected(path), flags, mode);
}

// The name of open() with 64-bit file sizes.
int __wrap_open64(const char *path, int flags, ...) {
    const outside daemon;
    va_list args;
    va_start(args, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
    va_end(args);
    if (refused(path)) {
        return -1;
    }
    return __real_open64(redirected(path), flags, mode);
}

FILE *__wrap_fdopen(int fd, const char *mode) {
    const outside daemon;
    if (platform::current == nullptr) {
        return __real_fdopen(fd, mode);
    }
    if (denied("fdopen")) {
        return nullptr;
    }
    return fopencookie(reinterpret_cast<void *>(static_cast<intptr_t>(fd)), mode,
                       {nullptr, stream_written, nullptr, stream_closed});
}

// `out` is a struct stat or a struct stat64.
int __wrap_fstat(int fd, void *out) { return denied("fstat") ? -1 : __real_fstat(fd, out); }

int __wrap_fstat64(int fd, void *out) { return denied("fstat") ? -1 : __real_fstat64(fd, out); }

int __wrap_fchmod(int fd, mode_t mode) { return denied("fchmod") ? -1 : __real_fchmod(fd, mode); }

int __wrap_ftruncate(int fd, off_t length) { return denied("ftruncate") ? -1 : __real_ftruncate(fd, length); }

int __wrap_ftruncate64(int fd, int64_t length) { return denied("ftruncate") ? -1 : __real_ftruncate64(fd, length); }

}  // extern "C"

}  // namespace sim
