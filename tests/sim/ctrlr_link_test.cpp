#include "client_mgr/neighbours/ctrlr_link.h"

#include "arrange.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/clients/vaps.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

constexpr uint32_t BUF_SIZE = CLIENT_MGR_BUF_SIZE;

}  // namespace

// --- sending

SIM_TEST(ctrlr_link, hands_a_message_to_the_channel_whole) {
    EXPECT_EQ(0, client_mgr_send_apcomm_msg(hex("01 02 03 04 05").data(), 5));
    sim.expect({did("apcomm_send_msg(106, 0102030405, 0)")});
    EXPECT_EQ(0, client_mgr_send_apcomm_msg(bytes(BUF_SIZE, 0x5c).data(), BUF_SIZE));
    sim.expect({to_controller(bytes(BUF_SIZE, 0x5c))});
}

SIM_TEST(ctrlr_link, takes_any_result_but_0_for_a_failed_send) {
    for (int result : {-1, 1}) {
        sim.fail_nth("apcomm_send_msg", 1, result);
        EXPECT_EQ(-1, client_mgr_send_apcomm_msg(hex("01").data(), 1));
        sim.expect({failed(to_controller(hex("01")), result), log(1, "APComm Unable to send data")});
        sim.end_rules();
    }
}

SIM_TEST(ctrlr_link, changes_nothing_when_a_send_completes) {
    const bytes before = state_block();
    client_mgr_apcomm_send_rslt();
    sim.expect_nothing();
    EXPECT_EQ(before, state_block());
}

// --- status

SIM_TEST(ctrlr_link, comes_up_with_status_1) {
    g_cfg.status_flags = 0xfffffff0;
    sim.controller_status(0x0a0b0c0d, 1);
    sim.expect({log(3, "client_mgr_apcomm_ctrl_status: Rcvd tunl status up. ctrl ip = 0x0a0b0c0d")});
    EXPECT_EQ(0xfffffff2, g_cfg.status_flags);
    EXPECT_EQ(0x0a0b0c0dU, g_cfg.ctrlr_ip);
    sim.controller_status(0x00000007, 1);
    sim.expect({log(3, "client_mgr_apcomm_ctrl_status: Rcvd tunl status up. ctrl ip = 0x00000007")});
    EXPECT_EQ(7U, g_cfg.ctrlr_ip);
}

SIM_TEST(ctrlr_link, goes_down_with_status_0) {
    g_cfg.status_flags = 0xffffffff;
    g_cfg.ctrlr_ip = 0x0a0b0c0d;
    sim.controller_status(0x01020304, 0);
    sim.expect({log(3, "client_mgr_apcomm_ctrl_status: Rcvd tunl status down")});
    EXPECT_EQ(0xfffffffd, g_cfg.status_flags);
    EXPECT_EQ(0U, g_cfg.ctrlr_ip);
}

TEST(ctrlr_link, stores_a_status_before_it_logs_it) {
    site sim(3);
    for (uint32_t status : {1U, 0U}) {
        int lines = 0;
        sim.on("log", [&] {
            lines++;
            EXPECT_EQ(2 * status, g_cfg.status_flags);
            EXPECT_EQ(status * 0x0a0b0c0d, g_cfg.ctrlr_ip);
        });
        sim.controller_status(0x0a0b0c0d, status);
        EXPECT_EQ(1, lines);
    }
    sim.forget();
    sim.check_end();
}

SIM_TEST(ctrlr_link, ignores_any_other_status) {
    ready_to_talk();
    for (uint32_t status : {2U, 3U, 256U, 0x01000000U, 0xffffffffU}) {
        sim.controller_status(0x01020304, status);
    }
    sim.expect_nothing();
    EXPECT_EQ(3U, g_cfg.status_flags);
    EXPECT_EQ(0x0a0b0c0dU, g_cfg.ctrlr_ip);
}

SIM_TEST(ctrlr_link, comes_up_without_an_address_when_system_ready_follows_link_down) {
    ready_to_talk();
    sim.controller_status(0, 0);
    sim.local(KX_MSG_ID_SYS_READY, {});
    EXPECT_EQ(3U, g_cfg.status_flags);
    EXPECT_EQ(0U, g_cfg.ctrlr_ip);
    sim.forget();
    sim.local(KX_MSG_ID_VAP_INIT, {});
    sim.expect({log(4, "Received Msg ID : 60"), log(4, "Notification message"), log(3, "Initializing vap config"),
                log(1, "Not yet ready to talk to controller")});
}

SIM_TEST(ctrlr_link, needs_more_than_the_address_to_be_ready) {
    sim.controller_status(0x0a0b0c0d, 1);
    sim.forget();
    client_mgr_vap_init();
    sim.expect({log(3, "Initializing vap config"), log(1, "Not yet ready to talk to controller")});
    sim.local(KX_MSG_ID_SYS_READY, {});
    sim.forget();
    client_mgr_vap_init();
    sim.expect({log(3, "Initializing vap config"), log(3, "Got 0 vap configuration")});
}

}  // namespace sim
