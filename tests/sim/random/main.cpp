// Random runs. The tables are checked after every event, and one hash covers all effects. It is the same on every
// machine.
#include <getopt.h>
#include <unistd.h>

#include <bit>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>

#include "event.h"
#include "portable_text.h"
#include "soundness.h"

namespace {

constexpr int EXIT_USAGE = 64;
constexpr size_t LAST_EFFECTS = 30;  // printed with a fault

constexpr char HELP[] =
    "Usage: sim_random [options]\n"
    "Drives the daemon with random events and checks it after each. Prints a line for each seed: the seed, the\n"
    "number of effects, and a hash over all of them that is the same on every machine. Exit status 1: a fault.\n"
    "\n"
    "  --seeds A-B       the seeds, or a single one (1-50)\n"
    "  --events N        events of each run (2000)\n"
    "  --hash-file FILE  compare each line with FILE's\n"
    "  --trace SEED      print every event and effect of one run instead\n"
    "  --help            show this text and exit\n"
    "  --version         show the version and exit\n";

struct options {
    uint64_t first = 1;
    uint64_t last = 50;
    uint32_t events = 2000;
    std::string hash_file;
    bool trace = false;
};

// FNV-1a of 64 bits (Fowler, Noll, Vo), but on eight bytes at a time. Every step is a bijection of the value, so the
// hashes of different lines stay different while the rest is the same.
struct line_hash {
    uint64_t value = 0xcbf29ce484222325;

    void add(const std::string &line) {
        size_t at = 0;
        for (; at + 8 <= line.size(); at += 8) {
            step(word(line.data() + at));
        }
        char rest[8] = {};
        line.copy(rest, sizeof rest, at);
        step(word(rest));
        step(line.size());
    }

private:
    static uint64_t word(const char *p) {
        uint64_t w;
        memcpy(&w, p, sizeof w);
        return std::endian::native == std::endian::little ? __builtin_bswap64(w) : w;
    }
    void step(uint64_t w) {
        value = (value ^ w) * 0x100000001b3;
        value ^= value >> 32;
    }
};

class random_run {
public:
    random_run(uint64_t seed, FILE *trace) : seed_(seed), source_(seed), sim_(3), trace_(trace) {}

    // True when there was no fault.
    bool run(uint32_t events) {
        for (uint32_t i = 1; i <= events; i++) {
            const sim::event e = source_.next();
            if (trace_ != nullptr) {
                fprintf(trace_, "event %u: %s\n", i, e.text().c_str());
            }
            e.happen(sim_);
            std::vector<std::string> effects = sim_.take_effects();
            add_dump(effects);
            for (std::string &effect : effects) {
                account_for(effect);
            }
            const std::vector<std::string> faults = sim::faults_of_daemon(sim_);
            if (!faults.empty()) {
                report(i, e, faults, effects);
                return false;
            }
        }
        return true;
    }

    std::string result() const {
        char line[80];
        snprintf(line, sizeof line, "%llu %zu %016llx", static_cast<unsigned long long>(seed_), count_,
                 static_cast<unsigned long long>(hash_.value));
        return line;
    }

private:
    void account_for(std::string &effect) {
        effect = sim::portable_text(std::move(effect));
        hash_.add(effect);
        count_++;
        if (trace_ != nullptr) {
            fprintf(trace_, "  %s\n", effect.c_str());
        }
    }

    // The daemon's table dump, line by line.
    void add_dump(std::vector<std::string> &effects) {
        std::ifstream file(sim_.dump_path());
        if (!file) {
            return;
        }
        for (std::string line; std::getline(file, line);) {
            effects.push_back("dump: " + line);
        }
        unlink(sim_.dump_path().c_str());
    }

