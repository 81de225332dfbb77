#include "client_mgr/dispatch/local_dispatch.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <fstream>
#include <set>
#include <sstream>
#include <string>

#include "arrange.h"
#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/neighbours/ctrlr_link.h"
#include "client_mgr/tables/client_tbl.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "tables.h"

namespace sim {
namespace {

const std::set<uint32_t> NOTIFICATIONS = {KX_MSG_ID_SYSMON_HB,
                                          KX_MSG_ID_SYS_READY,
                                          KX_MSG_ID_SYS_INIT,
                                          KX_MSG_ID_LOG_CFG_SET,
                                          KX_MSG_ID_VAP_INIT,
                                          KX_MSG_ID_VAP_UPDATE,
                                          KX_MSG_ID_CLIENT_ASSOCIATION,
                                          KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION,
                                          KX_MSG_ID_CLIENT_DISASSOCIATION,
                                          KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION,
                                          KX_MSG_ID_APCOMM_MSG,
                                          KX_MSG_ID_CLIENT_MGR_PMK_INFO,
                                          KX_MSG_ID_CLIENT_IP,
                                          KX_MSG_ID_MAC_ACL_AUTH};

constexpr uint32_t REQUEST = 2;
constexpr const char *STA = "02:11:22:33:44:55";

steps notified(const std::string &id) { return log(4, "Received Msg ID : " + id) + log(4, "Notification message"); }

steps requested(const std::string &id) {
    return log(4, "Received Msg ID : " + id) + log(4, "Request Response message");
}

const steps EMPTY_RESPONSE = response(zeros(2060));
const steps VAP_NOT_LOADED = log(3, "Initializing vap config") + log(1, "Not yet ready to talk to controller");

std::string content(const std::string &path) {
    std::ifstream file(path);
    std::stringstream text;
    text << file.rdbuf();
    return text.str();
}

mode_t permissions(const std::string &path) {
    struct stat st = {};
    EXPECT_EQ(0, lstat(path.c_str(), &st)) << path;
    return st.st_mode & 07777;
}

void write_file(const std::string &path, const std::string &text) { std::ofstream(path) << text; }

steps dumped() { return requested("59") + trace_enter("client_tbl_dump") + trace_leave("client_tbl_dump"); }

// The dump of a table with one client, without the slot's address in memory.
bool is_dump_of(const std::string &text, const char *mac) {
    return text.rfind("Entry 0 @ ", 0) == 0 &&
           text.find("\nClient MAC   : " + std::string(mac) + " (" + mac + ")\n") != std::string::npos;
}

void request_dump(site &sim) {
    sim.local(KX_MSG_ID_CLIENT_TBL_DUMP, {}, REQUEST);
    const std::vector<std::string> effects = sim.take_effects();
    EXPECT_EQ(EMPTY_RESPONSE[0].what, effects.back()) << "the response comes whatever became of the dump";
}

}  // namespace

// --- notifications, row by row

SIM_TEST(local_dispatch, answers_a_heartbeat_with_the_announced_period) {
    sim.local(KX_MSG_ID_SYSMON_HB, {});
    sim.expect({notified("13"), did("sysmon_send_hb(ipc, 60)")});
    sim.fail_nth("sysmon_send_hb", 1);
    sim.local(KX_MSG_ID_SYSMON_HB, {});
    sim.expect({notified("13"), failed(did("sysmon_send_hb(ipc, 60)"))});
}

SIM_TEST(local_dispatch, sets_both_bits_at_system_ready) {
    for (uint32_t before : {0U, 1U, 2U, 3U, 0xfffffff0U}) {
        g_cfg.status_flags = before;
        sim.local(KX_MSG_ID_SYS_READY, {});
        sim.expect({notified("16"), log(3, "Received System Ready")});
        EXPECT_EQ(before | 3U, g_cfg.status_flags);
        EXPECT_EQ(0U, g_cfg.ctrlr_ip);
    }
}

TEST(local_dispatch, logs_system_ready_before_it_sets_the_bits) {
    site sim(3);
    sim.on("log", [] { EXPECT_EQ(0U, g_cfg.status_flags); });
    client_mgr_sys_ready_rcvd();
    EXPECT_EQ(3U, g_cfg.status_flags);
    sim.expect({log(3, "Received System Ready")});
    sim.check_end();
}

SIM_TEST(local_dispatch, registers_with_the_controller_channel_at_system_init) {
    sim.local(KX_MSG_ID_SYS_INIT, {});
    sim.expect({notified("17"), log(3, "Received System Init"), did("apcomm_recv_register(client_mgr_apcomm_recv_msg)"),
                did("apcomm_status_register(client_mgr_apcomm_ctrl_status)"), did("apcomm_register_kx_ipc(ipc)")});
}

SIM_TEST(local_dispatch, returns_the_last_registrations_result_at_system_init) {
    sim.fail_nth("apcomm_recv_register", 1, -5);
    sim.fail_nth("apcomm_status_register", 1, -6);
    EXPECT_EQ(0, client_mgr_sys_init_rcvd());
    sim.expect({log(3, "Received System Init"), failed(did("apcomm_recv_register(client_mgr_apcomm_recv_msg)"), -5),
                failed(did("apcomm_status_register(client_mgr_apcomm_ctrl_status)"), -6),
                did("apcomm_register_kx_ipc(ipc)")});
    sim.fail_nth("apcomm_register_kx_ipc", 1, -7);
    EXPECT_EQ(-7, client_mgr_sys_init_rcvd());
    sim.forget();
}

SIM_TEST(local_dispatch, passes_a_log_configuration_on) {
    const bytes configuration = hex("01020304 11121314 21222324 31323334 41424344 51525354");
    sim.local(KX_MSG_ID_LOG_CFG_SET, configuration);
    sim.expect({notified("29"), did("KX_LOG_SET_CFG(" + show(configuration) + ")")});
}

SIM_TEST(local_dispatch, loads_the_vaps_at_vap_init) {
    sim.local(KX_MSG_ID_VAP_INIT, {});
    sim.expect({notified("60"), VAP_NOT_LOADED});
}

SIM_TEST(local_dispatch, loads_the_vaps_before_it_reports_an_updated_one) {
    ready_to_talk();
    sim.vaps = {apcfg_entry("ath0", "home", 10)};
    sim.hwaddr = {{"ath0", hex("0a 1b 2c 3d 4e 50")}};
    sim.local(KX_MSG_ID_VAP_UPDATE, padded("ath0", 12));
    sim.expect({notified("61"), log(3, "Initializing vap config"), log(3, "Got 1 vap configuration"),
                log(3, "vap ath0 status = AP_TRUE"), read_hwaddr("ath0"), log(3, "BSSID : 0a:1b:2c:3d:4e:50"),
                log(3, "SSID  home"), log(3, "VLAN  10"), log(3, "Radius Index  0"), log(3, "MAC Acl Index  0"),
                log(3, "Radius Acl Type  0"), log(3, "Rcvd vap update for ath0"), read_hwaddr("ath0"),
                log(3, "BSSID : 0a:1b:2c:3d:4e:50"), log(3, "SSID  home"), log(3, "VLAN  10"),
                to_controller(hex("01 0e 00 0001 00 003c a0a1a2a3a4a5 01 04 002e 0a1b2c3d4e50") + padded("home", 32) +
                              hex("0000000a"))});
}

SIM_TEST(local_dispatch, logs_twice_that_a_vap_update_has_no_controller) {
    sim.local(KX_MSG_ID_VAP_UPDATE, padded("ath0", 12));
    sim.expect({notified("61"), VAP_NOT_LOADED, log(3, "Rcvd vap update for ath0"),
                log(1, "Not yet ready to talk to controller")});
}

SIM_TEST(local_dispatch, logs_client_events_before_they_are_dropped) {
    // The controller cannot be reached yet, so only the receipt is logged.
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, zeros(32));
    sim.expect({notified("63"), log(3, "KX_MSG_ID_CLIENT_ASSOCIATION rcvd")});
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, zeros(38));
    sim.expect({notified("64"), log(3, "KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION rcvd")});
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, zeros(32));
    sim.expect({notified("65"), log(3, "KX_MSG_ID_CLIENT_DISASSOCIATION rcvd")});
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, zeros(32));
    sim.expect({notified("66"), log(3, "KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION rcvd")});
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, hex("00000001") + zeros(50));
    sim.expect({notified("150"), log(3, "KX_MSG_ID_CLIENT_MGR_PMK_INFO rcvd")});
    sim.local(KX_MSG_ID_CLIENT_IP, zeros(16));
    sim.expect({notified("161"), log(3, "KX_MSG_ID_CLIENT_IP rcvd ")});
}

