// radio: the lab's stand-in for an access point's wireless stack.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <fstream>
#include <stdexcept>
#include <string>

#include "common/ap_config.h"
#include "common/command_line.h"
#include "common/paths.h"
#include "lab/radio/capture_source.h"
#include "lab/radio/radio_process.h"
#include "lab/radio/scenario_source.h"
#include "lab/radio/vap_list.h"

namespace {

struct options {
    std::string capture, scenario, ap;
    std::string config;
    std::string speed = "max";
    std::string write_config;
    bool discover = false, no_wait = false, stay = false, json = false;
    unsigned patience = 60;
    std::int64_t start_at = 0;
};

// Checks that CLI11 cannot express.
void check(const options &given) {
    if (given.capture.empty() && given.scenario.empty()) {
        throw CLI::RequiredError("a capture or --scenario");
    }
    if (given.start_at != 0 && given.speed == "max") {
        throw CLI::ValidationError("--start-at", "expected a number for --speed as well");
    }
}

void declare(CLI::App &app, options &given) {
    auto *capture =
        app.add_option("capture", given.capture, "pcap or pcapng file of 802.11 traffic to play")->type_name("FILE");
    auto *scenario =
        app.add_option("--scenario", given.scenario, "TOML file of access points, stations and their actions to play")
            ->type_name("FILE");
    scenario->excludes(capture);
    auto *ap = app.add_option("--ap", given.ap, "Name of this access point in the scenario")->type_name("NAME");
    scenario->needs(ap);
    ap->needs(scenario);
    app.add_option("--config", given.config, "The access point's configuration ($KX_CONFIG or $KX_ROOT/ap.toml)")
        ->type_name("FILE");
    app.add_option("--speed", given.speed, "Factor on real time, or max: as fast as the daemon reads")
        ->type_name("N|max")
        ->check([](const std::string &text) -> std::string {
            char *end = nullptr;
            const double value = std::strtod(text.c_str(), &end);
            const bool is_number = end != text.c_str() && *end == '\0' && value > 0 && value <= 1e6;
            return text == "max" || is_number ? "" : "expected max or a number above 0 and at most 1000000";
        })
        ->capture_default_str();
    app.add_option("--start-at", given.start_at,
                   "Start of lab time, in milliseconds of the real-time clock; default: when the daemon is ready. "
                   "Requires a number for --speed")
        ->type_name("MS")
        ->check(CLI::PositiveNumber.description(""));
    app.add_flag("--no-wait", given.no_wait, "Send events even while the daemon is not ready");
    app.add_option("--patience", given.patience,
                   "Give up when the daemon reads nothing for this many seconds; 0: never")
        ->capture_default_str();
    app.add_flag("--stay", given.stay, "Serve the VAPs after the last event, until SIGTERM or SIGINT");
    app.add_flag("--json", given.json, "Print one JSON object per event");
    app.add_flag("--discover", given.discover,
                 "Print the [[vap]] tables for the capture or the scenario's access point and exit");
    app.add_option("--write-config", given.write_config, "With --discover: write the tables to this file")
        ->type_name("FILE")
        ->needs("--discover");
    app.set_version_flag("--version", "radio " CLIENT_MGR_VERSION);
    app.final_callback([&given] { check(given); });
}

void write_text(const std::string &file, const std::string &text) {
    if (file.empty() || file == "-") {
        std::fputs(text.c_str(), stdout);
        return;
    }
    std::ofstream out(file);
    out << text;
    out.close();
    if (!out) {
        throw std::runtime_error("cannot write " + file);
    }
}

const radio::scenario_ap &find_ap(const radio::scenario &scenario, const options &given) {
    if (const radio::scenario_ap *ap = scenario.find_ap(given.ap)) {
        return *ap;
    }
    std::string names;
    for (const radio::scenario_ap &each : scenario.aps) {
        names.append(names.empty() ? "" : ", ").append(each.name);
    }
    throw std::runtime_error(given.scenario + ": no access point named " + given.ap + "; expected one of " + names);
}

int discover(const options &given) {
    if (!given.scenario.empty()) {
        const radio::scenario scenario = radio::load_scenario(given.scenario);
        write_text(given.write_config, radio::to_toml(find_ap(scenario, given).vaps));
        return 0;
    }
    radio::capture_source capture(given.capture);
    const std::vector<kx::vap_config> vaps = radio::discover_vaps(capture);
    if (!capture.found_damage().what.empty()) {
        std::fprintf(stderr, "radio: %s\n", capture.found_damage().what.c_str());
    }
    if (capture.tracker().access_points().size() > vaps.size()) {
        std::fprintf(stderr, "radio: %s: %zu access points, of which the first %zu are used\n", given.capture.c_str(),
                     capture.tracker().access_points().size(), vaps.size());
    }
    write_text(given.write_config, radio::to_toml(vaps));
    return 0;
}

// The VAPs that have a `bssid` in the configuration. The kernel serves the others.
std::vector<kx::vap_config> own_vaps(const std::string &file) {
    std::vector<kx::vap_config> vaps = kx::load_ap_config(file).vaps;
    std::erase_if(vaps, [](const kx::vap_config &vap) { return !vap.bssid; });
    return vaps;
}

radio::radio_process::settings make_settings(const options &given) {
    radio::radio_process::settings how;
    if (given.speed != "max") {
        how.play.speed = std::stod(given.speed);
    }
    if (given.start_at != 0) {
        how.play.start_at = std::chrono::system_clock::time_point(std::chrono::milliseconds(given.start_at));
    }
    how.wait_ready = !given.no_wait;
    how.patience = std::chrono::seconds(given.patience);
    how.stay = given.stay;
    how.json = given.json;
    return how;
}

int play_scenario(const options &given) {
    const radio::scenario scenario = radio::load_scenario(given.scenario);
    const radio::scenario_ap &ap = find_ap(scenario, given);
    radio::radio_process::settings how = make_settings(given);
    how.vaps = ap.vaps;
    radio::scenario_source source(scenario, ap);
    return radio::radio_process(how, source).run();
}

int play_capture(const options &given) {
    radio::radio_process::settings how = make_settings(given);
    how.vaps = own_vaps(given.config.empty() ? kx::config_file() : given.config);
    radio::capture_source source(given.capture);
    return radio::radio_process(how, source).run();
}

int run(int argc, char **argv) {
    CLI::App app("Plays wireless traffic to the client manager in place of an access point's radio stack.", "radio");
    options given;
    declare(app, given);
    if (const auto status = kx::parse_command_line(app, argc, argv)) {
        return *status;
    }
    if (given.discover) {
        return discover(given);
    }
    return given.scenario.empty() ? play_capture(given) : play_scenario(given);
}

}  // namespace

int main(int argc, char **argv) {
    try {
        return run(argc, argv);
    } catch (const std::exception &error) {
        std::fprintf(stderr, "radio: %s\n", error.what());
        return 1;
    }
}
