#include "lab/endpoint_program.h"

#include <poll.h>
#include <sys/signalfd.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <csignal>
#include <exception>
#include <iostream>
#include <stdexcept>
#include <system_error>

#include "common/command_line.h"

namespace lab {

namespace {

// Becomes readable when SIGINT or SIGTERM arrives.
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

void serve(const endpoint_program &program, bool json) {
    std::signal(SIGPIPE, SIG_IGN);
    kx::ipc_socket endpoint = kx::ipc_socket::open(program.endpoint);
    const end_signals signals;
    pollfd watched[] = {{signals.fd(), POLLIN, 0}, {endpoint.fd(), POLLIN, 0}};
    while (watched[0].revents == 0) {
        while (const auto message = endpoint.receive()) {
            std::cout << program.handle(endpoint, *message, json) << std::endl;
            if (!std::cout) {
                throw std::runtime_error("cannot write to standard output");
            }
        }
        if (poll(watched, std::size(watched), -1) < 0 && errno != EINTR) {
            throw std::system_error(errno, std::generic_category(), "poll");
        }
    }
}

}  // namespace

int run(const endpoint_program &program, int argc, char **argv) {
    try {
        bool json = false;
        CLI::App app(program.description, program.name);
        app.set_version_flag("--version", program.name + " " CLIENT_MGR_VERSION);
        app.add_flag("--json", json, "Print one JSON object per message");
        if (const auto status = kx::parse_command_line(app, argc, argv)) {
            return *status;
        }
        serve(program, json);
        return 0;
    } catch (const std::exception &error) {
        std::cerr << program.name << ": " << error.what() << '\n';
        return 1;
    }
}

}  // namespace lab
