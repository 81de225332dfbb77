#include <algorithm>
#include <cstddef>
#include <cstring>
#include <string>

#include "arrange.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "daemon_steps.h"
#include "kx/kx_log.h"
#include "sim_test.h"

namespace sim {
namespace {

const steps LOG_OPENED = did("ignore SIGPIPE") + did("ignore SIGCHLD") + did("KX_LOG_INIT(CLIENT_MGR, 3, 0)");
const steps TABLES_READY = trace_enter("client_tbl_init") + trace_leave("client_tbl_init") +
                           trace_enter("client_mgr_acl_cache_init") + trace_leave("client_mgr_acl_cache_init");
const steps ENDPOINT = did("kx_ipc_init(/kx/ipc/client_mgr, g_cfg.ipc_rx_buf, 16384, client_mgr_recv_msg, 0)");
const steps RADIO = did("kx_get_node_radio_mac_addr(24, 0)");
const steps RUNNING = did("sysmon_send_handshake(ipc, 60)") +
                      did("kx_eloop_register_timeout(60, 0, client_mgr_acl_cache_expire, null, null)") +
                      did("kx_eloop_run()");

// Start-up must not rely on zeroed memory.
void spoil_state() {
    memset(&g_cfg, 0xa5, sizeof(g_cfg));
    memset(client_info_tbl, 0xa5, sizeof(client_info_tbl));
    memset(client_hash_tbl, 0xa5, sizeof(client_hash_tbl));
    memset(client_acl_cache, 0xa5, sizeof(client_acl_cache));
    memset(client_acl_hash, 0xa5, sizeof(client_acl_hash));
    client_tbl_free_index = client_tbl_last_used = client_tbl_last_deleted = 7;
    client_mgr_acl_free_index = client_mgr_acl_last_used = client_mgr_acl_last_deleted = 7;
}

void fresh_state() {
    g_cfg = {};
    client_tbl_init();
    client_mgr_acl_cache_init();
}

}  // namespace

SIM_TEST(startup, runs_its_steps_in_order) {
    spoil_state();
    const ending end = sim.main();
    EXPECT_FALSE(end.exited);
    EXPECT_EQ(0, end.status);
    sim.expect({LOG_OPENED, TABLES_READY, did("kx_eloop_init(null)"), ENDPOINT, RADIO, RUNNING});
}

SIM_TEST(startup, leaves_a_clean_state_and_the_radio_mac_address) {
    spoil_state();
    sim.running = [] {
        const bytes mac = hex("a0a1a2a3a4a5");
        bytes expected = zeros(sizeof g_cfg);
        std::copy(mac.begin(), mac.end(), expected.begin() + offsetof(client_mgr_cfg, ap_mac));
        EXPECT_EQ(expected, state_block());
    };
    sim.main();
    sim.forget();
}

SIM_TEST(startup, clears_the_state_before_the_event_loop_exists) {
    spoil_state();
    sim.on("kx_eloop_init", [] { EXPECT_EQ(zeros(sizeof(g_cfg)), state_block()); });
    sim.main();
    sim.forget();
}

// The tables' first trace is the first line of the log. By then console echo is off and the state is clear.
TEST(startup, clears_the_state_before_the_tables_are_set_up) {
    site sim(4);
    spoil_state();
    int lines = 0;
    sim.on("log", [&] {
        if (lines++ > 0) {
            return;
        }
        EXPECT_EQ(0U, kx_log_conf_data.console);
        EXPECT_EQ(zeros(sizeof(g_cfg)), state_block());
    });
    sim.main();
    EXPECT_EQ(4, lines);
    sim.forget();
    sim.check_end();
}

SIM_TEST(startup, switches_console_echo_off) {
    // The simulated log library starts with console echo on.
    sim.running = [] { EXPECT_EQ(0U, kx_log_conf_data.console); };
    sim.main();
    sim.forget();
}

SIM_TEST(startup, leaves_the_other_words_of_the_log_configuration_alone) {
    kx_log_conf_data.word0 = 0x01020304;
    kx_log_conf_data.word1 = 0x05060708;
    kx_log_conf_data.word4 = 0x090a0b0c;
    sim.main();
    EXPECT_EQ(0x01020304U, kx_log_conf_data.word0);
    EXPECT_EQ(0x05060708U, kx_log_conf_data.word1);
    EXPECT_EQ(sim.log_level, kx_log_conf_data.level);
    EXPECT_EQ(0x090a0b0cU, kx_log_conf_data.word4);
    EXPECT_EQ(1U << 30, kx_log_conf_data.max_file_size);
    sim.forget();
}

SIM_TEST(startup, takes_a_radio_mac_address_without_separators) {
    sim.radio_mac = "a0A1a2A3a4A5";
    sim.running = [] {
        const uint8_t mac[6] = {0xa0, 0xa1, 0xa2, 0xa3, 0xa4, 0xa5};
        EXPECT_EQ(0, memcmp(mac, g_cfg.ap_mac.bytes, sizeof(mac)));
    };
    sim.main();
    sim.forget();
}

SIM_TEST(startup, reads_a_radio_mac_address_within_its_buffer) {
    sim.radio_mac = "a0:a1:a2:a3:a4:a5:ffffff";  // cut by the platform to 23 characters
    sim.main();
    EXPECT_EQ(hex("a0a1a2a3a4a5"), bytes(g_cfg.ap_mac.begin(), g_cfg.ap_mac.end()));
    sim.forget();
}

SIM_TEST(startup, without_a_log_writes_to_the_console_and_returns) {
    for (int result : {-1, 1}) {
        sim.fail_nth("KX_LOG_INIT", 1, result);
        const ending end = sim.main();
        EXPECT_FALSE(end.exited);
        EXPECT_EQ(-1, end.status);
        sim.expect({failed(LOG_OPENED, result), console(0, "client_mgr_main: Error opening log.")});
        sim.end_rules();
    }
}

SIM_TEST(startup, without_an_endpoint_exits) {
    sim.fail_nth("kx_ipc_init", 1);
    const ending end = sim.main();
    EXPECT_TRUE(end.exited);
    EXPECT_EQ(-1, end.status);
    sim.expect({LOG_OPENED, TABLES_READY, did("kx_eloop_init(null)"), failed(ENDPOINT), log(1, "Unable to open ipc")});
}

SIM_TEST(startup, takes_any_result_of_the_endpoint_that_is_not_negative) {
    sim.fail_nth("kx_ipc_init", 1, 5);
    const ending end = sim.main();
    EXPECT_FALSE(end.exited);
    sim.expect({LOG_OPENED, TABLES_READY, did("kx_eloop_init(null)"), failed(ENDPOINT, 5), RADIO, RUNNING});
}

SIM_TEST(startup, without_a_radio_mac_address_exits) {
    for (int result : {-1, 1}) {
        sim.fail_nth("kx_get_node_radio_mac_addr", 1, result);
        const ending end = sim.main();
        EXPECT_TRUE(end.exited);
        EXPECT_EQ(-1, end.status);
        sim.expect({LOG_OPENED, TABLES_READY, did("kx_eloop_init(null)"), ENDPOINT, failed(RADIO, result),
                    log(1, "Error retrieving the AP mac address")});
        sim.end_rules();
    }
}

SIM_TEST(startup, goes_on_whatever_the_loop_the_monitor_and_the_timer_answer) {
    sim.fail_nth("kx_eloop_init", 1);
    sim.fail_nth("sysmon_send_handshake", 1);
    sim.fail_nth("kx_eloop_register_timeout", 1);
    const ending end = sim.main();
    EXPECT_FALSE(end.exited);
    EXPECT_EQ(0, end.status);
    sim.expect({LOG_OPENED, TABLES_READY, failed(did("kx_eloop_init(null)")), ENDPOINT, RADIO,
                failed(did("sysmon_send_handshake(ipc, 60)")),
                failed(did("kx_eloop_register_timeout(60, 0, client_mgr_acl_cache_expire, null, null)")),
                did("kx_eloop_run()")});
}

SIM_TEST(startup, writes_a_fatal_message_to_the_console_when_echo_is_on) {
    sim.fail_nth("kx_ipc_init", 1);
    sim.on("kx_eloop_init", [] { kx_log_conf_data.console = 1; });
    sim.main();
    sim.expect({LOG_OPENED, TABLES_READY, did("kx_eloop_init(null)"), failed(ENDPOINT), log(1, "Unable to open ipc"),
                console(1, "Unable to open ipc")});
}

// The process really exits, with status 255.
TEST(startup, exits_with_status_255) {
    const auto start = [](const char *failing) {
        site sim(0);
        sim.fail_nth(failing, 1);
        sim.main_until_exit();
    };
    EXPECT_EXIT(start("kx_ipc_init"), testing::ExitedWithCode(255), "^$");
    EXPECT_EXIT(start("kx_get_node_radio_mac_addr"), testing::ExitedWithCode(255), "^$");
}

SIM_TEST(startup, leads_to_a_daemon_that_serves_messages_and_sweeps_the_acl_cache) {
    sim.running = [&] {
        sim.forget();
        sim.local(KX_MSG_ID_SYSMON_HB, {});
        sim.expect({log(4, "Received Msg ID : 13"), log(4, "Notification message"), did("sysmon_send_hb(ipc, 60)")});
        sim.advance(59);
        sim.expect_nothing();
        sim.advance(1);
        sim.expect({trace_enter("client_mgr_acl_cache_expire"),
                    did("kx_eloop_register_timeout(60, 0, client_mgr_acl_cache_expire, null, null)"),
                    trace_leave("client_mgr_acl_cache_expire")});
    };
    sim.main();
    fresh_state();
    sim.forget();
}

}  // namespace sim
