// The libc calls that leave the process, as the linker's --wrap routes them here. Without a platform, and for what is
// not the daemon's, they are libc's.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "effects.h"
#include "inside.h"
#include "platform.h"

namespace {

sim::platform *here() { return sim::platform::current; }

constexpr uint32_t GET_HWADDR = 0x8927;
constexpr uint32_t GET_STATIONS = 0x89f6;
constexpr size_t NAME_SIZE = 16;

// struct ifreq: the name and a struct sockaddr, whose data begin with the address.
constexpr size_t IFREQ_DATA = NAME_SIZE + 2;

// The wireless request record: name, pointer, length, flags, and zeros up to 32 bytes.
constexpr size_t IWREQ_LENGTH = NAME_SIZE + sizeof(void *);
constexpr size_t IWREQ_END = IWREQ_LENGTH + 4;
constexpr size_t IWREQ_SIZE = 32;

template <class T>
T field(const uint8_t *at) {
    T value;
    memcpy(&value, at, sizeof(value));
    return value;
}

std::string interface_name(const uint8_t *request) {
    const uint8_t *end = std::find(request, request + NAME_SIZE, 0);
    if (std::any_of(end, request + NAME_SIZE, [](uint8_t b) { return b != 0; })) {
        here()->complain("an interface name with something behind its terminator");
    }
    return {request, end};
}

int get_hwaddr(uint8_t *request) {
    const std::string ifname = interface_name(request);
    const auto known = here()->hwaddr.find(ifname);
    const int result = here()->outcome("ioctl", known == here()->hwaddr.end() ? -1 : 0);
    here()->record(sim::ioctl_text(GET_HWADDR, ifname, "") + (result < 0 ? " = " + std::to_string(result) : ""));
    if (result >= 0 && known != here()->hwaddr.end()) {
        memcpy(request + IFREQ_DATA, known->second.data(), 6);
    }
    return result;
}

int wireless_request(uint32_t number, uint8_t *request) {
    const std::string ifname = interface_name(request);
    auto *body = field<uint8_t *>(request + NAME_SIZE);
    const auto length = field<uint16_t>(request + IWREQ_LENGTH);
    const auto flags = field<uint16_t>(request + IWREQ_LENGTH + 2);
    if (std::any_of(request + IWREQ_END, request + IWREQ_SIZE, [](uint8_t b) { return b != 0; })) {
        here()->complain("a wireless request whose last bytes are not zero");
    }
    std::string rest = ", " + std::to_string(length) + ", " + std::to_string(flags);
    if (number != GET_STATIONS) {
        rest += ", " + sim::show(body, length);
    }
    const int result = here()->recorded("ioctl", sim::ioctl_text(number, ifname, rest), 0);
    if (number == GET_STATIONS && result >= 0) {
        const sim::bytes &list = here()->stations[ifname];
        memset(body, 0xee, length);
        std::copy_n(list.begin(), std::min<size_t>(list.size(), length), body);
        const auto returned = static_cast<uint16_t>(list.size());
        memcpy(request + IWREQ_LENGTH, &returned, sizeof(returned));
    }
    return result;
}

const char *signal_name(int number) {
    return number == SIGPIPE ? "SIGPIPE" : number == SIGCHLD ? "SIGCHLD" : "another signal";
}

bool is_dump_file(const char *path) { return here() != nullptr && strcmp(path, "/tmp/clientmgr_cli") == 0; }

// Whether a fault rule keeps the file from being opened.
bool refused(const char *path) {
    if (!is_dump_file(path) || here()->outcome("open", 0) >= 0) {
        return false;
    }
    errno = EACCES;
    return true;
}

// Whether a fault rule fails a call on the dump file's descriptor.
bool denied(const char *call) {
    const sim::outside platform;
    if (here() == nullptr || here()->outcome(call, 0) >= 0) {
        return false;
    }
    errno = EIO;
    return true;
}

// The daemon's dump file lies in the platform's own directory.
const char *redirected(const char *path) { return is_dump_file(path) ? here()->dump_path().c_str() : path; }

// A stream over a descriptor, whose writes a fault rule can fail.
int descriptor_of(void *cookie) { return static_cast<int>(reinterpret_cast<intptr_t>(cookie)); }

ssize_t stream_written(void *cookie, const char *data, size_t len) {
    const sim::outside platform;
    if (here() != nullptr && here()->outcome("write", 0) < 0) {
        errno = ENOSPC;
        return 0;
    }
    return write(descriptor_of(cookie), data, len);
}

int stream_closed(void *cookie) { return close(descriptor_of(cookie)); }

}  // namespace

