// Walks through every reachable state of the daemon, breadth first.
#include <getopt.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>

#include "state_store.h"
#include "steps.h"
#include "walk.h"

namespace {

using clock_type = std::chrono::steady_clock;

constexpr int EXIT_USAGE = 64;
constexpr int EXIT_NO_MEMORY = 71;
constexpr int PROGRESS_SECS = 10;

constexpr char HELP[] =
    "Usage: sim_walk [options]\n"
    "Takes every step from every state that the daemon can get into with two stations, two VAPs (the second for\n"
    "guests) and a controller, and checks each. Exit status 1: something was wrong; the way to it is printed.\n"
    "\n"
    "  --depth N     steps that follow one another (no limit)\n"
    "  --minutes N   how long (no limit)\n"
    "  --jobs N      processes (1)\n"
    "  --memory N    MiB for the states that were seen (256)\n"
    "  --help        show this text and exit\n"
    "  --version     show the version and exit\n";

struct options {
    uint32_t depth = UINT32_MAX;
    uint32_t minutes = 0;
    uint32_t jobs = 1;
    uint32_t memory = 256;
};

// What the processes of a walk share besides the states.
struct shared_progress {
    std::atomic<uint32_t> next;  // state to expand
    std::atomic<uint32_t> steps;
    std::atomic<bool> late;
    std::atomic<bool> full;
};

class breadth_first {
public:
    breadth_first(const options &o, sim::state_store &store)
        : options_(o),
          out_(stdout),
          store_(store),
          walk_(store),
          progress_(*new (sim::shared_memory(sizeof(shared_progress))) shared_progress{}) {}

    bool run() {
        uint32_t depth = 0;
        say("%zu kinds of steps\n", sim::all_steps().size());
        for (uint32_t begin = 0; depth < options_.depth; depth++) {
            const uint32_t end = store_.count();
            if (begin == end) {
                break;
            }
            if (!expand_all(begin, end)) {
                return false;
            }
            if (progress_.late || progress_.full) {
                summary(depth, end - begin, std::min(progress_.next.load(), end) - begin);
                return true;
            }
            begin = end;
            say("depth %u: %u states, %u of them new, %u steps, %.0f s\n", depth + 1, store_.count(),
                store_.count() - end, steps(), elapsed());
        }
        summary(depth, 0, 0);
        return true;
    }

private:
    // Expands every state of a level in `jobs` processes. False when one of them found a fault.
    bool expand_all(uint32_t begin, uint32_t end) {
        progress_.next = begin;
        fflush(out_);
        for (uint32_t job = 0; job < options_.jobs; job++) {
            const pid_t child = fork();
            if (child < 0) {
                throw std::system_error(errno, std::generic_category(), "cannot fork");
            }
            if (child == 0) {
                prctl(PR_SET_PDEATHSIG, SIGTERM);
                const bool good = work(end, job == 0);
                fflush(out_);
                _exit(good ? EXIT_SUCCESS : EXIT_FAILURE);
            }
        }
        bool good = true;
        for (int status; wait(&status) > 0;) {
            good = good && WIFEXITED(status) && WEXITSTATUS(status) == EXIT_SUCCESS;
        }
        return good;
    }

    bool work(uint32_t end, bool tells) {
        double told = elapsed();
        uint64_t before = walk_.steps_taken();
        for (uint32_t state; !progress_.late && !progress_.full && (state = progress_.next++) < end;) {
            if (!walk_.expand(state)) {
                progress_.late = true;  // the other processes end too
                return false;
            }
            progress_.steps += static_cast<uint32_t>(walk_.steps_taken() - before);
            before = walk_.steps_taken();
            if (walk_.out_of_room()) {
                progress_.full = true;
            }
            const double now = elapsed();
            if (options_.minutes != 0 && now >= options_.minutes * 60.0) {
                progress_.late = true;
            }
            if (tells && now >= told + PROGRESS_SECS) {
                told = now;
                say("%.0f s: state %u of %u of this depth's last, %u states, %u steps, %zu MiB\n", now, state, end,
                    store_.count(), steps(), store_.bytes_used() >> 20);
            }
        }
        return true;
    }

    void summary(uint32_t depth, uint32_t begun, uint32_t expanded) {
        const char *why = progress_.full ? "the memory is full" : progress_.late ? "the time is up" : "done";
        say("%s: %u states, %u steps, every sequence of %u steps", why, store_.count(), steps(), depth);
        if (begun != 0) {
            say(" and %.1f %% of those of %u", 100.0 * expanded / begun, depth + 1);
        }
        say(", %.0f s\n", elapsed());
    }

    template <class... Values>
    void say(const char *format, Values... values) {
        fprintf(out_, format, values...);
        fflush(out_);
    }

    uint32_t steps() const { return progress_.steps; }
    double elapsed() const { return std::chrono::duration<double>(clock_type::now() - start_).count(); }

    const options &options_;
    FILE *out_;  // the real standard output; a platform redirects stdout
    sim::state_store &store_;
    sim::walk walk_;
    shared_progress &progress_;
    clock_type::time_point start_ = clock_type::now();
};

[[noreturn]] void bad_usage(const std::string &what) {
    fprintf(stderr, "sim_walk: %s; see sim_walk --help\n", what.c_str());
    exit(EXIT_USAGE);
}

uint32_t number(const std::string &text) {
    char *end = nullptr;
    const unsigned long value = strtoul(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || text[0] == '-' || value == 0 || value > 1000000) {
        bad_usage("'" + text + "' is not a number from 1 to 1000000");
    }
    return static_cast<uint32_t>(value);
}

options parse(int argc, char **argv) {
    constexpr option names[] = {{"depth", required_argument, nullptr, 'd'},
                                {"minutes", required_argument, nullptr, 'm'},
                                {"jobs", required_argument, nullptr, 'j'},
                                {"memory", required_argument, nullptr, 'M'},
                                {"help", no_argument, nullptr, 'h'},
                                {"version", no_argument, nullptr, 'v'},
                                {nullptr, 0, nullptr, 0}};
    options o;
    for (int c; (c = getopt_long(argc, argv, "", names, nullptr)) != -1;) {
        if (c == 'd') {
            o.depth = number(optarg);
        } else if (c == 'm') {
            o.minutes = number(optarg);
        } else if (c == 'j') {
            o.jobs = number(optarg);
        } else if (c == 'M') {
            o.memory = number(optarg);
        } else if (c == 'h') {
            fputs(HELP, stdout);
            exit(EXIT_SUCCESS);
        } else if (c == 'v') {
            puts("sim_walk " CLIENT_MGR_VERSION);
            exit(EXIT_SUCCESS);
        } else {
            exit(EXIT_USAGE);
        }
    }
    if (optind < argc) {
        bad_usage(std::string("unexpected argument '") + argv[optind] + "'");
    }
    return o;
}

}  // namespace

int main(int argc, char **argv) {
    const options o = parse(argc, argv);
    try {
        sim::state_store store(size_t{o.memory} << 20);
        breadth_first search(o, store);
        return search.run() ? EXIT_SUCCESS : EXIT_FAILURE;
    } catch (const std::system_error &e) {
        fprintf(stderr, "sim_walk: %s\n", e.what());
        return EXIT_NO_MEMORY;
    }
}
