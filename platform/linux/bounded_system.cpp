// system: the program is linked with --wrap=system. A command that does not end is killed, with everything in its
// process group, so that it cannot hold the event loop for ever.
#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <syslog.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <ctime>

extern "C" int __wrap_system(const char *command);

namespace {

constexpr time_t seconds_max = 10;
// After a command that was killed, until one ends by itself: many commands may follow, which hang as well.
constexpr time_t seconds_max_after_hang = 1;

constinit bool last_one_hung = false;

timespec monotonic_now() {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return now;
}

// SIGCHLD, which the daemon ignores, is kept for sigtimedwait while this lives: an ignored one reaps the child.
class child_signal {
public:
    child_signal() {
        sigemptyset(&only_);
        sigaddset(&only_, SIGCHLD);
        sigprocmask(SIG_BLOCK, &only_, &mask_before_);
        struct sigaction normal {};
        normal.sa_handler = SIG_DFL;
        sigaction(SIGCHLD, &normal, &action_before_);
    }
    ~child_signal() {
        sigaction(SIGCHLD, &action_before_, nullptr);
        sigprocmask(SIG_SETMASK, &mask_before_, nullptr);
    }
    child_signal(const child_signal &) = delete;
    child_signal &operator=(const child_signal &) = delete;

    void wait(time_t seconds) const {
        timespec time{seconds, 0};
        sigtimedwait(&only_, nullptr, &time);
    }
    const sigset_t &mask_before() const { return mask_before_; }

private:
    sigset_t only_{}, mask_before_{};
    struct sigaction action_before_ {};
};

// Returns the process id of the shell, which leads a process group of its own, or -1.
pid_t start(const char *command, const child_signal &child) {
    posix_spawnattr_t attributes;
    posix_spawnattr_init(&attributes);
    posix_spawnattr_setflags(&attributes, POSIX_SPAWN_SETPGROUP | POSIX_SPAWN_SETSIGMASK);
    posix_spawnattr_setpgroup(&attributes, 0);
    posix_spawnattr_setsigmask(&attributes, &child.mask_before());
    const char *arguments[] = {"sh", "-c", command, nullptr};
    pid_t pid = -1;
    int error = posix_spawn(&pid, "/bin/sh", nullptr, &attributes, const_cast<char **>(arguments), environ);
    posix_spawnattr_destroy(&attributes);
    errno = error;
    return error == 0 ? pid : -1;
}

}  // namespace

// The status of the command as from system(3).
int __wrap_system(const char *command) {
    const child_signal child;
    const pid_t pid = start(command, child);
    if (pid < 0) {
        return -1;
    }
    const time_t limit = last_one_hung ? seconds_max_after_hang : seconds_max;
    const time_t deadline = monotonic_now().tv_sec + limit;
    int status = 0;
    while (waitpid(pid, &status, WNOHANG) == 0) {
        if (monotonic_now().tv_sec >= deadline + 1) {
            kill(-pid, SIGKILL);
            waitpid(pid, &status, 0);
            syslog(LOG_USER | LOG_ERR, "command killed after %ld s: %s", static_cast<long>(limit), command);
            last_one_hung = true;
            return status;
        }
        child.wait(1);
    }
    last_one_hung = false;
    return status;
}
