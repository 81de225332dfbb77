#include <event2/event.h>
#include <signal.h>
#include <sysexits.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <string>

#include "common/ap_config.h"
#include "common/clean_heap.h"
#include "common/command_line.h"
#include "common/console.h"
#include "common/event_ptr.h"
#include "common/events.h"
#include "common/hardening.h"
#include "common/paths.h"
#include "common/permissions.h"
#include "common/program_lock.h"
#include "common/program_log.h"
#include "common/run_daemon.h"
#include "common/service_manager.h"
#include "radiod/access_point.h"
#include "radiod/check/check.h"

namespace {

bool has_started = false;

void serve(const kx::ap_config &config, kx::detail_log details) {
    kx::require_safe_radio_directories();
    kx::lock_program("radiod", kx::radio_directory);
    const kx::event_loop_ptr base(event_base_new());
    const auto end = [&] {
        kx::notify_service_manager("STOPPING=1");
        event_base_loopbreak(base.get());
    };
    kx::watch terminated(base.get(), SIGTERM, EV_SIGNAL | EV_PERSIST, end);
    kx::watch interrupted(base.get(), SIGINT, EV_SIGNAL | EV_PERSIST, end);
    terminated.start();
    interrupted.start();
    radiod::access_point access_point(base.get(), config, details);
    has_started = true;
    event_base_dispatch(base.get());
    kx::log_line("ended");
}

// Returns the exit status.
int print_check(const kx::ap_config &config) {
    const radiod::check_result found = radiod::check({.hostapd_directory = config.radio.hostapd_directory,
                                                      .radius_port = config.radio.radius_port,
                                                      .carries_roamed = config.tunnel.enabled},
                                                     config.vaps);
    for (const std::string &line : found.faults) {
        std::printf("%s\n", line.c_str());
    }
    for (const std::string &line : found.unseen) {
        std::printf("not checked: %s\n", line.c_str());
    }
    if (found.faults.empty()) {
        std::printf("no fault was found\n");
    }
    return found.faults.empty() ? EX_OK : 1;
}

int run(int argc, char **argv) {
    CLI::App options(
        "The access point's radio service: reports hostapd's stations to client_mgr, and applies what client_mgr "
        "decides to hostapd.\nIts files are below $KX_ROOT (default /run/kx).",
        "radiod");
    std::string config_file = kx::config_file();
    options.add_option("--config", config_file, "The access point's configuration ($KX_CONFIG or $KX_ROOT/ap.toml)")
        ->type_name("FILE");
    bool verbose = false, check = false;
    options.add_flag("--check", check, "Compare hostapd and the bridges with the configuration, and exit");
    options.add_flag("--verbose", verbose, "Write every step to standard error");
    options.set_version_flag("--version", "radiod " CLIENT_MGR_VERSION);
    if (const auto status = kx::parse_command_line(options, argc, argv)) {
        return *status;
    }

    if (check) {
        return print_check(kx::load_ap_config(config_file));
    }
    signal(SIGPIPE, SIG_IGN);
    signal(SIGHUP, SIG_IGN);
    kx::never_wait_for_reader(STDERR_FILENO);
    kx::harden_process();
    kx::clean_libraries_heap();
    serve(kx::load_ap_config(config_file), kx::detail_log(verbose));
    return EX_OK;
}

}  // namespace

int main(int argc, char **argv) {
    const int status = kx::run_daemon("radiod", run, argc, argv);
    // The service manager starts it again at once, also when it cannot start.
    if (status != EX_OK && !has_started && getenv("NOTIFY_SOCKET") != nullptr) {
        sleep(1);
    }
    return status;
}
