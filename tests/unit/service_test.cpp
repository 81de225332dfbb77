#include "platform/linux/service.h"

#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <csignal>
#include <thread>

#include "kx/kx_eloop.h"
#include "platform/linux/port_losses.h"
#include "tests/unit/private_root.h"

class service : public private_root {
protected:
    // Whether the system log has the line in time.
    bool logged(const std::string &line) const {
        const auto start = std::chrono::steady_clock::now();
        for (;;) {
            const auto lines = syslog_lines();
            if (std::ranges::find(lines, line) != lines.end()) {
                return true;
            }
            if (std::chrono::steady_clock::now() - start > deadline) {
                return false;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
        }
    }
};

TEST_F(service, writes_its_losses_at_a_signal) {
    kx::port_losses().add_quietly(kx::loss_console_lines, 3);
    const auto lost = kx::port_losses().total(kx::loss_console_lines);
    const pid_t pid = fork();
    if (pid == 0) {
        std::signal(SIGUSR1, SIG_IGN);
        if (kx_eloop_init(nullptr) == 0) {
            kx::start_service();
            raise(SIGUSR1);
            kx_eloop_run();
        }
        _exit(1);
    }
    EXPECT_TRUE(logged("since the start: " + std::to_string(lost) + " lines of the log lost on the console"));
    kill(pid, SIGKILL);
    waitpid(pid, nullptr, 0);
}
