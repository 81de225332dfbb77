// apctl: shows what the daemons of this access point hold and do.
#include <sysexits.h>

#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>

#include "apctl/commands.h"
#include "apctl/view_client.h"
#include "common/ap_config.h"
#include "common/command_line.h"
#include "common/mac_address.h"
#include "common/paths.h"

namespace {

using apctl::command;
using apctl::options;

constexpr int level_min = -1, level_max = 9;  // platform/linux/kx_log.cpp

const CLI::Validator is_mac(
    [](std::string &text) {
        return kx::parse_mac(text) ? "" : std::string("expected a MAC address such as 02:00:00:00:0a:01");
    },
    "");

CLI::App *add(CLI::App &to, const command &one, const command *&chosen) {
    CLI::App *const added = to.add_subcommand(one.name, one.help);
    added->fallthrough()->callback([&one, &chosen] { chosen = &one; });
    return added;
}

void add_level(CLI::App &to, const char *name, const char *help, options &chosen) {
    to.add_option(name, chosen.level, help)->type_name("")->check(CLI::Range(level_min, level_max).description(""));
}

void declare(CLI::App &app, options &wanted, const command *&chosen) {
    static const command status{"status", "Show the daemons, the tunnel, the certificate's end, and what was lost",
                                apctl::status};
    static const command clients{"clients", "List the clients", apctl::clients};
    static const command client{"client", "Show one client", apctl::client};
    static const command vaps{"vaps", "List the VAPs that client_mgr serves", apctl::vaps};
    static const command watch{"watch", "Print changes as they come: clients, VAPs, the tunnel", apctl::watch};
    static const command log{"log", "Print client_mgr's log in local time, without keys", apctl::log};
    static const command level{"level", "Show the level of client_mgr's log, or set it", apctl::level};
    static const command stats{"stats", "List the daemons' counters since their start", apctl::stats};
    static const command check{"check", "Look for faults, and name the remedies", apctl::check};
    static const command metrics{"metrics", "Print metrics for Prometheus", apctl::metrics};

    app.set_version_flag("--version", "apctl " CLIENT_MGR_VERSION);
    app.add_flag("--json", wanted.json, "Print a JSON array");
    app.add_option("--config", wanted.config, "The access point's configuration ($KX_CONFIG or $KX_ROOT/ap.toml)")
        ->type_name("FILE");
    app.require_subcommand(1);
    add(app, status, chosen);
    add(app, clients, chosen);
    add(app, client, chosen)->add_option("MAC", wanted.client, "")->type_name("")->check(is_mac)->required();
    add(app, vaps, chosen);
    add(app, watch, chosen);
    CLI::App *const log_words = add(app, log, chosen);
    log_words->add_option("MAC", wanted.client, "Only lines about this client")->type_name("")->check(is_mac);
    CLI::Option *const follow = log_words->add_flag("-f,--follow", wanted.follow, "Print new lines as they come");
    add_level(*log_words, "--level", "Set the daemon's level meanwhile, and back at the end", wanted);
    log_words->get_option("--level")->needs(follow);
    add_level(*add(app, level, chosen), "N", "1: errors, 3: events, 4: traces", wanted);
    add(app, stats, chosen);
    add(app, check, chosen);
    CLI::App *const metrics_words = add(app, metrics, chosen);
    CLI::Option *const file =
        metrics_words->add_option("--textfile", wanted.textfile, "Write them to FILE for node_exporter");
    file->type_name("FILE");
    metrics_words->add_flag("--serve", wanted.serve, "Serve them over HTTP where [metrics] of ap.toml says")
        ->excludes(file);
}

int run(int argc, char **argv) {
    CLI::App app(
        "Shows what the daemons of this access point hold and do. Their sockets are below $KX_ROOT (default "
        "/run/kx).",
        "apctl");
    options wanted;
    wanted.config = kx::config_file();
    const command *chosen = nullptr;
    declare(app, wanted, chosen);
    if (const auto status = kx::parse_command_line(app, argc, argv)) {
        return *status;
    }
    return chosen->run(wanted);
}

}  // namespace

int main(int argc, char **argv) {
    try {
        std::signal(SIGPIPE, SIG_IGN);
        return run(argc, argv);
    } catch (const apctl::unreachable &error) {
        std::cerr << "apctl: " << error.what() << '\n';
        return apctl::exit_unreachable;
    } catch (const kx::config_error &error) {
        std::cerr << "apctl: " << error.what() << '\n';
        return EX_CONFIG;
    } catch (const std::exception &error) {
        std::cerr << "apctl: " << error.what() << '\n';
        return apctl::exit_fault;
    }
}
