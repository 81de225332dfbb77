// CPU time of the controller's site logic at two sizes of a site. Each size has a process of its own, and so has
// another build's program. All take turns in one run, so that what disturbs the machine disturbs all of them.
#include <fcntl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <memory>
#include <nlohmann/json.hpp>
#include <stdexcept>

#include "tests/bench/controller_subject.h"
#include "tests/bench/quantile.h"

namespace {

using nlohmann::json;

struct size {
    unsigned aps, stations;
};
constexpr size small = {10, 10'000};
constexpr size large = {1'000, 100'000};

// Measures a round for each line of standard input.
int serve(const size &of) {
    bench::controller_subject subject(of.aps, of.stations);
    for (std::string line; std::getline(std::cin, line);) {
        std::cout << json(line == "list" ? subject.measure_list() : subject.measure()).dump() << std::endl;
    }
    return 0;
}

// A process that serves.
class server {
public:
    server(const std::string &program, const size &of) {
        int to[2];
        int from[2];
        if (pipe2(to, O_CLOEXEC) != 0 || pipe2(from, O_CLOEXEC) != 0 || (pid_ = fork()) < 0) {
            throw std::runtime_error("cannot start " + program);
        }
        if (pid_ == 0) {
            dup2(to[0], STDIN_FILENO);
            dup2(from[1], STDOUT_FILENO);
            execl(program.c_str(), program.c_str(), "--serve", std::to_string(of.aps).c_str(),
                  std::to_string(of.stations).c_str(), nullptr);
            _exit(127);
        }
        close(to[0]);
        close(from[1]);
        to_.reset(fdopen(to[1], "w"));
        from_.reset(fdopen(from[0], "r"));
    }
    ~server() {
        to_.reset();
        waitpid(pid_, nullptr, 0);
    }
    server(const server &) = delete;
    server &operator=(const server &) = delete;

    bench::cpu_times measure(const char *what = "round") {
        std::fprintf(to_.get(), "%s\n", what);
        std::fflush(to_.get());
        char line[8192];
        if (std::fgets(line, sizeof(line), from_.get()) == nullptr) {
            throw std::runtime_error("a measured process has ended");
        }
        return json::parse(line).get<bench::cpu_times>();
    }

private:
    struct closer {
        void operator()(std::FILE *file) const { std::fclose(file); }
    };
    pid_t pid_ = -1;
    std::unique_ptr<std::FILE, closer> to_, from_;
};

struct options {
    std::string other, json_file;
    unsigned rounds = 31;
    std::vector<unsigned> serve;
};

struct samples {
    std::string name;
    server process;
    std::map<std::string, std::vector<double>> us = {};
};

// Medians, and the median of the rounds' ratios of each column to the one before it.
void print(const std::vector<std::unique_ptr<samples>> &columns) {
    std::printf("%-36s", "us of CPU (median)");
    for (const auto &each : columns) {
        std::printf(" %24s", each->name.c_str());
    }
    std::printf("\n");
    for (const auto &[what, first] : columns.front()->us) {
        std::printf("%-36s", what.c_str());
        const std::vector<double> *before = nullptr;
        for (const auto &each : columns) {
            const auto &us = each->us.at(what);
            std::printf(" %12.2f", bench::quantile(us, 0.5));
            if (before == nullptr) {
                std::printf("            ");
            } else {
                std::vector<double> ratios;
                for (std::size_t i = 0; i < std::min(us.size(), before->size()); i++) {
                    ratios.push_back(us[i] / (*before)[i]);
                }
                std::printf("  (x %7.2f)", bench::quantile(ratios, 0.5));
            }
            before = before == nullptr ? &us : nullptr;
        }
        std::printf("\n");
    }
}

void write_json(const std::string &file, const std::vector<std::unique_ptr<samples>> &columns) {
    json all;
    for (const auto &each : columns) {
        all[each->name] = each->us;
    }
    std::ofstream(file) << all.dump(2) << '\n';
}

int compare(const std::string &self, const options &wanted) {
    std::vector<std::unique_ptr<samples>> columns;
    for (const std::string &program : {wanted.other, self}) {
        for (const size &each : {small, large}) {
            if (!program.empty()) {
                const std::string name = std::to_string(each.aps) + " x " + std::to_string(each.stations);
                columns.emplace_back(new samples{(program == self ? "" : "other ") + name, server(program, each)});
            }
        }
    }
    for (unsigned round = 0; round <= wanted.rounds; round++) {
        for (const auto &each : columns) {
            for (const auto &[what, us] : each->process.measure()) {
                if (round > 0) {  // the first round warms up
                    each->us[what].push_back(us);
                }
            }
        }
    }
    for (const auto &each : columns) {
        for (const auto &[what, us] : each->process.measure("list")) {
            each->us[what].push_back(us);
        }
    }
    print(columns);
    if (!wanted.json_file.empty()) {
        write_json(wanted.json_file, columns);
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        options wanted;
        CLI::App app{"CPU time of the controller's site logic at two sizes of a site"};
        app.add_option("--other", wanted.other, "the controller_bench of another build, measured in turn");
        app.add_option("--rounds", wanted.rounds, "rounds")->check(CLI::Range(1, 1000))->capture_default_str();
        app.add_option("--json", wanted.json_file, "where to write the figures as JSON");
        app.add_option("--serve", wanted.serve, "measure a site of APS and STATIONS, a round per line of input")
            ->expected(2)
            ->type_name("APS STATIONS");
        CLI11_PARSE(app, argc, argv);
        if (!wanted.serve.empty()) {
            return serve({wanted.serve[0], wanted.serve[1]});
        }
        return compare(std::filesystem::canonical("/proc/self/exe").string(), wanted);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "controller_bench: %s\n", error.what());
        return 1;
    }
}