    void report(uint32_t index, const sim::event &e, const std::vector<std::string> &faults,
                const std::vector<std::string> &effects) const {
        fprintf(stderr, "seed %llu, event %u: %s\n", static_cast<unsigned long long>(seed_), index, e.text().c_str());
        for (const std::string &fault : faults) {
            fprintf(stderr, "fault: %s\n", fault.c_str());
        }
        const size_t from = effects.size() > LAST_EFFECTS ? effects.size() - LAST_EFFECTS : 0;
        for (size_t i = from; i < effects.size(); i++) {
            fprintf(stderr, "  %s\n", effects[i].c_str());
        }
    }

    uint64_t seed_;
    sim::event_source source_;
    sim::platform sim_;
    FILE *trace_;
    line_hash hash_;
    size_t count_ = 0;
};

[[noreturn]] void bad_usage(const std::string &what) {
    fprintf(stderr, "sim_random: %s; see sim_random --help\n", what.c_str());
    exit(EXIT_USAGE);
}

uint64_t number(const std::string &text) {
    char *end = nullptr;
    const uint64_t value = strtoull(text.c_str(), &end, 10);
    if (text.empty() || *end != '\0' || text[0] == '-') {
        bad_usage("'" + text + "' is not a number");
    }
    return value;
}

options parse(int argc, char **argv) {
    constexpr option names[] = {{"seeds", required_argument, nullptr, 's'},
                                {"events", required_argument, nullptr, 'e'},
                                {"hash-file", required_argument, nullptr, 'f'},
                                {"trace", required_argument, nullptr, 't'},
                                {"help", no_argument, nullptr, 'h'},
                                {"version", no_argument, nullptr, 'v'},
                                {nullptr, 0, nullptr, 0}};
    options o;
    for (int c; (c = getopt_long(argc, argv, "", names, nullptr)) != -1;) {
        const std::string value = optarg != nullptr ? optarg : "";
        if (c == 's') {
            const size_t dash = value.find('-', 1);
            o.first = number(value.substr(0, dash));
            o.last = dash == std::string::npos ? o.first : number(value.substr(dash + 1));
        } else if (c == 'e') {
            o.events = static_cast<uint32_t>(number(value));
        } else if (c == 'f') {
            o.hash_file = value;
        } else if (c == 't') {
            o.first = o.last = number(value);
            o.trace = true;
        } else if (c == 'h') {
            fputs(HELP, stdout);
            exit(EXIT_SUCCESS);
        } else if (c == 'v') {
            puts("sim_random " CLIENT_MGR_VERSION);
            exit(EXIT_SUCCESS);
        } else {
            exit(EXIT_USAGE);
        }
    }
    if (optind < argc) {
        bad_usage(std::string("unexpected argument '") + argv[optind] + "'");
    }
    if (o.first > o.last) {
        bad_usage("the last seed is before the first");
    }
    return o;
}

// The line of a seed in the file, empty if there is none.
std::string expected_line(const std::string &path, uint64_t seed) {
    std::ifstream file(path);
    if (!file) {
        bad_usage("cannot read " + path);
    }
    const std::string start = std::to_string(seed) + " ";
    for (std::string line; std::getline(file, line);) {
        if (line.rfind(start, 0) == 0) {
            return line;
        }
    }
    return {};
}

bool run_seed(uint64_t seed, const options &o) {
    // During a run, standard output is the daemon's.
    FILE *out = stdout;
    bool good;
    std::string line;
    {
        random_run run(seed, o.trace ? out : nullptr);
        good = run.run(o.events);
        line = run.result();
    }
    puts(line.c_str());
    fflush(stdout);
    if (!good || o.hash_file.empty()) {
        return good;
    }
    const std::string expected = expected_line(o.hash_file, seed);
    if (line == expected) {
        return true;
    }
    fprintf(stderr, "seed %llu: other effects than in %s, which has \"%s\"\n", static_cast<unsigned long long>(seed),
            o.hash_file.c_str(), expected.c_str());
    return false;
}

}  // namespace

int main(int argc, char **argv) {
    const options o = parse(argc, argv);
    bool good = true;
    for (uint64_t seed = o.first; good && seed <= o.last; seed++) {
        good = run_seed(seed, o);
    }
    return good ? EXIT_SUCCESS : EXIT_FAILURE;
}