SIM_TEST(local_dispatch, hands_client_events_to_their_handlers) {
    ready_to_talk();
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, zeros(32));
    sim.expect({notified("63"), log(3, "KX_MSG_ID_CLIENT_ASSOCIATION rcvd"), log(3, "Received association msg"),
                syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Association-Req 00:00:00:00:00:00 -- 00:00:00:00:00:00"),
                syslog(LOG_USER | LOG_CRIT,
                       "<clmgr> Proc Association-Req 00:00:00:00:00:00 -- 00:00:00:00:00:00 [Invalid BSS]"),
                log(1, "Invalid ap bssid in assoc msg")});
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, zeros(38));
    sim.expect({notified("64"), log(3, "KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION rcvd"),
                client_lookup("00:00:00:00:00:00", false), log(3, "Unable to find client, req cntlr"),
                log(1, "Invalid ap bssid in assoc msg")});
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, zeros(32));
    sim.expect({notified("66"), log(3, "KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION rcvd"),
                client_lookup("00:00:00:00:00:00", false), log(3, "Unable to find client")});
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, hex("00000003") + zeros(50));
    sim.expect({notified("150"), log(3, "KX_MSG_ID_CLIENT_MGR_PMK_INFO rcvd")});
    sim.local(KX_MSG_ID_CLIENT_IP, zeros(16));
    sim.expect({notified("161"), log(3, "KX_MSG_ID_CLIENT_IP rcvd "), client_lookup("00:00:00:00:00:00", false),
                log(3, "Unable to find client 00:00:00:00:00:00")});
}

