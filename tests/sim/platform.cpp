#include "platform.h"

#include <cstring>
#include <utility>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "kx/kx_log.h"
#include "table_copy.h"

namespace sim {
namespace {

// The tables are initialised once and then copied, because fuzzing needs it often and emulated machines are slow.
void fresh_daemon() {
    static table_copy<client_info> no_clients;
    static table_copy<acl_cache_entry> no_verdicts;
    g_cfg = {};
    if (no_clients.is_taken()) {
        no_clients.put_back();
        no_verdicts.put_back();
    } else {
        client_tbl_init();
        client_mgr_acl_cache_init();
        no_clients.take();
        no_verdicts.take();
    }
    g_cfg.ap_mac = {0xa0, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5};
}

}  // namespace

platform *platform::current = nullptr;

platform::platform(int level) : log_level(level) {
    set_clock(1700000000, 123);
    fresh_daemon();
    kx_log_conf_data.level = level;
    current = this;
    open_log();
    take_stdout();
}

platform::~platform() {
    lend_stdout();
    close_log();
    current = nullptr;
}

ending platform::main() {
    close_log();
    close_endpoint();
    controller_recv = nullptr;
    controller_status_cb = nullptr;
    return run_main();
}

std::vector<std::string> platform::take_effects() {
    end_console_line();
    return std::move(effects);
}

void platform::finish() {
    end_rules();
    if (open_sockets() != 0) {
        complain(std::to_string(open_sockets()) + " sockets are left open");
    }
    if (hostapd_connection != nullptr) {
        complain("the connection to hostapd is left open");
    }
}

}  // namespace sim
