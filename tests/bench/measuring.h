// Shared by the benchmarks of the whole daemon.
#ifndef TESTS_BENCH_MEASURING_H
#define TESTS_BENCH_MEASURING_H

#include <CLI/CLI.hpp>
#include <cstddef>
#include <string>
#include <vector>

#include "tests/bench/event_kinds.h"
#include "tests/bench/quantile.h"
#include "tests/bench/subject.h"

namespace bench {

// The number of events that wait for the measured process at a time.
inline constexpr std::size_t window = 8;

struct options {
    std::string program, json_file;
    std::string directory = "/dev/shm";  // in memory, as /run, where an access point has them
    unsigned rounds = 15;
    int cpu = 0;
};
// Adds the options to the command line of the program `argv0`. `rounds` describes its rounds.
void add_options(CLI::App &app, options &wanted, const char *argv0, const char *rounds);

// A directory for sockets and logs, removed with the object, and the system log of all measured processes. Throws
// std::runtime_error.
struct workplace {
    explicit workplace(const std::string &directory);
    ~workplace();
    workplace(const workplace &) = delete;
    workplace &operator=(const workplace &) = delete;

    std::string root;
    int system_log;
};

// Puts this process and its children on one CPU. In SCHED_BATCH the driver, which each message wakes, does not
// preempt the measured process but waits until it sleeps. The measured processes leave that class when they start.
void share_cpu(int cpu);

// Sends the messages that `make` returns for the clients from `first` to before `end`.
void play_window(subject &to, const client_messages &make, std::size_t first, std::size_t end, unsigned round);
// The same for all clients below `clients`, window by window, until everything is handled. `make` may be empty.
void play(subject &to, const client_messages &make, std::size_t clients, unsigned round);

}  // namespace bench

#endif
