// sitectl: sends an operator's command to the site controller.
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <algorithm>
#include <chrono>
#include <csignal>
#include <exception>
#include <functional>
#include <iostream>
#include <limits>
#include <list>
#include <map>
#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "common/command_line.h"
#include "controller/account_commands.h"
#include "controller/account_secret.h"
#include "controller/bundle_commands.h"
#include "controller/commands.h"
#include "controller/control_client.h"
#include "controller/enrolment/site_directory.h"
#include "controller/listing_queries.h"
#include "controller/site_config.h"

namespace {

using controller::command_usage;

constexpr int exit_refused = 1;
constexpr int exit_unreachable = 2;
constexpr auto pause = std::chrono::milliseconds(20);  // when an access point cannot take more at the moment
constexpr const char *clear_terminal = "\x1b[H\x1b[2J\x1b[3J";

struct options {
    std::string config = "/etc/kx/site.toml";
    std::string control;
    bool json = false;
    double watch_seconds = 0;
    std::optional<std::size_t> limit;
    std::optional<unsigned> token_days;
    controller::bundle_request bundle;
    controller::new_site site{
        .directory = "", .addresses = {}, .state_directory = "/var/lib/kx-site", .run_directory = "/run/kx-site"};
};

// One command with its words.
struct subcommand {
    const command_usage *usage;
    CLI::App *parsed;
    std::vector<std::string> arguments = {};
    std::map<std::string, std::string> filters = {};
};

// Prints rows: lines as they are, or as one JSON array.
class row_printer {
public:
    explicit row_printer(bool as_json) : json_(as_json) {}

