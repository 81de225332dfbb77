#include "daemon_run.h"

#include <algorithm>

#include "guest_commands.h"
#include "kx/apcomm.h"

namespace sim {
namespace {

constexpr std::string_view EVERYDAY_CLIENT = "06:0a:0b:0c:0d:0e";
constexpr uint32_t CTRLR_IP = 0x0a0b0c0d;
constexpr uint32_t REQUEST = 2;

}  // namespace

const std::array<daemon_run::vap, 2> daemon_run::VAPS = {{
    {"ath0", "first", "portal zero", HOME_BSSID, 100, false},
    {"ath1", "second", "portal one", GUEST_BSSID, 200, true},
}};

daemon_run::daemon_run(int log_level) : sim(log_level) {
    for (const vap &v : VAPS) {
        have_interface(sim, v.ifname, v.ssid, v.vlan, v.bssid);
        set_text(sim.vaps.back().record.captive_cfg, 32, v.portal);
        sim.vaps.back().record.vap_attr = v.guests ? 1 : 0;
    }
    sim.stations["ath0"] = station_record(mac_bytes(EVERYDAY_CLIENT));
    ready_to_talk();
    vap_updated("ath0");
}

void daemon_run::begin(const std::optional<failure> &with) {
    rule = with;
    counts.clear();
    if (!rule) {
        return;
    }
    if (rule->onwards) {
        sim.fail_from(rule->call, rule->nth);
    } else {
        sim.fail_nth(rule->call, rule->nth);
    }
}

void daemon_run::end() {
    rule.reset();
    sim.end_rules();
}

bool daemon_run::does(const std::string &call, const steps &effect) {
    const unsigned count = ++counts[call];
    const bool fails = rule && rule->call == call && (count == rule->nth || (rule->onwards && count > rule->nth));
    expects(fails && !effect.empty() ? failed(effect) : effect);
    return !fails;
}

void daemon_run::says(std::string_view line) {
    if (sim.log_level < 1) {
        return;
    }
    const unsigned count = ++counts["log"];
    if (rule && rule->call == "log" && (count == rule->nth || (rule->onwards && count > rule->nth))) {
        return;
    }
    expects(log(1, line));
}

void daemon_run::check() {
    if (sim.log_level > 1) {
        sim.forget();
        wanted.clear();
        return;
    }
    sim.expect({wanted});
    for (const effect &e : wanted) {
        done += e.level <= sim.log_level ? e.what + "\n" : "";
    }
    wanted.clear();
}

int daemon_run::index_of(std::string_view bssid) const {
    for (size_t i = 0; i < num_vaps; i++) {
        if (table[i].loaded != nullptr && table[i].loaded->bssid == bssid) {
            return static_cast<int>(i);
        }
    }
    return -1;
}

daemon_run::client *daemon_run::find(std::string_view mac) {
    const auto known = clients.find(mac);
    return known == clients.end() ? nullptr : &known->second;
}

std::string daemon_run::everyday() {
    done.clear();
    vap_updated("ath1");
    associates(EVERYDAY_CLIENT, HOME_BSSID);
    gets_ip(EVERYDAY_CLIENT, hex("0a010203"), "ath0");
    bulk_requested();
    leaves(EVERYDAY_CLIENT, HOME_BSSID);
    return done;
}

// --- start-up and the daemon's own

void daemon_run::starts() {
    table = {};
    num_vaps = 0;
    clients.clear();
    verdicts.clear();
    alive = false;
    const ending end = sim.main();
    expects(did("ignore SIGPIPE") + did("ignore SIGCHLD"));
    if (!does("KX_LOG_INIT", did("KX_LOG_INIT(CLIENT_MGR, 3, 0)"))) {
        expects(console(0, "client_mgr_main: Error opening log."));
        check();
        EXPECT_FALSE(end.exited);
        EXPECT_EQ(-1, end.status);
        return;
    }
    does("kx_eloop_init", did("kx_eloop_init(null)"));
    const bool endpoint =
        does("kx_ipc_init", did("kx_ipc_init(/kx/ipc/client_mgr, g_cfg.ipc_rx_buf, 16384, client_mgr_recv_msg, 0)"));
    const bool radio = endpoint && does("kx_get_node_radio_mac_addr", did("kx_get_node_radio_mac_addr(24, 0)"));
    if (!radio) {
        says(endpoint ? "Error retrieving the AP mac address" : "Unable to open ipc");
        check();
        EXPECT_TRUE(end.exited);
        EXPECT_EQ(-1, end.status);
        return;
    }
    does("sysmon_send_handshake", did("sysmon_send_handshake(ipc, 60)"));
    timer_armed = does("kx_eloop_register_timeout",
                       did("kx_eloop_register_timeout(60, 0, client_mgr_acl_cache_expire, null, null)"));
    expects(did("kx_eloop_run()"));
    check();
    EXPECT_FALSE(end.exited);
    EXPECT_EQ(0, end.status);
    alive = true;
}

void daemon_run::is_brought_up() {
    sim.local(KX_MSG_ID_SYS_INIT, {});
    does("apcomm_recv_register", did("apcomm_recv_register(client_mgr_apcomm_recv_msg)"));
    does("apcomm_status_register", did("apcomm_status_register(client_mgr_apcomm_ctrl_status)"));
    does("apcomm_register_kx_ipc", did("apcomm_register_kx_ipc(ipc)"));
    sim.local(KX_MSG_ID_SYS_READY, {});
    sim.controller_status(CTRLR_IP, APCOMM_STATUS_UP);
    check();
}

void daemon_run::a_minute_passes() {
    sim.advance(60);
    if (timer_armed) {
        timer_armed = does("kx_eloop_register_timeout",
                           did("kx_eloop_register_timeout(60, 0, client_mgr_acl_cache_expire, null, null)"));
    }
    check();
}

void daemon_run::is_asked_for_a_heartbeat() {
    sim.local(KX_MSG_ID_SYSMON_HB, {});
    does("sysmon_send_hb", did("sysmon_send_hb(ipc, 60)"));
    check();
}

void daemon_run::is_asked_for_the_log_configuration() {
    sim.local(KX_MSG_ID_LOG_CFG_GET, {}, REQUEST);
    does("kx_ipc_eloop_resp", response(zeros(2060)));
    check();
}

void daemon_run::is_asked_for_the_dump() {
    sim.local(KX_MSG_ID_CLIENT_TBL_DUMP, {}, REQUEST);
    if (!does("open") || !does("fstat") || !does("fchmod") || !does("ftruncate") || !does("fdopen")) {
        says("Unable to open /tmp/clientmgr_cli");
    } else {
        // The dump is larger than the stream's buffer and smaller than two of them.
        EXPECT_EQ(18U, clients.size());
        const bool first = does("write");
        const bool last = does("write");
        if (!first || !last) {
            says("Unable to write /tmp/clientmgr_cli");
        }
    }
    does("kx_ipc_eloop_resp", response(zeros(2060)));
    check();
}

// --- VAPs

void daemon_run::vap_updated(std::string_view ifname) {
    sim.local(KX_MSG_ID_VAP_UPDATE, padded(ifname, 12));
    loads_vaps();
    const auto named =
        std::find_if(table.begin(), table.end(), [ifname](const entry &e) { return e.ifname == ifname; });
    if (named != table.end()) {
        if (!reads_bssid(std::string(ifname))) {
            says("Unable to get bssid for vap " + std::string(ifname));
        } else {
            const vap *v = named->loaded;
            const std::string_view bssid = ifname == "ath0" ? HOME_BSSID : GUEST_BSSID;
            const bytes record = v != nullptr ? config_record(bssid, v->ssid, v->vlan) : config_record(bssid, "", 0);
            sends(to_controller(bulk_message(1, record)), "Error sending VAP config");
        }
    }
    check();
}

// An entry whose BSSID cannot be read already has its new name. The next VAP overwrites it.
void daemon_run::loads_vaps() {
    if (!does("apcfg_vap_get_ifname_list")) {
        says("Error getting the VAP list");
        return;
    }
    size_t n = 0;
    for (const vap &v : VAPS) {
        if (!does("apcfg_vap_get_by_ifname")) {
            continue;
        }
        table[n].ifname = v.ifname;
        if (!reads_bssid(v.ifname)) {
            continue;
        }
        table[n].loaded = &v;
        n++;
    }
    num_vaps = n;
}

void daemon_run::bulk_requested() {
    sim.controller(one_record(CLIENT_MGR_REQ_BULK_INFO, {}));
    reports_vaps();
    reports_stations();
    check();
}

void daemon_run::reports_vaps() {
    if (!does("apcfg_vap_get_ifname_list")) {
        says("Error getting the VAP ifname list");
        return;
    }
    bytes records;
    uint8_t count = 0;
    for (const vap &v : VAPS) {
        if (!does("apcfg_vap_get_by_ifname") || !reads_bssid(v.ifname)) {
            continue;
        }
        records = records + config_record(v.bssid, v.ssid, v.vlan);
        count++;
    }
    sends(to_controller(bulk_message(count, records)), "Error sending VAP config");
}

void daemon_run::reports_stations() {
    if (!does("apcfg_vap_get_ifname_list")) {
        says("Error getting the VAP ifname list");
        return;
    }
    bytes records;
    uint8_t count = 0;
    for (const vap &v : VAPS) {
        if (!does("apcfg_vap_get_by_ifname") || !reads_bssid(v.ifname)) {
            continue;
        }
        bytes stations;
        const steps request = did("ioctl(0x89f6, " + v.ifname + ", 16384, 0)");
        if (asks_driver(request, "Error obtaining the client list for " + v.ifname) && v.ifname == "ath0") {
            const client *known = find(EVERYDAY_CLIENT);
            stations = zeros(6) + mac_bytes(EVERYDAY_CLIENT) + (known != nullptr ? known->ip : zeros(4));
        }
        records = records + list_record(v.bssid, v.ssid, v.vlan, stations);
        count++;
    }
    num_vaps = count;
    sends(to_controller(bulk_message(count, records)), "Error sending bulk info");
}

// --- what several events do

void daemon_run::sends(const steps &message, std::string_view error) {
    if (!does("apcomm_send_msg", message)) {
        says("APComm Unable to send data");
        says(error);
    }
}

void daemon_run::sends_update(uint8_t type, std::string_view mac, std::string_view bssid, const bytes &ip) {
    sends(client_update(type, mac, bssid, ip), "Error sending Client Update");
}

bool daemon_run::asks_driver(const steps &request, std::string_view error, const steps &after) {
    const bool opened = does("socket", did("socket"));
    const bool answered = opened && does("ioctl", request);
    if (!answered && !error.empty()) {
        says(error);
    }
    expects(after);
    if (opened) {
        expects(did("close"));
    }
    return answered;
}

bool daemon_run::reads_bssid(const std::string &ifname) {
    return asks_driver(did("ioctl(0x8927, " + ifname + ")"), "Error obtaining the BSSID for " + ifname);
}

void daemon_run::disassociates(const entry &on, std::string_view mac, int reason) {
    asks_driver(driver_request(0x8be6, on.ifname, hex("02 00") + host16(1) + mac_bytes(mac) + zeros(32)),
                "client_mgr_sta_disassoc: Failed to disassoc STA",
                syslog(LOG_USER | LOG_CRIT, "<clmgr> Send Disassociation " + std::string(on.loaded->bssid) + " -> " +
                                                std::string(mac) + " [reason " + std::to_string(reason) + "]"));
}

void daemon_run::tells_portal(std::string_view mac, std::string_view text, uint32_t id) {
    const client *known = find(mac);
    if (known == nullptr) {
        says("Captive cl failed " + std::string(mac));
    }
    const bool must_pass = known != nullptr && (known->flag & CLIENT_FLAG_GUEST) != 0;
    const bytes msg =
        big32(id) + hex("0000002c 00000001") + mac_bytes(mac) + padded(text, 34) + big32(must_pass ? 0 : 1);
    if (!does("kx_ipc_send", to_captive_portal(msg))) {
        says(" Send Assoc to Captive application failed!");
    }
}

void daemon_run::tells_hostapd(std::string_view mac, std::string_view bssid, std::string_view previous,
                               const bytes &pmk) {
    if (!does("hostapd_config_open_connection", did("hostapd_config_open_connection(hapdcfg, 0)"))) {
        says(" Connection to the Hostapd failed ");
        return;
    }
    const bytes command =
        hex("00000009 00000081") + mac_bytes(bssid) + mac_bytes(previous) + mac_bytes(mac) + pmk + zeros(1038);
    does("hostapd_config_send_command", did("hostapd_config_send_command(" + show(command) + ")"));
    does("hostapd_config_close_connection", did("hostapd_config_close_connection"));
}

void daemon_run::adds_to_bridge(std::string_view mac, std::string_view ifname, std::string_view device, int vlan,
                                const bytes &ip, int tunnel) {
    does("kxbr_api_add_client", bridge_add(mac, ifname, device, static_cast<uint32_t>(vlan), dotted(ip), tunnel));
}

void daemon_run::removes_from_bridge(std::string_view mac) { does("kxbr_api_del_client", bridge_del(mac)); }

void daemon_run::runs(std::string_view announcement, const std::string &command) {
    if (!announcement.empty()) {
        says(std::string(announcement) + " (" + command + ")");
    }
    does("system", ran(command));
}

}  // namespace sim
