#include "common/hardening.h"

#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <syslog.h>
#include <unistd.h>

#include <cstddef>
#include <cstdint>

// Set by the linker, see end(3): the limits of the program's own variables, which include the daemon's tables.
extern "C" {
extern char __data_start[];  // NOLINT(bugprone-reserved-identifier)
extern char end[];
}

namespace kx {

namespace {

struct pages {
    void *start;
    std::size_t size;
};

pages own_variables() {
    auto page = static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    char *first = __data_start - reinterpret_cast<std::uintptr_t>(__data_start) % page;
    auto size = static_cast<std::size_t>(end - first);
    return {first, (size + page - 1) / page * page};
}

// Asks the kernel, since a capability that is limited to a user namespace does not lift the limit.
bool may_exceed(rlim_t limit) {
    auto size = static_cast<std::size_t>(limit) + static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
    void *probe = mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (probe == MAP_FAILED) {
        return false;
    }
    bool locked = mlock2(probe, size, MLOCK_ONFAULT) == 0;
    munmap(probe, size);
    return locked;
}

// All memory, including what is mapped later, is locked only without a limit: a stack that reaches the limit kills the
// process. MLOCK_ONFAULT locks a page when it is first used, so that memory which is never touched takes no room.
void lock_memory() {
    rlimit limit{};
    getrlimit(RLIMIT_MEMLOCK, &limit);
    limit.rlim_cur = limit.rlim_max;
    setrlimit(RLIMIT_MEMLOCK, &limit);
    bool unlimited = limit.rlim_max == RLIM_INFINITY || may_exceed(limit.rlim_max);
    if (unlimited && mlockall(MCL_CURRENT | MCL_FUTURE | MCL_ONFAULT) == 0) {
        return;
    }
    pages variables = own_variables();
    bool locked = mlock2(variables.start, variables.size, MLOCK_ONFAULT) == 0;
    syslog(LOG_USER | LOG_WARNING,
           "RLIMIT_MEMLOCK is %llu bytes: %s, keys may be swapped out; LimitMEMLOCK=infinity avoids that",
           static_cast<unsigned long long>(limit.rlim_max),
           locked ? "only the program's own variables are locked in memory" : "no memory is locked");
}

}  // namespace

void harden_process() {
    prctl(PR_SET_DUMPABLE, 0, 0, 0, 0);
    prctl(PR_SET_NO_NEW_PRIVS, 1, 0, 0, 0);
    rlimit none{0, 0};
    setrlimit(RLIMIT_CORE, &none);
    pages variables = own_variables();
    madvise(variables.start, variables.size, MADV_DONTDUMP);
    lock_memory();
}

}  // namespace kx
