// What client_mgr does on Linux before the daemon, which knows libc and the platform contract alone, begins.

#include "common/hardening.h"

namespace {

// glibc hands a constructor what main gets. With an argument the program only tells what it is.
[[gnu::constructor]] void harden_daemon(int argc, char **, char **) {
    if (argc == 1) {
        kx::harden_process();
    }
}

}  // namespace
