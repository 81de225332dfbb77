#include "tests/bench/measuring.h"

#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <stdexcept>

#include "tests/bench/private_dev.h"

namespace bench {

void add_options(CLI::App &app, options &wanted, const char *argv0, const char *rounds) {
    wanted.program = std::filesystem::path(argv0).replace_filename("client_mgr").string();
    app.add_option("--client-mgr", wanted.program, "the program to measure")->capture_default_str();
    app.add_option("--directory", wanted.directory, "where the processes' sockets and logs lie")->capture_default_str();
    app.add_option("--rounds", wanted.rounds, rounds)->check(CLI::Range(1, 1000))->capture_default_str();
    app.add_option("--cpu", wanted.cpu, "the CPU that all run on")->capture_default_str();
    app.add_option("--json", wanted.json_file, "where to write the figures as JSON");
}

workplace::workplace(const std::string &directory) : root(directory + "/client_mgr-bench.XXXXXX") {
    if (mkdtemp(root.data()) == nullptr) {
        throw std::runtime_error(root + ": cannot be made");
    }
    system_log = open_private_system_log();
    if (system_log < 0) {
        std::filesystem::remove_all(root);
        throw std::runtime_error("no mount namespace can be had for the system log: run it as root");
    }
}

workplace::~workplace() {
    close(system_log);
    std::filesystem::remove_all(root);
}

void share_cpu(int cpu) {
    cpu_set_t set;
    CPU_ZERO(&set);
    CPU_SET(cpu, &set);
    sched_param none{};
    if (sched_setaffinity(0, sizeof(set), &set) != 0 || sched_setscheduler(0, SCHED_BATCH, &none) != 0) {
        throw std::runtime_error("CPU " + std::to_string(cpu) + " cannot be had");
    }
}

void play_window(subject &to, const client_messages &make, std::size_t first, std::size_t end, unsigned round) {
    for (std::size_t client = first; client < end; client++) {
        for (const bytes &message : make(client, round)) {
            to.around().send(message);
        }
    }
}

void play(subject &to, const client_messages &make, std::size_t clients, unsigned round) {
    for (std::size_t first = 0; make && first < clients; first += window) {
        play_window(to, make, first, std::min(first + window, clients), round);
        to.around().settle();
    }
}

}  // namespace bench
