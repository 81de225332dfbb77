#include "steps.h"

#include <algorithm>
#include <cstring>

#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "messages.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

constexpr uint32_t CONTROLLER_IP = 0x0a0b0c0d;
constexpr uint32_t VLAN[VAPS] = {100, 200};
constexpr int VERDICT_LIMITS[] = {11, ACL_CACHE_VALID_SECS};  // seconds of age

const bytes ELSEWHERE = hex("d0d1d2d3d4d5");
const bytes NO_BSSID = zeros(6);

std::vector<step> steps;

std::string station_name(int station) { return std::string(1, static_cast<char>('A' + station)); }
std::string vap_name(int vap) { return "VAP " + std::to_string(vap); }

bytes ip(uint8_t host) { return hex("0a0000") + bytes{host}; }
bytes pmk(int station) { return bytes(32, static_cast<uint8_t>(0x40 + station)); }

bytes entry(int station, const bytes &home, const bytes &bssid, uint32_t vlan, uint32_t flags) {
    return client_entry(station_mac(station), home, bssid, vlan, ip(static_cast<uint8_t>(30 + station)), pmk(station),
                        flags);
}

bytes one_entry(const bytes &entry) { return big32(1) + entry; }

void add_local(int station, int vap, uint32_t id, const std::string &what, const bytes &data, const bytes &told = {}) {
    steps.push_back({.kind = step::LOCAL,
                     .name = station_name(station) + " " + what,
                     .id = id,
                     .station = station,
                     .vap = vap,
                     .data = data,
                     .ip = told});
}

void add_record(int station, int vap, uint8_t type, const std::string &what, const bytes &body, bool guest = false) {
    const std::string who = station < 0 ? "the controller " : "the controller, of " + station_name(station) + ": ";
    steps.push_back({.kind = step::CONTROLLER,
                     .name = who + what,
                     .id = type,
                     .station = station,
                     .vap = vap,
                     .data = one_record(type, body),
                     .guest = guest});
}

void add_radio_steps(int s, int v) {
    const bytes mac = station_mac(s);
    const bytes bssid = vap_bssid(v);
    const bytes on_vap = association_payload(mac, bssid);
    const std::string there = vap_name(v);
    add_local(s, v, KX_MSG_ID_CLIENT_ASSOCIATION, "associates to " + there, on_vap);
    add_local(s, v, KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, "roams to " + there,
              foreign_association_payload(mac, bssid, ELSEWHERE));
    add_local(s, v, KX_MSG_ID_CLIENT_DISASSOCIATION, "leaves " + there, on_vap);
    add_local(s, v, KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION, "leaves " + there + " as a foreign client",
              foreign_association_payload(mac, bssid, NO_BSSID));
    add_local(s, v, KX_MSG_ID_CLIENT_MGR_PMK_INFO, "gets a PMK on " + there,
              pmk_payload(HOSTAPD_PMK_ADD, bssid, NO_BSSID, mac, pmk(s)));
    add_local(s, v, KX_MSG_ID_CLIENT_MGR_PMK_INFO, "needs its PMK on " + there,
              pmk_payload(HOSTAPD_PMK_FETCH, bssid, ELSEWHERE, mac, zeros(32)));
    add_local(s, v, KX_MSG_ID_MAC_ACL_AUTH, "asks to be admitted to " + there, acl_payload(mac, bssid, hex("dada")));
}

void add_answers(int s, int v) {
    const bytes bssid = vap_bssid(v);
    const std::string there = vap_name(v);
    for (const uint32_t home_vlan : VLAN) {
        const std::string roams = "its home is VLAN " + std::to_string(home_vlan) + ", it roams to ";
        add_record(s, v, CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, roams + there,
                   one_entry(entry(s, ELSEWHERE, bssid, home_vlan, CLIENT_ENTRY_PMK)));
    }
    add_record(s, v, CLIENT_MGR_PMK_FETCH_SUCCESS, "its PMK on " + there,
               one_entry(entry(s, ELSEWHERE, bssid, VLAN[v], CLIENT_ENTRY_PMK)));
    add_record(s, v, CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, "treat it as associated to " + there,
               one_entry(entry(s, ELSEWHERE, bssid, VLAN[v], 0)));
    for (const uint32_t verdict : {0u, 1u}) {
        const bytes body = acl_verdict_body(verdict, station_mac(s), bssid, hex("dada"));
        add_record(s, v, CLIENT_MGR_CLIENT_ACL_AUTH_RESP, (verdict != 0 ? "admitted to " : "denied on ") + there, body);
    }
}

void add_orders(int s) {
    const bytes mac = station_mac(s);
    add_record(s, -1, CLIENT_MGR_CLIENT_MOVE_NOTIFY, "it moved away", bytes{1} + mac + ELSEWHERE);
    for (const uint32_t vlan : VLAN) {
        add_record(s, -1, CLIENT_MGR_CLIENT_MOVE_NOTIFY, "it moved to VLAN " + std::to_string(vlan),
                   bytes{2} + mac + NO_BSSID + ELSEWHERE + bytes{static_cast<uint8_t>(vlan)});
    }
    add_record(s, -1, ROAMING_MGR_CLIENT_BULK_INFO, "it lives elsewhere",
               one_entry(entry(s, ELSEWHERE, NO_BSSID, VLAN[0], 0)));
    add_record(s, -1, ROAMING_MGR_CLIENT_BULK_INFO, "it is a guest elsewhere",
               one_entry(entry(s, ELSEWHERE, NO_BSSID, VLAN[1], CLIENT_ENTRY_PMK | CLIENT_ENTRY_GUEST)), true);
    add_record(s, -1, CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, "forget it", one_entry(entry(s, ELSEWHERE, NO_BSSID, 0, 0)));
    add_record(s, -1, CLIENT_MGR_CLIENT_GUEST_AUTH, "it passed the portal", mac);
}

