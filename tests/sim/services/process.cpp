#include "services/process.h"

#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <string>

#include "client_mgr/startup.h"
#include "effects.h"
#include "inside.h"
#include "platform.h"
#include "services/names.h"

namespace sim {
namespace {

const char *signal_name(int number) {
    return number == SIGPIPE ? "SIGPIPE" : number == SIGCHLD ? "SIGCHLD" : "another signal";
}

}  // namespace

ending process_service::run_main() {
    inside_main_ = true;
    const inside daemon;
    if (setjmp(leave_) == 0) {
        end_ = {false, client_mgr_main()};
    } else {
        end_ = {true, exit_status_};
    }
    inside_main_ = false;
    fflush(stdout);  // as the end of the process does
    return end_;
}

void process_service::main_until_exit() { client_mgr_main(); }

void process_service::leave_main(int status) {
    exit_status_ = status;
    longjmp(leave_, 1);
}

extern "C" {

int __real_system(const char *command);
sighandler_t __real_signal(int number, sighandler_t handler);
[[noreturn]] void __real_exit(int status);
uid_t __real_geteuid();

int __wrap_system(const char *command) {
    const outside daemon;
    if (platform::current == nullptr) {
        return __real_system(command);
    }
    return here().recorded("system", "system(" + escaped(command) + ")", 0);
}

void __wrap_syslog(int priority, const char *fmt, ...) {
    const outside daemon;
    va_list args;
    va_start(args, fmt);
    char text[1024];
    vsnprintf(text, sizeof(text), fmt, args);
    va_end(args);
    if (platform::current != nullptr) {
        here().record("syslog " + std::to_string(priority) + ": " + escaped(text));
    }
}

sighandler_t __wrap_signal(int number, sighandler_t handler) {
    const outside daemon;
    if (platform::current == nullptr) {
        return __real_signal(number, handler);
    }
    here().record(std::string(handler == SIG_IGN ? "ignore " : "handle ") + signal_name(number));
    return SIG_DFL;
}

void __wrap_exit(int status) {
    if (platform::current != nullptr && here().inside_main()) {
        here().leave_main(status);
    }
    __real_exit(status);
}

uid_t __wrap_geteuid() { return platform::current != nullptr ? here().user : __real_geteuid(); }

}  // extern "C"

}  // namespace sim
