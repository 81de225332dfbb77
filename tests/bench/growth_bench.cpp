// How the client manager's cost grows with its clients, the entries of a message, the VAPs and the stations of a
// report; how long it takes to start, and to handle 2,048 associations at once. CPU times are of the process itself,
// at log level 1. They include up to one heartbeat for eight events, which shows the driver that all are handled.
#include <CLI/CLI.hpp>
#include <chrono>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <nlohmann/json.hpp>

#include "tests/bench/measuring.h"
#include "wire/local_messages.h"

namespace {

using bench::subject;

using bench::options;

constexpr int quiet = 1;
constexpr std::size_t table_size = 2048;

// Median microseconds of CPU time that `what` takes, divided by `events`.
double median_us(subject &of, unsigned rounds, double events, const std::function<void(unsigned round)> &what) {
    std::vector<double> us;
    for (unsigned round = 0; round <= rounds; round++) {
        double before = of.cpu_time();
        what(round);
        if (round > 0) {  // the first round warms up
            us.push_back((of.cpu_time() - before) * 1e6 / events);
        }
    }
    return bench::quantile(us, 0.5);
}

class series {
public:
    series(std::string name, std::string unit) : name_(std::move(name)), unit_(std::move(unit)) {
        std::printf("\n%s\n", name_.c_str());
    }
    void add(std::size_t x, double y) {
        std::printf("%8zu %10.2f %s\n", x, y, unit_.c_str());
        std::fflush(stdout);
        points_.push_back({x, y});
    }
    nlohmann::json json() const { return {{"name", name_}, {"unit", unit_}, {"points", points_}}; }

private:
    std::string name_, unit_;
    nlohmann::json points_ = nlohmann::json::array();
};

class growth {
public:
    growth(const options &wanted, const bench::workplace &place) : wanted_(wanted), place_(place) {}

    nlohmann::json residents() {
        series result("a client leaves and another comes, by resident clients", "us per event");
        for (std::size_t resident : {1U, 16U, 128U, 512U, 1024U, 2048U}) {
            auto daemon = start();
            bench::client_messages come = [](std::size_t client, unsigned) {
                return std::vector<bench::bytes>{bench::association(client)};
            };
            bench::play(*daemon, come, resident, 0);
            std::size_t turns = 2000;
            bench::client_messages replace = [resident](std::size_t turn, unsigned) {
                return std::vector<bench::bytes>{bench::disassociation(turn % resident),
                                                 bench::association(turn % resident)};
            };
            double events = 2.0 * static_cast<double>(turns);
            result.add(resident, median_us(*daemon, wanted_.rounds, events,
                                           [&](unsigned round) { bench::play(*daemon, replace, turns, round); }));
        }
        return result.json();
    }

    nlohmann::json entries() {
        series result("a controller message, by the clients in it", "us per message");
        auto daemon = start();
        for (std::size_t entries : {1U, 32U, 64U, 128U, 192U, 260U}) {
            result.add(entries, per_message(*daemon, bench::client_list(entries, 1)));
        }
        return result.json();
    }

    nlohmann::json vaps() {
        series result("the VAPs are loaded, by their number", "us per load");
        for (unsigned vaps : {1U, 4U, 8U, 12U, 16U}) {
            auto daemon = start(vaps);
            result.add(vaps, per_message(*daemon, {bench::local_message(KX_MSG_ID_VAP_INIT)}));
        }
        return result.json();
    }

    nlohmann::json stations() {
        series result("the controller asks for all stations, by their number", "us per report");
        auto daemon = start();
        for (std::size_t stations : {0U, 25U, 50U, 75U, 105U}) {
            daemon->around().set_stations(bench::station_records(stations));
            result.add(stations, per_message(*daemon, bench::bulk_request()));
        }
        return result.json();
    }

    // The time from exec to the answer to the first event.
    nlohmann::json start_up() {
        std::vector<double> ms;
        for (unsigned round = 0; round < wanted_.rounds; round++) {
            auto before = std::chrono::steady_clock::now();
            auto daemon = start();
            daemon->around().send(bench::association(1));
            daemon->around().settle();
            ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - before).count());
        }
        double median = bench::quantile(ms, 0.5);
        std::printf("\nfrom its start to the first event handled\n%19.2f ms\n", median);
        return {{"ms", median}};
    }

    nlohmann::json storm() {
        std::vector<double> ms;
        std::size_t lost = 0;
        for (unsigned round = 0; round < wanted_.rounds; round++) {
            auto daemon = start();
            auto before = std::chrono::steady_clock::now();
            for (std::size_t client = 0; client < table_size; client++) {
                daemon->around().send(bench::association(client));
            }
            std::vector<bench::sent_message> sent = daemon->around().settle_all();
            ms.push_back(std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - before).count());
            lost += table_size - bench::count(sent)[static_cast<std::size_t>(bench::receiver::controller)];
        }
        double median = bench::quantile(ms, 0.5);
        std::printf("\n%zu associations at once, to the last record at the controller\n%19.2f ms, %zu lost\n",
                    table_size, median, lost);
        return {{"associations", table_size}, {"ms", median}, {"lost", lost}};
    }

private:
    std::unique_ptr<subject> start(unsigned vaps = 1) {
        return subject::client_manager(wanted_.program, place_.root + "/" + std::to_string(started_++), quiet,
                                       place_.system_log, vaps);
    }

    double per_message(subject &daemon, const std::vector<bench::bytes> &message) {
        constexpr std::size_t repeats = 200;
        bench::client_messages same = [&](std::size_t, unsigned) { return message; };
        return median_us(daemon, wanted_.rounds, repeats,
                         [&](unsigned round) { bench::play(daemon, same, repeats, round); });
    }

    options wanted_;
    const bench::workplace &place_;
    int started_ = 0;
};

int measure_all(const options &wanted) {
    bench::share_cpu(wanted.cpu);
    bench::workplace place(wanted.directory);
    growth all(wanted, place);
    nlohmann::json result;
    result["series"] = {all.residents(), all.entries(), all.vaps(), all.stations()};
    result["start_up"] = all.start_up();
    result["storm"] = all.storm();
    if (!wanted.json_file.empty()) {
        std::ofstream(wanted.json_file) << result.dump(2) << "\n";
    }
    return 0;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        options wanted;
        CLI::App app{"How what the client manager costs grows with what it has to do"};
        app.set_version_flag("--version", "growth_bench " CLIENT_MGR_VERSION);
        bench::add_options(app, wanted, argv[0], "repetitions, of which the median counts");
        CLI11_PARSE(app, argc, argv);
        return measure_all(wanted);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "growth_bench: %s\n", error.what());
        return 1;
    }
}
