// The process: its end, its user, its signals, the shell and the system log.
#ifndef TESTS_SIM_SERVICES_PROCESS_H
#define TESTS_SIM_SERVICES_PROCESS_H

#include <unistd.h>

#include <csetjmp>

namespace sim {

// How client_mgr_main ended.
struct ending {
    bool exited;  // by exit()
    int status;
};

class process_service {
public:
    uid_t user = geteuid();  // the daemon's effective user

    // Runs the daemon's main. exit() ends the call.
    ending run_main();
    // The same, but exit() ends the process.
    void main_until_exit();
    bool inside_main() const { return inside_main_; }
    [[noreturn]] void leave_main(int status);

private:
    jmp_buf leave_;
    bool inside_main_ = false;
    int exit_status_ = 0;
    ending end_ = {};
};

}  // namespace sim

#endif