    // Takes whole lines, each a row, or a row's further line when it begins with a space.
    void print(const std::string &lines) {
        std::istringstream stream(lines);
        for (std::string line; std::getline(stream, line);) {
            rows_ += line.starts_with(' ') ? 0 : 1;
            std::cout << (!json_ ? "" : rows_ == 1 ? "[\n" : ",\n") << line << (json_ ? "" : "\n");
        }
    }
    void end() const {
        if (json_) {
            std::cout << (rows_ == 0 ? "[]\n" : "\n]\n");
        }
        std::cout << std::flush;
    }
    std::size_t rows() const { return rows_; }

private:
    bool json_;
    std::size_t rows_ = 0;
};

std::string line_of(const subcommand &given, const options &chosen) {
    std::string line(given.usage->name);
    for (const std::string &word : given.arguments) {
        line += (word.empty() ? "" : " ") + controller::encode_word(word);
    }
    for (const auto &[name, word] : given.filters) {
        if (given.parsed->count("--" + name) > 0) {
            line += " --" + name + '=' + controller::encode_word(word);
        }
    }
    return line + (chosen.json ? " --json" : "");
}

// What sitectl itself has made for a command, by its name in JSON. The text may have lines.
struct made_row {
    std::string name, text;
};

std::string to_rows(const made_row &made, bool as_json) {
    return made.text.empty() ? "" : (as_json ? nlohmann::json{{made.name, made.text}}.dump() : made.text) + '\n';
}

// Asks for one page after the other. `made` is called when the command has succeeded; its row is the last.
void ask(const subcommand &given, const options &chosen, const std::function<made_row()> &made) {
    const std::string line = line_of(given, chosen);
    row_printer printer(chosen.json);
    std::string cursor;
    do {
        std::string page = line;
        if (chosen.limit) {
            page += " --limit=" + std::to_string(std::min(*chosen.limit - printer.rows(), controller::page_rows_max));
        }
        const auto answer =
            controller::ask_controller(chosen.control, page + (cursor.empty() ? "" : " --cursor=" + cursor));
        printer.print(answer.text);
        if (!cursor.empty() && answer.next == cursor) {
            std::this_thread::sleep_for(pause);
        }
        cursor = answer.next;
    } while (!cursor.empty() && (!chosen.limit || printer.rows() < *chosen.limit));
    printer.print(to_rows(made(), chosen.json));
    printer.end();
}

int run(const subcommand &given, const options &chosen, const std::function<made_row()> &made) {
    for (;;) {
        if (chosen.watch_seconds > 0 && isatty(STDOUT_FILENO) != 0) {
            std::cout << clear_terminal;
        }
        ask(given, chosen, made);
        if (!std::cout || chosen.watch_seconds <= 0) {
            return std::cout ? 0 : exit_refused;
        }
        std::this_thread::sleep_for(std::chrono::duration<double>(chosen.watch_seconds));
    }
}

// What a filter selects, for the help text.
std::string describe(const std::string &filter) {
    static const std::map<std::string, std::string> texts = {
        {"ap", "Only at this access point, given by its name or MAC address"},
        {"index", "Only the list of this MAC ACL index"},
        {"mac", "Only MAC addresses with these first digits"},
        {"name", "Only names that contain this text"},
        {"order", "\"descending\" for the last rows first"},
        {"ssid", "Only on this SSID"},
        {"state", "Only in this state"},
    };
    return texts.at(filter);
}

// A name in brackets may be left out.
void add_arguments(CLI::App &to, subcommand &of) {
    const auto names = controller::given_arguments(*of.usage);
    of.arguments.resize(names.size());
    for (std::size_t i = 0; i < names.size(); i++) {
        std::string name = names[i];
        const bool optional = std::erase(name, '[') + std::erase(name, ']') > 0;
        to.add_option(name, of.arguments[i])->type_name("")->required(!optional);
    }
}

void add_bundle_options(CLI::App &to, const command_usage &usage, controller::bundle_request &wanted) {
    if (usage.name == "ap-add") {
        to.add_option("--mac", wanted.mac, "The access point's MAC address")->type_name("MAC")->required();
        to.add_option("--site", wanted.site, "Where it is")->type_name("NAME");
    }
    auto *own = to.add_option("--certificate", wanted.certificate_file,
                              "Enrol it with this certificate of the authority, and make no bundle");
    auto *days = to.add_option("--days", wanted.days, "Days for which its certificate is valid");
    auto *output = to.add_option("--output", wanted.output, "The bundle; default: NAME.tar");
    own->type_name("FILE")->excludes(days)->excludes(output);
    days->check(CLI::Range(1, 36500));
    output->type_name("FILE");
}

CLI::App *add_init(CLI::App &to, controller::new_site &wanted) {
    auto *const added =
        to.add_subcommand("init", "make the authority, certificates, keys and configuration of a new site");
    added->group("");
    added->add_option("DIRECTORY", wanted.directory)->type_name("")->required();
    added
        ->add_option("--address", wanted.addresses,
                     "Where access points reach the controller; more than one may be given")
        ->type_name("HOST")
        ->required();
    added->add_option("--state", wanted.state_directory, "The store's directory")
        ->type_name("DIRECTORY")
        ->capture_default_str();
    added->add_option("--run", wanted.run_directory, "The control socket's directory")
        ->type_name("DIRECTORY")
        ->capture_default_str();
    return added;
}

void add_subcommand(CLI::App &to, const command_usage &usage, std::list<subcommand> &all, options &chosen) {
    const std::string name = controller::spoken_name(usage);
    CLI::App *const added = to.add_subcommand(name.substr(name.find(' ') + 1), std::string(usage.help));
    subcommand &one = all.emplace_back(subcommand{&usage, added});
    added->fallthrough()->group("");
    add_arguments(*added, one);
    for (const std::string &filter : controller::words_of(usage.filters)) {
        added->add_option("--" + filter, one.filters[filter], describe(filter));
    }
    if (controller::makes_bundle(usage.name)) {
        add_bundle_options(*added, usage, chosen.bundle);
    } else if (!usage.own_options.empty()) {
        added
            ->add_option("--days", chosen.token_days,
                         "Days for which the token is valid; without it, until it is removed")
            ->type_name("DAYS")
            ->check(CLI::Range(controller::token_days_min, controller::token_days_max));
    }
    if (usage.is_listing()) {
        added->add_option("--limit", chosen.limit, "At most so many rows")
            ->type_name("N")
            ->check(CLI::Range(std::size_t{1}, std::numeric_limits<std::size_t>::max()).description(""));
    }
}

void declare(CLI::App &app, options &chosen, std::list<subcommand> &all) {
    app.set_version_flag("--version", "sitectl " CLIENT_MGR_VERSION);
    app.add_option("--config", chosen.config, "The controller's configuration, which names the control socket")
        ->type_name("FILE")
        ->capture_default_str();
    app.add_option("--control", chosen.control, "Path of the controller's control socket")->type_name("PATH");
    app.add_flag("--json", chosen.json, "Print a JSON array");
    app.add_option("--watch", chosen.watch_seconds, "Print the answer anew every so many seconds")
        ->type_name("SECONDS")
        ->check(CLI::Range(0.1, 86400.0).description(""));
    auto *const ap = app.add_subcommand("ap", "enrol access points");
    ap->fallthrough()->group("")->require_subcommand(1);
    for (const command_usage &usage : controller::command_usages()) {
        add_subcommand(controller::is_about_enrolment(usage) ? *ap : app, usage, all, chosen);
    }
    app.require_subcommand(1);
    app.footer("Commands, each of which has a --help:\n" + controller::command_summary() +
               "  init DIRECTORY                    make the files of a new site\n"
               "      --address      --state      --run\n"
               "A listing also takes --limit N.");
}

int initialise(const controller::new_site &wanted, bool as_json) {
    row_printer printer(as_json);
    for (const std::string &file : controller::make_site(wanted)) {
        printer.print(to_rows({"file", file}, as_json));
    }
    printer.end();
    return std::cout.flush() ? 0 : exit_refused;
}

// Sends the command, and prints what sitectl itself made for it.
int carry_out(subcommand &given, options &chosen) {
    controller::options site;
    const bool makes_bundle = controller::makes_bundle(given.usage->name);
    if (chosen.control.empty() || (makes_bundle && chosen.bundle.certificate_file.empty())) {
        site = controller::load_site_config(chosen.config);
    }
    if (chosen.control.empty()) {
        chosen.control = site.control;
    }
    if (chosen.control.empty()) {
        throw std::runtime_error(chosen.config +
                                 ": controller.control: missing; --control names the control socket too");
    }
    controller::account_secret secret = controller::make_account_secret(given.usage->name);
    if (chosen.watch_seconds > 0 && (makes_bundle || !secret.arguments.empty())) {
        throw std::runtime_error("--watch repeats a command; this one is carried out once");
    }
    controller::bundle_in_making bundle;
    if (makes_bundle) {
        secret.arguments = bundle.make(given.usage->name, given.arguments.front(), chosen.bundle, site, chosen.control);
    }
    given.arguments.insert(given.arguments.end(), secret.arguments.begin(), secret.arguments.end());
    if (chosen.token_days) {
        given.arguments.push_back(std::to_string(*chosen.token_days));
    }
    const auto made = [&] { return makes_bundle ? made_row{"bundle", bundle.keep()} : made_row{"token", secret.text}; };
    try {
        return run(given, chosen, made);
    } catch (const controller::unanswered &) {
        if (const std::string file = bundle.keep(); !file.empty()) {
            std::cerr << "sitectl: " << file << " is kept: the controller may have taken its certificate\n";
        }
        throw;
    }
}

}  // namespace

int main(int argc, char **argv) {
    try {
        std::signal(SIGPIPE, SIG_IGN);
        options chosen;
        std::list<subcommand> all;
        CLI::App app("Sends a command to the site controller and prints the answer.", "sitectl");
        declare(app, chosen, all);
        const CLI::App *const init = add_init(app, chosen.site);
        if (const auto status = kx::parse_command_line(app, argc, argv)) {
            return *status;
        }
        if (init->parsed()) {
            return initialise(chosen.site, chosen.json);
        }
        return carry_out(*std::ranges::find_if(all, [](const subcommand &each) { return each.parsed->parsed(); }),
                         chosen);
    } catch (const controller::unreachable &error) {
        std::cerr << "sitectl: " << error.what() << '\n';
        return exit_unreachable;
    } catch (const std::exception &error) {
        std::cerr << "sitectl: " << error.what() << '\n';
        return exit_refused;
    }
}
