// The main function of a daemon of the access point.
#ifndef COMMON_RUN_DAEMON_H
#define COMMON_RUN_DAEMON_H

namespace kx {

// Calls `run` with the arguments of main() and returns its exit status. An exception's reason goes to standard error,
// and its exit status is EX_CONFIG for a config_error and EX_OSERR for every other one (sysexits.h).
int run_daemon(const char *name, int (*run)(int argc, char **argv), int argc, char **argv);

}  // namespace kx

#endif
