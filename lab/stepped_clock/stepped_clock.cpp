// A library for LD_PRELOAD. Adds the offset in the file $STEPPED_CLOCK, 64 bits of seconds in the host's order, to the
// real-time clock of client_mgr. Other clocks and other programs are not changed: apd must check certificates against
// the machine's clock.
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/time.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>

namespace {

const volatile std::int64_t *offset = nullptr;

[[gnu::constructor]] void open_clock() {
    const char *path = std::getenv("STEPPED_CLOCK");
    bool meant = std::strcmp(program_invocation_short_name, "client_mgr") == 0;
    int fd = path == nullptr || !meant ? -1 : open(path, O_RDONLY | O_CLOEXEC);
    if (fd < 0) {
        return;
    }
    void *mapped = mmap(nullptr, sizeof(*offset), PROT_READ, MAP_SHARED, fd, 0);
    close(fd);
    if (mapped != MAP_FAILED) {
        offset = static_cast<const volatile std::int64_t *>(mapped);
    }
}

}  // namespace

extern "C" int clock_gettime(clockid_t clock, timespec *now) noexcept {
    long result = syscall(SYS_clock_gettime, clock, now);
    if (result == 0 && (clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE) && offset != nullptr) {
        now->tv_sec += *offset;
    }
    return static_cast<int>(result);
}

extern "C" std::time_t time(std::time_t *result) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    if (result != nullptr) {
        *result = now.tv_sec;
    }
    return now.tv_sec;
}

extern "C" int gettimeofday(timeval *__restrict result, void *__restrict) noexcept {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    *result = {now.tv_sec, now.tv_nsec / 1000};
    return 0;
}