SIM_TEST(local_dispatch, hands_the_channels_traffic_back_to_it) {
    sim.on("apcomm_msg_rcvd", [] { client_mgr_apcomm_ctrl_status(0x0a0b0c0d, 1); });
    sim.local(KX_MSG_ID_APCOMM_MSG, hex("01 02 03"));
    sim.expect({notified("123"), did("apcomm_msg_rcvd(payload)"),
                log(3, "client_mgr_apcomm_ctrl_status: Rcvd tunl status up. ctrl ip = 0x0a0b0c0d")});
}

SIM_TEST(local_dispatch, logs_a_mac_acl_question_one_level_above_other_messages) {
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, zeros(16));
    sim.expect({notified("195"), log(4, "KX_MSG_ID_MAC_ACL_AUTH rcvd"), log(1, "Invalid ap bssid in acl auth msg")});
}

SIM_TEST(local_dispatch, drops_any_other_notification_silently) {
    ready_to_talk();
    for (uint32_t id = 0; id < 300; id++) {
        if (NOTIFICATIONS.count(id) != 0) {
            continue;
        }
        sim.local(id, bytes(64, 0xff));
        sim.expect({notified(std::to_string(id))});
    }
    // All 32 bits of the id are compared. It is logged as a signed number.
    sim.local(0x0100003f, zeros(32));
    sim.expect({notified("16777279")});
    sim.local(0x3f000000, zeros(32));
    sim.expect({notified("1056964608")});
    sim.local(0x80000000, zeros(32));
    sim.expect({notified("-2147483648")});
    sim.local(0xffffffff, zeros(32));
    sim.expect({notified("-1")});
    EXPECT_EQ(std::vector<int>{}, used_clients());
}