void add_station(int s) {
    const bytes mac = station_mac(s);
    for (int v = 0; v < VAPS; v++) {
        add_radio_steps(s, v);
        add_answers(s, v);
    }
    add_local(s, -1, KX_MSG_ID_CLIENT_ASSOCIATION, "associates to an unknown BSSID",
              association_payload(mac, ELSEWHERE));
    // Both stations use the same two addresses, so one may take the other's.
    for (const uint8_t host : {uint8_t{5}, uint8_t{6}}) {
        const bytes told = ip(host);
        add_local(s, -1, KX_MSG_ID_CLIENT_IP, "has the address 10.0.0." + std::to_string(host),
                  client_ip_payload(mac, told, "ath1"), told);
    }
    add_orders(s);
}

void add_the_rest() {
    const bytes both = big32(2) + entry(0, ELSEWHERE, NO_BSSID, VLAN[0], 0) + entry(1, ELSEWHERE, NO_BSSID, VLAN[0], 0);
    add_record(-1, -1, ROAMING_MGR_CLIENT_BULK_INFO, "names both as living elsewhere", both);
    add_record(-1, -1, CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, "forgets both", both);
    add_record(-1, -1, CLIENT_MGR_REQ_BULK_INFO, "asks for everything", {});
    steps.push_back({.kind = step::LOCAL, .name = "system ready", .id = KX_MSG_ID_SYS_READY});
    steps.push_back({.kind = step::LOCAL, .name = "heartbeat", .id = KX_MSG_ID_SYSMON_HB});
    steps.push_back(
        {.kind = step::LOCAL, .name = "VAP 1 changed", .id = KX_MSG_ID_VAP_UPDATE, .data = padded("ath1", 12)});
    steps.push_back({.kind = step::LINK_UP, .name = "link up"});
    steps.push_back({.kind = step::LINK_DOWN, .name = "link down"});
    steps.push_back({.kind = step::CONFIGURED, .name = "VAP 0 alone is configured", .vap = 1});
    steps.push_back({.kind = step::CONFIGURED, .name = "both VAPs are configured", .vap = 2});
    steps.push_back({.kind = step::SWEEP, .name = "the ACL cache is swept"});
    steps.push_back({.kind = step::BEFORE_LIMIT, .name = "time passes up to a second before the next limit"});
    steps.push_back({.kind = step::AT_LIMIT, .name = "time passes up to the next limit"});
}

// Seconds until the first verdict reaches its next limit, 0 if none will.
int secs_to_limit() {
    int next = 0;
    const auto now = static_cast<int32_t>(platform::current->wall_secs());
    for (const acl_cache_entry &e : client_acl_cache) {
        if (e.entry_flag == 0) {
            continue;
        }
        for (const int limit : VERDICT_LIMITS) {
            const int left = limit - (now - e.timestamp);
            if (left > 0 && (next == 0 || left < next)) {
                next = left;
            }
        }
    }
    return next;
}

}  // namespace

bytes station_mac(int station) { return station == 0 ? hex("021324354657") : hex("0e1d2c3b4a59"); }
bytes vap_bssid(int vap) { return vap == 0 ? hex("b0b1b2b3b4b5") : hex("c0c1c2c3c4c5"); }
bytes ap_mac() { return hex("a0a1a2a3a4a5"); }

const std::vector<step> &all_steps() {
    if (steps.empty()) {
        for (int s = 0; s < STATIONS; s++) {
            add_station(s);
        }
        add_the_rest();
    }
    return steps;
}

bool is_possible(const step &s) {
    if (s.kind == step::BEFORE_LIMIT) {
        return secs_to_limit() > 1;
    }
    return s.kind != step::AT_LIMIT || secs_to_limit() > 0;
}

void have_configured(platform &sim, int count) {
    sim.vaps.clear();
    for (int v = 0; v < count; v++) {
        listed_vap listed = {.ifname = "ath" + std::to_string(v)};
        memcpy(listed.record.ifname, padded(listed.ifname, sizeof listed.record.ifname).data(),
               sizeof listed.record.ifname);
        memcpy(listed.record.captive_cfg, padded("portal", sizeof listed.record.captive_cfg).data(),
               sizeof listed.record.captive_cfg);
        listed.record.vap_attr = v == 1 ? 1 : 0;
        listed.record.vlan = static_cast<uint16_t>(VLAN[v]);
        listed.record.status = 1;
        sim.vaps.push_back(listed);
        sim.hwaddr[listed.ifname] = vap_bssid(v);
        sim.stations[listed.ifname] = station_record(station_mac(0));
    }
}

void take(const step &s, platform &sim) {
    switch (s.kind) {
        case step::LOCAL:
            sim.local(s.id, s.data);
            return;
        case step::CONTROLLER:
            sim.controller(s.data);
            return;
        case step::LINK_UP:
            sim.controller_status(CONTROLLER_IP, 1);
            return;
        case step::LINK_DOWN:
            sim.controller_status(0, 2);
            return;
        case step::CONFIGURED:
            have_configured(sim, s.vap);
            sim.local(KX_MSG_ID_VAP_INIT, {});
            return;
        case step::SWEEP:
            client_mgr_acl_cache_expire(nullptr, nullptr);
            return;
        case step::BEFORE_LIMIT:
            sim.set_clock(sim.wall_secs() + secs_to_limit() - 1);
            return;
        case step::AT_LIMIT:
            sim.set_clock(sim.wall_secs() + secs_to_limit());
            return;
    }
}

}  // namespace sim
