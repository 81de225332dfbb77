// kx-scenario: writes a scenario for the lab's radios.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <optional>
#include <random>
#include <string>

#include "common/command_line.h"
#include "lab/radio/scenario_maker.h"

namespace {

int write_scenario(const radio::site_plan &plan, const std::string &file) {
    const std::string text = radio::make_scenario(plan);
    std::fprintf(stderr, "kx-scenario: seed %llu\n", static_cast<unsigned long long>(plan.seed));
    if (file == "-") {
        return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0 ? 0 : 1;
    }
    std::ofstream out(file, std::ios::binary);
    out << text;
    out.close();
    if (!out) {
        std::fprintf(stderr, "kx-scenario: cannot write %s\n", file.c_str());
        return 1;
    }
    return 0;
}

int run(int argc, char **argv) {
    CLI::App app("Writes a scenario of access points and stations that walk, sleep, roam and pass the portal.",
                 "kx-scenario");
    radio::site_plan plan;
    std::optional<std::uint64_t> seed;
    std::string file = "-";
    app.add_option("--aps", plan.access_points, "Access points")->check(CLI::Range(1U, 250U))->capture_default_str();
    app.add_option("--stations", plan.stations, "Stations")->check(CLI::Range(1U, 65000U))->capture_default_str();
    app.add_option("--seconds", plan.seconds, "Length in seconds of lab time; the last five are quiet")
        ->check(CLI::Range(20U, 86400U))
        ->capture_default_str();
    app.add_option("--guests", plan.guests, "Per cent of the stations that are guests")
        ->check(CLI::Range(0U, 100U))
        ->capture_default_str();
    app.add_option("--restricted", plan.restricted, "Per cent of the stations on the network with a MAC ACL")
        ->check(CLI::Range(0U, 100U))
        ->capture_default_str();
    app.add_option("--seed", seed, "Seed of the random numbers; default: a new one, which is printed");
    app.add_option("-o,--output", file, "Output file; -: standard output")->type_name("FILE")->capture_default_str();
    app.set_version_flag("--version", "kx-scenario " CLIENT_MGR_VERSION);
    if (const auto status = kx::parse_command_line(app, argc, argv)) {
        return *status;
    }
    plan.seed = seed ? *seed : std::random_device{}();
    return write_scenario(plan, file);
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "kx-scenario: %s\n", error.what());
        return 1;
    }
}
