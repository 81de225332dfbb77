// What it costs to keep the changes of clients: the controller's store, and the same changes in SQLite with a
// transaction each, in Redis and in PostgreSQL. All take turns. Each keeps the client's state and its history.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <nlohmann/json.hpp>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "tests/bench/quantile.h"
#include "tests/bench/store_keepers.h"

namespace {

using bench::client_change;
using bench::cpu_us_of;
using bench::keeper;

constexpr std::size_t stations = 100'000;

[[noreturn]] void fail(const std::string &what) { throw std::runtime_error(what); }

// A roam of a station that is drawn at random.
client_change random_change(std::mt19937 &random) {
    const auto station = static_cast<std::uint32_t>(random() % stations);
    const auto ap = static_cast<std::uint32_t>(random() % 1000);
    const auto mac = [](std::uint8_t first, std::uint32_t number) {
        return controller::mac_address{2,
                                       first,
                                       static_cast<std::uint8_t>(number >> 16U),
                                       static_cast<std::uint8_t>(number >> 8U),
                                       static_cast<std::uint8_t>(number),
                                       1};
    };
    const controller::place where{mac(0xa0, ap), mac(0xa1, ap)};
    return {mac(0x57, station),
            controller::client_event::roamed,
            {where, where, 10, 0x0a000001U + station, controller::guest_state::none}};
}

struct sample {
    double taken_us, durable_us, own_cpu_us, other_cpu_us;
};

sample measure(keeper &to, const std::vector<client_change> &changes) {
    const auto number = static_cast<double>(changes.size());
    const double own = cpu_us_of(getpid());
    const double other = to.other_cpu_us();
    const auto start = std::chrono::steady_clock::now();
    const auto us_since = [start] {
        return std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count();
    };
    to.take(changes);
    const double taken = us_since();
    to.finish();
    return {taken / number, us_since() / number, (cpu_us_of(getpid()) - own) / number,
            (to.other_cpu_us() - other) / number};
}

struct candidate {
    std::string name;
    std::unique_ptr<keeper> place;
    std::vector<sample> samples = {};
};

// PostgreSQL's user has to get at the directory.
std::string make_directory(const std::string &below, const std::string &name) {
    const std::filesystem::path made = std::filesystem::path(below) / name;
    std::filesystem::create_directory(made);
    std::filesystem::permissions(made, std::filesystem::perms::owner_all);
    return made.string();
}

void print(const std::vector<candidate> &all, nlohmann::ordered_json &json) {
    std::printf("%-36s %14s %14s %14s %14s\n", "us for each change (median)", "caller waits", "until durable",
                "CPU, own", "CPU, server");
    for (const candidate &each : all) {
        const auto median = [&each](double sample::*of) {
            std::vector<double> values;
            std::ranges::transform(each.samples, std::back_inserter(values), of);
            return bench::quantile(values, 0.5);
        };
        const double columns[] = {median(&sample::taken_us), median(&sample::durable_us), median(&sample::own_cpu_us),
                                  median(&sample::other_cpu_us)};
        std::printf("%-36s %14.2f %14.2f %14.2f %14.2f\n", each.name.c_str(), columns[0], columns[1], columns[2],
                    columns[3]);
        json[each.name] = columns;
    }
}

int run(const std::string &below, unsigned rounds, unsigned number, const std::string &json_file) {
    std::string directory = below + "/store_bench.XXXXXX";
    if (mkdtemp(directory.data()) == nullptr) {
        fail("cannot make a directory in " + below);
    }
    std::filesystem::permissions(directory, std::filesystem::perms(0755));
    {
        std::vector<candidate> all;
        all.push_back({"the controller's store", bench::make_controllers_store(make_directory(directory, "own"))});
        all.push_back({"SQLite, a transaction each", bench::make_sqlite(make_directory(directory, "plain"))});
        all.push_back({"Redis, pipelined, fsync each second", bench::make_redis(make_directory(directory, "redis"))});
        all.push_back({"PostgreSQL, pipelined", bench::make_postgres(make_directory(directory, "pg"))});
        std::mt19937 random(1);
        for (unsigned round = 0; round <= rounds; round++) {
            std::vector<client_change> changes(number);
            std::ranges::generate(changes, [&random] { return random_change(random); });
            for (candidate &each : all) {
                const sample found = measure(*each.place, changes);
                if (round > 0) {  // the first round warms up
                    each.samples.push_back(found);
                }
            }
        }
        nlohmann::ordered_json json;
        print(all, json);
        if (!json_file.empty()) {
            std::ofstream(json_file) << json.dump(2) << '\n';
        }
    }
    std::filesystem::remove_all(directory);
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        CLI::App app{"What it costs to keep the changes of clients, in the controller's store and elsewhere. As root"};
        std::string directory = "/var/tmp";
        std::string json_file;
        unsigned rounds = 9;
        unsigned number = 2000;
        app.add_option("--directory", directory, "where the files are")->capture_default_str();
        app.add_option("--rounds", rounds, "rounds")->check(CLI::Range(1, 1000))->capture_default_str();
        app.add_option("--changes", number, "changes in a round")->check(CLI::Range(1, 1000000))->capture_default_str();
        app.add_option("--json", json_file, "where to write the figures as JSON");
        CLI11_PARSE(app, argc, argv);
        return run(directory, rounds, number, json_file);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "store_bench: %s\n", error.what());
        return 1;
    }
}
