#include "lab/endpoint_loop.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <system_error>

namespace lab {

namespace {

// Becomes readable when the process is asked to end.
class end_signals {
public:
    end_signals() {
        sigset_t set;
        sigemptyset(&set);
        sigaddset(&set, SIGINT);
        sigaddset(&set, SIGTERM);
        sigprocmask(SIG_BLOCK, &set, nullptr);
        fd_ = signalfd(-1, &set, SFD_CLOEXEC);
        if (fd_ < 0) {
            throw std::system_error(errno, std::generic_category(), "signalfd");
        }
    }
    ~end_signals() { close(fd_); }
    end_signals(const end_signals &) = delete;
    end_signals &operator=(const end_signals &) = delete;
    int fd() const { return fd_; }

private:
    int fd_ = -1;
};

}  // namespace

void serve_endpoint(kx::ipc_socket &endpoint, const std::function<bool(const kx::ipc_message &)> &take) {
    const end_signals signals;
    pollfd watched[] = {{signals.fd(), POLLIN, 0}, {endpoint.fd(), POLLIN, 0}};
    while (watched[0].revents == 0) {
        while (const auto message = endpoint.receive()) {
            if (!take(*message)) {
                return;
            }
        }
        if (poll(watched, std::size(watched), -1) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
    }
}

}  // namespace lab