extern "C" {

time_t __real_time(time_t *out);
int __real_clock_gettime(clockid_t clock, timespec *out);
int __real_gettimeofday(timeval *out, void *zone);
int __real_ioctl(int fd, unsigned long request, ...);
int __real_socket(int domain, int type, int protocol);
int __real_close(int fd);
int __real_system(const char *command);
sighandler_t __real_signal(int number, sighandler_t handler);
[[noreturn]] void __real_exit(int status);
int __real_open(const char *path, int flags, ...);
int __real_open64(const char *path, int flags, ...);
FILE *__real_fdopen(int fd, const char *mode);
uid_t __real_geteuid();
int __real_fstat(int fd, void *out);
int __real_fstat64(int fd, void *out);
int __real_fchmod(int fd, mode_t mode);
int __real_ftruncate(int fd, off_t length);
int __real_ftruncate64(int fd, int64_t length);

time_t __wrap_time(time_t *out) {
    if (here() == nullptr) {
        return __real_time(out);
    }
    const auto now = static_cast<time_t>(here()->wall_secs());
    if (out != nullptr) {
        *out = now;
    }
    return now;
}

int __wrap_clock_gettime(clockid_t clock, timespec *out) {
    if (here() == nullptr) {
        return __real_clock_gettime(clock, out);
    }
    const bool wall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    const int64_t usecs = wall ? here()->wall_usecs : here()->mono_usecs;
    out->tv_sec = static_cast<time_t>(usecs / 1000000);
    out->tv_nsec = static_cast<long>(usecs % 1000000 * 1000);
    return 0;
}

int __wrap_gettimeofday(timeval *out, void *zone) {
    if (here() == nullptr) {
        return __real_gettimeofday(out, zone);
    }
    out->tv_sec = static_cast<time_t>(here()->wall_secs());
    out->tv_usec = static_cast<suseconds_t>(here()->wall_usecs % 1000000);
    return 0;
}

int __wrap_ioctl(int fd, unsigned long request, ...) {
    const sim::outside platform;
    va_list args;
    va_start(args, request);
    auto *arg = va_arg(args, uint8_t *);
    va_end(args);
    if (here() == nullptr) {
        return __real_ioctl(fd, request, arg);
    }
    if (!here()->is_open(fd)) {
        errno = EBADF;
        return -1;
    }
    const int result = request == GET_HWADDR ? get_hwaddr(arg) : wireless_request(static_cast<uint32_t>(request), arg);
    if (result < 0) {
        errno = ENODEV;
    }
    return result;
}

int __wrap_socket(int domain, int type, int protocol) {
    const sim::outside platform;
    if (here() == nullptr) {
        return __real_socket(domain, type, protocol);
    }
    if (domain != AF_INET || type != SOCK_STREAM || protocol != 0) {
        here()->complain("a socket for the driver is an IPv4 stream socket");
    }
    if (here()->recorded("socket", "socket", 0) < 0) {
        errno = EMFILE;
        return -1;
    }
    return here()->open_socket();
}

int __wrap_close(int fd) {
    const sim::outside platform;
    if (here() == nullptr || !here()->is_open(fd)) {
        return __real_close(fd);
    }
    here()->record("close");
    here()->close_socket(fd);
    return 0;
}

int __wrap_system(const char *command) {
    const sim::outside platform;
    if (here() == nullptr) {
        return __real_system(command);
    }
    return here()->recorded("system", "system(" + sim::escaped(command) + ")", 0);
}

void __wrap_syslog(int priority, const char *fmt, ...) {
    const sim::outside platform;
    va_list args;
    va_start(args, fmt);
    char text[1024];
    vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    if (here() != nullptr) {
        here()->record("syslog " + std::to_string(priority) + ": " + sim::escaped(text));
    }
}

sighandler_t __wrap_signal(int number, sighandler_t handler) {
    const sim::outside platform;
    if (here() == nullptr) {
        return __real_signal(number, handler);
    }
    here()->record(std::string(handler == SIG_IGN ? "ignore " : "handle ") + signal_name(number));
    return SIG_DFL;
}

void __wrap_exit(int status) {
    if (here() != nullptr && here()->inside_main) {
        here()->leave_main(status);
    }
    __real_exit(status);
}

int __wrap_open(const char *path, int flags, ...) {
    const sim::outside platform;
    va_list args;
    va_start(args, flags);
    const unsigned mode = (flags & O_CREAT) != 0 ? va_arg(args, unsigned) : 0;
    va_end(args);
    if (refused(path)) {
        return -1;
    }
    return __real_open(redirected(path), flags, mode);
}

// What open is called with 64-bit file sizes.
int __wrap_open64(const char *path, int flags, ...) {
    const sim::outside platform;
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
    const sim::outside platform;
    if (here() == nullptr) {
        return __real_fdopen(fd, mode);
    }
    if (denied("fdopen")) {
        return nullptr;
    }
    return fopencookie(reinterpret_cast<void *>(static_cast<intptr_t>(fd)), mode,
                       {nullptr, stream_written, nullptr, stream_closed});
}

uid_t __wrap_geteuid() { return here() != nullptr ? here()->user : __real_geteuid(); }

// struct stat or struct stat64, as the caller has it.
int __wrap_fstat(int fd, void *out) { return denied("fstat") ? -1 : __real_fstat(fd, out); }

int __wrap_fstat64(int fd, void *out) { return denied("fstat") ? -1 : __real_fstat64(fd, out); }

int __wrap_fchmod(int fd, mode_t mode) { return denied("fchmod") ? -1 : __real_fchmod(fd, mode); }

int __wrap_ftruncate(int fd, off_t length) { return denied("ftruncate") ? -1 : __real_ftruncate(fd, length); }

int __wrap_ftruncate64(int fd, int64_t length) { return denied("ftruncate") ? -1 : __real_ftruncate64(fd, length); }
}