// --- requests

SIM_TEST(local_dispatch, takes_only_the_bit_of_value_2_for_a_request) {
    for (uint32_t flags : {2U, 3U, 6U, 0xffffffffU}) {
        sim.local(KX_MSG_ID_SYSMON_HB, {}, flags);
        sim.expect({requested("13"), EMPTY_RESPONSE});
    }
    for (uint32_t flags : {0U, 1U, 4U, 5U, 0xfffffffdU, 0x02000000U}) {
        sim.local(KX_MSG_ID_SYSMON_HB, {}, flags);
        sim.expect({notified("13"), did("sysmon_send_hb(ipc, 60)")});
    }
}

SIM_TEST(local_dispatch, calls_no_notifications_handler_for_a_request) {
    ready_to_talk();
    have_vap(0, "ath0", "0a:1b:2c:3d:4e:50", 10);
    const bytes association = zeros(16) + hex("021122334455 0a1b2c3d4e50 00000000");
    for (uint32_t id : NOTIFICATIONS) {
        sim.local(id, association, REQUEST);
        sim.expect({requested(std::to_string(id)), EMPTY_RESPONSE});
    }
    EXPECT_EQ(std::vector<int>{}, used_clients());
    EXPECT_EQ(1U, g_cfg.num_vaps);
}

SIM_TEST(local_dispatch, answers_any_other_request_too) {
    for (uint32_t id = 0; id < 300; id++) {
        if (id == KX_MSG_ID_LOG_CFG_GET || id == KX_MSG_ID_CLIENT_TBL_DUMP) {
            continue;
        }
        sim.local(id, {}, REQUEST);
        sim.expect({requested(std::to_string(id)), EMPTY_RESPONSE});
    }
}

SIM_TEST(local_dispatch, answers_a_request_for_the_log_configuration) {
    sim.log_cfg = hex("01020304 11121314 21222324 31323334 41424344 51525354");
    sim.local(KX_MSG_ID_LOG_CFG_GET, {}, REQUEST);
    sim.expect({requested("28"), response(sim.log_cfg + zeros(2060 - 24))});
    sim.log_cfg = bytes(2060, 0xbb);
    sim.local(KX_MSG_ID_LOG_CFG_GET, {}, REQUEST);
    sim.expect({requested("28"), response(bytes(2060, 0xbb))});
}

SIM_TEST(local_dispatch, does_not_repeat_an_answer_that_failed) {
    sim.fail_nth("kx_ipc_eloop_resp", 1);
    sim.local(KX_MSG_ID_LOG_CFG_GET, {}, REQUEST);
    sim.expect({requested("28"), failed(EMPTY_RESPONSE)});
}

SIM_TEST(local_dispatch, takes_requests_without_their_bit_for_unknown_notifications) {
    sim.log_cfg = hex("01020304");
    sim.local(KX_MSG_ID_LOG_CFG_GET, {});
    sim.local(KX_MSG_ID_CLIENT_TBL_DUMP, {});
    sim.expect({notified("28"), notified("59")});
    EXPECT_NE(0, access(sim.dump_path().c_str(), F_OK)) << "no dump";
}

// --- dump

SIM_TEST(dump_request, writes_the_client_table) {
    have_client(sim, client_of(STA));
    sim.local(KX_MSG_ID_CLIENT_TBL_DUMP, {}, REQUEST);
    sim.expect({dumped(), EMPTY_RESPONSE});
    EXPECT_TRUE(is_dump_of(content(sim.dump_path()), STA));
}

SIM_TEST(dump_request, writes_an_empty_file_for_an_empty_table) {
    request_dump(sim);
    EXPECT_EQ("", content(sim.dump_path()));
    EXPECT_EQ(0600U, permissions(sim.dump_path()));
}

