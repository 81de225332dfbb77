// apctl: shows what the daemons of this access point do.
#include <CLI/CLI.hpp>
#include <csignal>
#include <exception>
#include <iostream>
#include <string>
#include <vector>

#include "apctl/listings.h"
#include "apctl/output.h"
#include "apctl/view_client.h"
#include "common/command_line.h"
#include "common/mac_address.h"

namespace {

using apctl::output;

constexpr int exit_fault = 1;
constexpr int exit_unreachable = 2;

struct options {
    bool json = false;
    std::string client;
};

int finish(output &to, int status = 0) { return to.end() ? status : exit_fault; }

apctl::shown clients_of_daemon() { return apctl::ask(kx::view_of_client_mgr, kx::view_request_clients); }

std::vector<apctl::daemon_answer> ask_all() {
    std::vector<apctl::daemon_answer> answers;
    answers.push_back(apctl::try_ask("client_mgr", kx::view_of_client_mgr, kx::view_request_status));
    answers.push_back(apctl::try_ask("apd", kx::view_of_apd, kx::view_request_status));
    return answers;
}

int for_all(const options &chosen, void (*list)(const apctl::daemon_answer &, output &)) {
    output to(chosen.json);
    bool all = true;
    for (const apctl::daemon_answer &each : ask_all()) {
        list(each, to);
        all = all && each.answer;
    }
    return finish(to, all ? 0 : exit_unreachable);
}

int status(const options &chosen) { return for_all(chosen, apctl::list_status); }

int stats(const options &chosen) { return for_all(chosen, apctl::list_counters); }

int clients(const options &chosen) {
    output to(chosen.json);
    apctl::list_clients(clients_of_daemon(), to);
    return finish(to);
}

int client(const options &chosen) {
    const auto mac = kx::parse_mac(chosen.client);
    if (!mac) {
        std::cerr << "apctl: expected a MAC address such as 02:00:00:00:0a:01\n";
        return EX_USAGE;
    }
    const apctl::shown daemon = clients_of_daemon();
    const auto found = daemon.clients.find(*mac);
    output to(chosen.json);
    if (found == daemon.clients.end()) {
        std::cerr << "apctl: the daemon has no client " << kx::format_mac(*mac) << '\n';
        return finish(to, exit_fault);
    }
    apctl::show_client(daemon, found->second, to);
    return finish(to);
}

int vaps(const options &chosen) {
    output to(chosen.json);
    apctl::list_vaps(apctl::ask(kx::view_of_client_mgr, kx::view_request_status), to);
    return finish(to);
}

CLI::App *add(CLI::App &to, const char *name, const char *help, int &status, const options &chosen,
              int (*command)(const options &)) {
    CLI::App *const added = to.add_subcommand(name, help);
    added->fallthrough()->final_callback([&status, &chosen, command] { status = command(chosen); });
    return added;
}

int run(int argc, char **argv) {
    CLI::App app("Shows what the daemons of this access point do. Their sockets are below $KX_ROOT (default /run/kx).",
                 "apctl");
    options chosen;
    int result = 0;
    app.set_version_flag("--version", "apctl " CLIENT_MGR_VERSION);
    app.add_flag("--json", chosen.json, "Print a JSON array");
    app.require_subcommand(1);
    add(app, "status", "Show the daemons, the tunnel, the certificate's end, and what was lost", result, chosen,
        status);
    add(app, "clients", "List the clients", result, chosen, clients);
    add(app, "client", "Show one client", result, chosen, client)
        ->add_option("MAC", chosen.client, "Its MAC address")
        ->type_name("")
        ->required();
    add(app, "vaps", "List the VAPs that client_mgr serves", result, chosen, vaps);
    add(app, "stats", "List the daemons' counters since their start", result, chosen, stats);
    if (const auto status = kx::parse_command_line(app, argc, argv)) {
        return *status;
    }
    return result;
}

}  // namespace

int main(int argc, char **argv) {
    try {
        std::signal(SIGPIPE, SIG_IGN);
        return run(argc, argv);
    } catch (const apctl::unreachable &error) {
        std::cerr << "apctl: " << error.what() << '\n';
        return exit_unreachable;
    } catch (const std::exception &error) {
        std::cerr << "apctl: " << error.what() << '\n';
        return exit_fault;
    }
}
