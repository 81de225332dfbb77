// kx-fleet: many access points and their stations in one process, on a site controller.
#include <sys/resource.h>

#include <CLI/CLI.hpp>
#include <charconv>
#include <csignal>
#include <cstdio>
#include <exception>
#include <optional>
#include <random>
#include <string>

#include "common/command_line.h"
#include "lab/fleet/fleet.h"
#include "lab/fleet/workload.h"
#include "lab/radio/scenario_source.h"

namespace {

struct options {
    std::string controller, ca, ca_key, scenario;
    std::optional<std::uint64_t> seed;
    unsigned storm_every = 0, patience = 60;
    fleet::workload_plan plan;
    fleet::fleet::settings how;
};

std::optional<fleet::controller_address> parse_address(const std::string &text) {
    const std::size_t colon = text.rfind(':');
    if (colon == std::string::npos || colon == 0) {
        return std::nullopt;
    }
    fleet::controller_address result{.host = text.substr(0, colon)};
    const char *const last = text.data() + text.size();
    const auto [end, error] = std::from_chars(text.data() + colon + 1, last, result.port);
    return error == std::errc() && end == last && result.port != 0 ? std::optional(result) : std::nullopt;
}

void declare_site(CLI::App &app, options &given) {
    using plan = fleet::workload_plan;
    auto *scenario =
        app.add_option("--scenario", given.scenario, "Play this scenario, with its access points and stations")
            ->type_name("FILE");
    const std::vector<CLI::Option *> made = {
        app.add_option("--aps", given.plan.access_points, "Access points")->check(CLI::Range(1U, plan::aps_max)),
        app.add_option("--stations", given.plan.stations, "Stations")->check(CLI::Range(0U, plan::stations_max)),
        app.add_option("--guests", given.plan.guests, "Per cent of the stations that are guests")
            ->check(CLI::Range(0U, 100U)),
        app.add_option("--restricted", given.plan.restricted, "Per cent of the stations on the network with a MAC ACL")
            ->check(CLI::Range(0U, 100U)),
        app.add_option("--arrivals", given.plan.arrivals, "Stations that come each second at the beginning")
            ->check(CLI::Range(0.1, 1e6)),
        app.add_option("--rate", given.plan.rate, "Events each second after that: stations roam, leave, come back")
            ->check(CLI::Range(0.001, 1e6)),
        app.add_option("--seconds", given.plan.seconds, "Length of these events")->check(CLI::Range(0U, 10'000'000U)),
    };
    for (CLI::Option *const each : made) {
        each->capture_default_str()->excludes(scenario);
    }
    app.add_option("--speed", given.how.speed, "Seconds of the scenario per second")
        ->check(CLI::Range(0.001, 1e6))
        ->needs(scenario)
        ->capture_default_str();
    app.add_option("--seed", given.seed, "Seed of the random numbers; default: a new one, which is printed");
}

void declare(CLI::App &app, options &given) {
    app.add_option("--controller", given.controller, "The site controller")
        ->type_name("ADDRESS:PORT")
        ->check([](const std::string &text) { return parse_address(text) ? "" : "expected ADDRESS:PORT"; })
        ->required();
    app.add_option("--ca", given.ca, "Certificate of the authority of the site")->type_name("FILE")->required();
    app.add_option("--ca-key", given.ca_key, "Its key, with which each access point's certificate is signed")
        ->type_name("FILE")
        ->required();
    declare_site(app, given);
    app.add_option("--restarts", given.how.restarts, "Access points restarted each minute, while stations act")
        ->check(CLI::Range(0.0, 1e6))
        ->capture_default_str();
    app.add_option("--storm-every", given.storm_every, "Break all tunnels every so many seconds, while stations act")
        ->check(CLI::Range(1U, 1'000'000U));
    app.add_option("--patience", given.patience,
                   "Give up when the tunnels do not come up, or the end does not come, in so many seconds")
        ->check(CLI::Range(1U, 1'000'000U))
        ->capture_default_str();
    app.add_flag("--stay", given.how.stay, "Keep the access points and stations after the end, until SIGTERM");
    app.add_option("--write-stations", given.how.stations_file,
                   "At the end, write where each station is, one JSON object a line")
        ->type_name("FILE");
    app.add_flag("--json", given.how.json, "Print one JSON object a second, and one at the end");
    app.set_version_flag("--version", "kx-fleet " CLIENT_MGR_VERSION);
}

// As many descriptors as the system gives: each access point has a socket.
void raise_descriptor_limit() {
    rlimit descriptors{};
    if (getrlimit(RLIMIT_NOFILE, &descriptors) == 0) {
        descriptors.rlim_cur = descriptors.rlim_max;
        setrlimit(RLIMIT_NOFILE, &descriptors);
    }
}

int play(const options &given, const std::vector<radio::scenario_ap> &aps, radio::event_source &source) {
    const fleet::authority issuer(given.ca, given.ca_key);
    return fleet::fleet(given.how, aps, issuer, source).run();
}

int play_scenario(const options &given) {
    const radio::scenario scenario = radio::load_scenario(given.scenario);
    radio::scenario_ap all;
    for (const radio::scenario_ap &each : scenario.aps) {
        all.vaps.insert(all.vaps.end(), each.vaps.begin(), each.vaps.end());
    }
    radio::scenario_source source(scenario, all);
    return play(given, scenario.aps, source);
}

int play_workload(const options &given) {
    fleet::workload source(given.plan);
    return play(given, fleet::workload::access_points(given.plan), source);
}

int run(int argc, char **argv) {
    CLI::App app("Plays many access points and their stations to a site controller, through real tunnels.", "kx-fleet");
    options given;
    declare(app, given);
    if (const auto status = kx::parse_command_line(app, argc, argv)) {
        return *status;
    }
    std::signal(SIGPIPE, SIG_IGN);
    raise_descriptor_limit();
    given.how.controller = parse_address(given.controller).value();
    given.how.storm_every = std::chrono::seconds(given.storm_every);
    given.how.patience = std::chrono::seconds(given.patience);
    given.how.seed = given.plan.seed = given.seed ? *given.seed : std::random_device{}();
    std::fprintf(stderr, "kx-fleet: seed %llu\n", static_cast<unsigned long long>(given.plan.seed));
    return given.scenario.empty() ? play_workload(given) : play_scenario(given);
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "kx-fleet: %s\n", error.what());
        return 1;
    }
}
