#include "apctl/commands.h"

#include <sysexits.h>

#include <array>
#include <iostream>
#include <stdexcept>

#include "apctl/check.h"
#include "apctl/listings.h"
#include "apctl/log_command.h"
#include "apctl/log_level.h"
#include "apctl/metrics.h"
#include "apctl/metrics_server.h"
#include "apctl/output.h"
#include "apctl/view_client.h"
#include "apctl/watch.h"
#include "common/mac_address.h"

namespace apctl {

namespace {

int finish(output &to, int status = 0) { return to.end() ? status : exit_fault; }

shown clients_of_daemon() { return ask(kx::view_of_client_mgr, kx::view_request_clients); }

int for_all(const options &chosen, void (*list)(const daemon_answer &, output &)) {
    output to(chosen.json);
    bool all = true;
    const std::array answers{try_ask("client_mgr", kx::view_of_client_mgr, kx::view_request_status),
                             try_ask("apd", kx::view_of_apd, kx::view_request_status)};
    for (const daemon_answer &each : answers) {
        list(each, to);
        all = all && each.answer;
    }
    return finish(to, all ? 0 : exit_unreachable);
}

}  // namespace

int status(const options &chosen) { return for_all(chosen, list_status); }

int stats(const options &chosen) { return for_all(chosen, list_counters); }

int clients(const options &chosen) {
    output to(chosen.json);
    list_clients(clients_of_daemon(), to);
    return finish(to);
}

int client(const options &chosen) {
    const auto mac = kx::parse_mac(chosen.client);
    const shown daemon = clients_of_daemon();
    const auto found = daemon.clients.find(mac.value());
    output to(chosen.json);
    if (found == daemon.clients.end()) {
        std::cerr << "apctl: the daemon has no client " << kx::format_mac(*mac) << '\n';
        return finish(to, exit_fault);
    }
    show_client(daemon, found->second, to);
    return finish(to);
}

int vaps(const options &chosen) {
    output to(chosen.json);
    list_vaps(ask(kx::view_of_client_mgr, kx::view_request_status), to);
    return finish(to);
}

int watch(const options &chosen) {
    output to(chosen.json);
    watch_changes(to);
    return finish(to);
}

int log(const options &chosen) {
    output to(chosen.json);
    show_log({.follow = chosen.follow, .level = chosen.level, .client = kx::parse_mac(chosen.client)}, to);
    return finish(to);
}

int level(const options &chosen) {
    if (chosen.level) {
        set_log_level(*chosen.level);
    }
    const int now = ask_log_level();
    output to(chosen.json);
    to.row({{"level", now}}, std::to_string(now));
    return finish(to);
}

int check(const options &chosen) {
    output to(chosen.json);
    bool fault = false;
    for (const finding &each : check_access_point(chosen.config)) {
        to.row({{"subject", each.subject}, {"fault", each.is_fault}, {"text", each.text}},
               each.subject + (each.is_fault ? ": " : ": not checked: ") + each.text);
        fault = fault || each.is_fault;
    }
    if (!fault) {
        to.heading("no fault was found");
    }
    return finish(to, fault ? exit_fault : 0);
}

int metrics(const options &chosen) {
    if (chosen.serve) {
        const kx::metrics_config at = kx::load_ap_config(chosen.config).metrics;
        if (at.address.empty()) {
            throw kx::config_error(chosen.config + ": metrics: missing; expected [metrics] with address and port");
        }
        serve_metrics(at);
    } else if (!chosen.textfile.empty()) {
        write_metrics_file(chosen.textfile);
    } else {
        std::cout << collect_metrics();
    }
    return std::cout.flush() ? 0 : exit_fault;
}

}  // namespace apctl
