// Each platform call of a scenario is failed once, then permanently from that call on. daemon_run models the
// consequences. Afterwards the daemon handles everyday events as if nothing had happened.
#include <set>
#include <string>

#include "scenarios.h"

namespace sim {
namespace {

const std::set<std::string> EVERY_CALL = {
    "KX_LOG_INIT",
    "apcfg_vap_get_by_ifname",
    "apcfg_vap_get_ifname_list",
    "apcomm_recv_register",
    "apcomm_register_kx_ipc",
    "apcomm_send_msg",
    "apcomm_status_register",
    "fchmod",
    "fdopen",
    "fstat",
    "ftruncate",
    "hostapd_config_close_connection",
    "hostapd_config_open_connection",
    "hostapd_config_send_command",
    "ioctl",
    "kx_eloop_init",
    "kx_eloop_register_timeout",
    "kx_get_node_radio_mac_addr",
    "kx_ipc_eloop_resp",
    "kx_ipc_init",
    "kx_ipc_send",
    "kxbr_api_add_client",
    "kxbr_api_del_client",
    "log",
    "open",
    "socket",
    "sysmon_send_handshake",
    "sysmon_send_hb",
    "system",
    "write",
};

using call_counts = std::map<std::string, unsigned>;

// The number of calls of each kind that a scenario makes when none fails.
call_counts calls_of(const scenario &s, int log_level) {
    daemon_run run(log_level);
    s.before(run);
    run.begin(std::nullopt);
    call_counts seen;
    for (const std::string &call : EVERY_CALL) {
        run.sim.on(call, [&seen, call] { seen[call]++; });
    }
    s.events(run);
    EXPECT_EQ(seen, run.counts);
    for (const std::string &call : EVERY_CALL) {
        run.sim.on(call, [] {});
    }
    run.end();
    run.sim.check_end();
    return seen;
}

std::string undisturbed_everyday(int log_level) {
    daemon_run run(log_level);
    return run.everyday();
}

void survives(const scenario &s, int log_level, const failure &rule, const std::string &everyday) {
    SCOPED_TRACE("call " + std::to_string(rule.nth) + (rule.onwards ? " and every later one" : "") + " of " +
                 rule.call + " fails");
    daemon_run run(log_level);
    s.before(run);
    run.begin(rule);
    s.events(run);
    if (run.alive) {
        SCOPED_TRACE("everyday, under the rule");
        run.everyday();
    }
    run.end();
    SCOPED_TRACE("everyday, afterwards");
    if (!run.alive) {
        run.starts();
        run.is_brought_up();
    }
    EXPECT_EQ(everyday, run.everyday());
    run.sim.check_end();
}

class failure_sweep : public testing::TestWithParam<scenario> {};

}  // namespace

TEST_P(failure_sweep, costs_each_call_its_own_lines_and_nothing_else) {
    for (int log_level : {1, 0}) {
        const std::string everyday = undisturbed_everyday(log_level);
        for (const auto &[call, count] : calls_of(GetParam(), log_level)) {
            for (unsigned nth = 1; nth <= count && !HasFailure(); nth++) {
                survives(GetParam(), log_level, {call, nth, false}, everyday);
                survives(GetParam(), log_level, {call, nth, true}, everyday);
            }
        }
    }
}

INSTANTIATE_TEST_SUITE_P(scenarios, failure_sweep, testing::ValuesIn(SCENARIOS),
                         [](const auto &instance) { return std::string(instance.param.name); });

TEST(failure_sweep_scenarios, make_every_call) {
    std::set<std::string> made;
    for (const scenario &s : SCENARIOS) {
        for (const auto &[call, count] : calls_of(s, 1)) {
            made.insert(call);
        }
    }
    EXPECT_EQ(EVERY_CALL, made);
}

}  // namespace sim
