#include <event2/event.h>
#include <signal.h>
#include <sysexits.h>
#include <unistd.h>

#include <CLI/CLI.hpp>
#include <optional>
#include <string>

#include "apd/apd.h"
#include "apd/heap_reserve.h"
#include "apd/log.h"
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
#include "common/run_daemon.h"

namespace {

void serve(const std::string &config_file, apd::detail_log details) {
    kx::require_safe_root();
    kx::lock_program("apd");
    kx::event_loop_ptr base(event_base_new());
    std::optional<apd::platform_daemon> daemon;  // made once no signal ends it in the middle
    kx::watch terminated(base.get(), SIGTERM, EV_SIGNAL | EV_PERSIST, [&] { daemon->stop(); });
    kx::watch interrupted(base.get(), SIGINT, EV_SIGNAL | EV_PERSIST, [&] { daemon->stop(); });
    kx::watch hung_up(base.get(), SIGHUP, EV_SIGNAL | EV_PERSIST, [&] { daemon->reload(); });
    kx::watch asked(base.get(), SIGUSR1, EV_SIGNAL | EV_PERSIST, [&] { daemon->write_state(); });
    terminated.start();
    interrupted.start();
    hung_up.start();
    asked.start();
    daemon.emplace(base.get(), config_file, details);
    event_base_dispatch(base.get());
    apd::log_line("ended");
}

int run(int argc, char **argv) {
    CLI::App options(
        "The access point's platform daemon: starts the client manager's service, monitors it, and carries messages "
        "between it and the controller.\nIts files are below $KX_ROOT (default /run/kx).",
        "apd");
    std::string config_file = kx::config_file();
    bool verbose = false;
    options.add_option("--config", config_file, "The access point's configuration ($KX_CONFIG or $KX_ROOT/ap.toml)")
        ->type_name("FILE");
    options.add_flag("--verbose", verbose, "Write every step to standard error");
    options.set_version_flag("--version", "apd " CLIENT_MGR_VERSION);
    if (const auto status = kx::parse_command_line(options, argc, argv)) {
        return *status;
    }

    signal(SIGPIPE, SIG_IGN);
    signal(SIGUSR1, SIG_IGN);  // until the event loop handles it
    kx::never_wait_for_reader(STDERR_FILENO);
    kx::harden_process();
    apd::take_heap();
    kx::clean_libraries_heap();
    serve(config_file, apd::detail_log(verbose));
    return EX_OK;
}

}  // namespace

int main(int argc, char **argv) { return kx::run_daemon("apd", run, argc, argv); }