SIM_TEST(dump_request, rewrites_the_file) {
    have_client(sim, client_of(STA));
    have_client(sim, client_of("02:a1:a2:a3:a4:a5"));
    request_dump(sim);
    const std::string two_clients = content(sim.dump_path());
    client_tbl_drv_mac_delete(1);
    request_dump(sim);
    const std::string one_client = content(sim.dump_path());
    EXPECT_LT(one_client.size(), two_clients.size());
    EXPECT_TRUE(is_dump_of(one_client, STA));
    EXPECT_EQ(std::string::npos, one_client.find("02:a1:a2:a3:a4:a5"));
    client_tbl_drv_mac_delete(0);
    request_dump(sim);
    EXPECT_EQ("", content(sim.dump_path()));
}

SIM_TEST(dump_request, makes_a_file_for_the_owner_alone_whatever_the_umask) {
    const mode_t old = umask(0);
    request_dump(sim);
    umask(old);
    EXPECT_EQ(0600U, permissions(sim.dump_path()));
}

SIM_TEST(dump_request, closes_an_old_file_to_other_users) {
    have_client(sim, client_of(STA));
    write_file(sim.dump_path(), "old");
    chmod(sim.dump_path().c_str(), 0644);
    request_dump(sim);
    EXPECT_TRUE(is_dump_of(content(sim.dump_path()), STA));
    EXPECT_EQ(0600U, permissions(sim.dump_path()));
}

SIM_TEST(dump_request, follows_no_symbolic_link) {
    have_client(sim, client_of(STA));
    const std::string target = sim.dump_path() + ".target";
    write_file(target, "precious");
    ASSERT_EQ(0, symlink(target.c_str(), sim.dump_path().c_str()));
    request_dump(sim);
    EXPECT_EQ("precious", content(target));
    // A dangling link does not create a file either.
    unlink(target.c_str());
    request_dump(sim);
    EXPECT_NE(0, access(target.c_str(), F_OK));
}

SIM_TEST(dump_request, spares_a_file_that_has_another_name) {
    have_client(sim, client_of(STA));
    const std::string target = sim.dump_path() + ".target";
    write_file(target, "precious");
    ASSERT_EQ(0, link(target.c_str(), sim.dump_path().c_str()));
    request_dump(sim);
    EXPECT_EQ("precious", content(target));
    unlink(target.c_str());
}

SIM_TEST(dump_request, does_not_wait_for_a_pipe_in_the_files_place) {
    ASSERT_EQ(0, mkfifo(sim.dump_path().c_str(), 0600));
    ASSERT_EQ(0, chmod(sim.dump_path().c_str(), 0644));
    request_dump(sim);
    const int reader = open(sim.dump_path().c_str(), O_RDONLY | O_NONBLOCK);
    ASSERT_LE(0, reader);
    request_dump(sim);
    char byte;
    EXPECT_EQ(0, read(reader, &byte, 1)) << "nothing was written, and the pipe is closed again";
    EXPECT_EQ(0644U, permissions(sim.dump_path())) << "left as it is";
    close(reader);
}

SIM_TEST(dump_request, spares_another_users_file) {
    have_client(sim, client_of(STA));
    write_file(sim.dump_path(), "precious");
    sim.user++;
    request_dump(sim);
    EXPECT_EQ("precious", content(sim.dump_path()));
}

SIM_TEST(dump_request, is_answered_when_the_file_cannot_be_opened) {
    ASSERT_EQ(0, mkdir(sim.dump_path().c_str(), 0700));
    request_dump(sim);
    rmdir(sim.dump_path().c_str());
}

// --- payloads

SIM_TEST(local_dispatch, takes_a_message_that_fills_the_receive_buffer) {
    sim.local(KX_MSG_ID_SYSMON_HB, bytes(CLIENT_MGR_BUF_SIZE - 12, 0xff));
    sim.expect({notified("13"), did("sysmon_send_hb(ipc, 60)")});
}

}  // namespace sim
