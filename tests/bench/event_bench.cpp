// CPU time of the real client manager per event, beside processes that make
//
//   raw exchange       the same receives and sends, nothing else
//   its calls alone    also its lines for the system log and the log file, with bytes prepared beforehand: the least
//                      that a daemon with these texts needs
//   a plain daemon     the same, the log file's lines with two fprintf and a flush each, the system log's with syslog
//
// All take turns in one run, on one CPU with the driver.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <nlohmann/json.hpp>
#include <numeric>

#include "tests/bench/event_kinds.h"
#include "tests/bench/measuring.h"
#include "tests/bench/subject.h"

namespace {

using bench::play_window;
using bench::quantile;
using bench::subject;
using bench::window;

struct options : bench::options {
    std::string only, other_program;
    std::vector<int> levels{1, 3, 4};
};

// Microseconds of CPU time for each event.
double measure(subject &of, const bench::event_kind &kind, const bench::counts &per_event, unsigned round) {
    double before = of.cpu_time();
    for (std::size_t first = 0; first < kind.clients; first += window) {
        std::size_t end = std::min(first + window, kind.clients);
        play_window(of, kind.event, first, end, round);
        bench::counts expected = per_event;
        for (std::size_t &each : expected) {
            each *= end - first;
        }
        if (std::accumulate(expected.begin(), expected.end(), std::size_t{0}) == 0) {
            of.around().settle();  // shows that the events were handled
        } else {
            of.around().await(expected);
        }
    }
    return (of.cpu_time() - before) * 1e6 / static_cast<double>(kind.clients);
}

struct result {
    std::string process;
    std::vector<double> us_per_event;
};

// The client manager's messages and log lines at `level` for one event.
struct observed {
    std::vector<bench::sent_message> outputs;
    std::vector<std::string> lines;
};

observed observe(const options &wanted, const bench::event_kind &kind, const std::string &root, int level, int log) {
    auto one = subject::client_manager(wanted.program, root, level, log);
    auto single = [&](const bench::client_messages &make, std::size_t client) {
        observed seen;
        if (make) {
            play_window(*one, make, client, client + 1, 1);
            seen.outputs = one->around().settle();
        }
        seen.lines = one->new_log_lines();
        return seen;
    };
    // A note that is made once for each process is printed for the first.
    observed seen;
    for (std::size_t client : {0U, 1U}) {
        single(kind.before, client);
        seen = single(kind.event, client);
    }
    return seen;
}

// The processes that are compared for one kind of event.
struct contest {
    std::vector<std::pair<std::string, std::unique_ptr<subject>>> processes;
    std::map<std::string, bench::counts> per_event;
    std::size_t lines_at_3 = 0;
};

std::string daemon_name(int level) { return "client_mgr, level " + std::to_string(level); }
std::string calls_name(int level) { return "its calls alone, level " + std::to_string(level); }

bool is_system_log(const bench::sent_message &message) { return message.to == bench::receiver::system_log; }

contest make_contest(const options &wanted, const bench::event_kind &kind, const std::string &root, int log) {
    contest made;
    auto add = [&](const std::string &name, std::unique_ptr<subject> process,
                   const std::vector<bench::sent_message> &outputs) {
        made.processes.emplace_back(name, std::move(process));
        made.per_event[name] = bench::count(outputs);
    };
    auto add_exchange = [&](const std::string &name, const bench::deeds &does) {
        add(name, subject::exchange(root + "/exchange" + std::to_string(made.processes.size()), does, log),
            does.outputs);
    };
    bench::deeds raw;
    raw.messages = kind.event(0, 1).size();
    observed chatty = observe(wanted, kind, root + "/observed3", 3, log);
    raw.outputs = chatty.outputs;
    std::erase_if(raw.outputs, is_system_log);
    made.lines_at_3 = chatty.lines.size();
    add_exchange("raw exchange", raw);  // first and second: what report() compares with
    add_exchange("a plain daemon, level 3",
                 {raw.messages, chatty.outputs, bench::deeds::style::plain_daemon, chatty.lines});
    for (int level : wanted.levels) {
        observed seen = observe(wanted, kind, root + "/observed" + std::to_string(level) + "again", level, log);
        add_exchange(calls_name(level), {raw.messages, seen.outputs, bench::deeds::style::bare_calls, seen.lines});
        add(daemon_name(level),
            subject::client_manager(wanted.program, root + "/level" + std::to_string(level), level, log), seen.outputs);
        if (!wanted.other_program.empty()) {
            add(daemon_name(level) + " (other)",
                subject::client_manager(wanted.other_program, root + "/other" + std::to_string(level), level, log),
                seen.outputs);
        }
    }
    return made;
}

std::vector<result> run(const options &wanted, const bench::event_kind &kind, contest &those) {
    std::vector<result> results;
    for (auto &[name, process] : those.processes) {
        results.push_back({name, {}});
    }
    // The first round warms up. Each round begins with another process.
    for (unsigned round = 1; round <= wanted.rounds + 1; round++) {
        for (std::size_t i = 0; i < results.size(); i++) {
            std::size_t turn = (i + round) % results.size();
            auto &[name, process] = those.processes[turn];
            bool is_daemon = name.starts_with("client_mgr");
            if (is_daemon) {
                bench::play(*process, kind.before, kind.clients, round);
            }
            double us = measure(*process, kind, those.per_event[name], round);
            if (is_daemon) {
                bench::play(*process, kind.after, kind.clients, round);
            }
            if (round > 1) {
                results[turn].us_per_event.push_back(us);
            }
        }
    }
    return results;
}

// The median over the rounds of one process's time divided by the other's. A machine that is slow for a while slows
// both.
double ratio(const result &one, const result &other) {
    std::vector<double> ratios(one.us_per_event.size());
    std::ranges::transform(one.us_per_event, other.us_per_event, ratios.begin(), std::divides());
    return quantile(ratios, 0.5);
}

nlohmann::json report(const bench::event_kind &kind, const std::vector<result> &results, std::size_t lines_at_3) {
    const result &raw = results[0], &plain = results[1];
    std::printf("\n%s (%zu lines at level 3)\n%-26s %10s %8s %15s %12s %12s\n", kind.name.c_str(), lines_at_3, "",
                "events/s", "us", "quartiles", "of raw rate", "of plain CPU");
    nlohmann::json processes = nlohmann::json::array();
    for (const result &each : results) {
        double median = quantile(each.us_per_event, 0.5);
        double rate_of_raw = ratio(raw, each), cpu_of_plain = ratio(each, plain);
        double low = quantile(each.us_per_event, 0.25), high = quantile(each.us_per_event, 0.75);
        std::printf("%-26s %10.0f %8.2f %7.2f-%-7.2f %12.2f %12.2f\n", each.process.c_str(), 1e6 / median, median, low,
                    high, rate_of_raw, cpu_of_plain);
        processes.push_back({{"process", each.process},
                             {"us_per_event", median},
                             {"quartiles", {low, high}},
                             {"rate_of_raw", rate_of_raw},
                             {"cpu_of_plain", cpu_of_plain}});
    }
    std::fflush(stdout);
    return {{"event", kind.name}, {"lines_at_level_3", lines_at_3}, {"processes", processes}};
}

int measure_all(const options &wanted) {
    bench::share_cpu(wanted.cpu);
    bench::workplace place(wanted.directory);
    const std::string &root = place.root;
    int log = place.system_log;
    nlohmann::json all = nlohmann::json::array();
    int directory = 0;
    for (const bench::event_kind &kind : bench::make_event_kinds()) {
        if (kind.name.find(wanted.only) == std::string::npos) {
            continue;
        }
        contest those = make_contest(wanted, kind, root + "/" + std::to_string(directory++), log);
        all.push_back(report(kind, run(wanted, kind, those), those.lines_at_3));
    }
    if (!wanted.json_file.empty()) {
        std::ofstream(wanted.json_file) << all.dump(2) << "\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        options wanted;
        CLI::App app{"CPU time of the client manager per event, beside a raw exchange of the same messages"};
        app.set_version_flag("--version", "event_bench " CLIENT_MGR_VERSION);
        bench::add_options(app, wanted, argv[0], "turns of each process");
        app.add_option("--levels", wanted.levels, "log levels")->delimiter(',')->capture_default_str();
        app.add_option("--other", wanted.other_program, "another client_mgr, measured in turn with the first");
        app.add_option("--only", wanted.only, "events whose name contains this text");
        CLI11_PARSE(app, argc, argv);
        return measure_all(wanted);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "event_bench: %s\n", error.what());
        return 1;
    }
}
