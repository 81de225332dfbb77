// What clients and the controller bring about.
#include "daemon_run.h"

namespace sim {
namespace {

constexpr unsigned LOCAL = 0x01;
constexpr unsigned FOREIGN = 0x02;
constexpr unsigned TUNNEL = 0x08;
constexpr unsigned PMK = 0x10;
constexpr unsigned GUEST = 0x20;
constexpr unsigned PENDING = 2;

const bytes QUESTION_DATA = hex("30313233343536373839");

std::string dotted(const bytes &ip) {
    return std::to_string(ip[0]) + "." + std::to_string(ip[1]) + "." + std::to_string(ip[2]) + "." +
           std::to_string(ip[3]);
}

std::string text(std::string_view view) { return std::string(view); }

}  // namespace

// --- association and disassociation

void daemon_run::associates(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, zeros(16) + mac_bytes(mac) + mac_bytes(bssid) + zeros(4));
    registers_client(mac, bssid);
    check();
}

void daemon_run::to_be_associated(std::string_view mac, std::string_view bssid) {
    sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC, client_list({{.mac = mac, .bssid = bssid}})));
    registers_client(mac, bssid);
    check();
}

void daemon_run::registers_client(std::string_view mac, std::string_view bssid) {
    const std::string line = "<clmgr> Proc Association-Req " + text(bssid) + " -- " + text(mac);
    expects(syslog(LOG_USER | LOG_INFO, line));
    const int idx = index_of(bssid);
    if (idx < 0) {
        expects(syslog(LOG_USER | LOG_CRIT, line + " [Invalid BSS]"));
        says("Invalid ap bssid in assoc msg");
        return;
    }
    const vap &v = *table[static_cast<size_t>(idx)].loaded;
    const client *known = find(mac);
    const bytes ip = known != nullptr && known->vap_idx == idx ? known->ip : zeros(4);
    sends_update(2, mac, bssid, ip);
    if (v.guests) {
        sends_update(25, mac, bssid, ip);
    }
    clients[mac] = {idx, bssid, bssid, v.vlan, ip, v.guests ? LOCAL | GUEST : LOCAL, zeros(32)};
    adds_to_bridge(mac, v.ifname, "eth0", v.vlan, ip, 0);
    tells_portal(mac, v.portal, 166);
}

void daemon_run::leaves(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, zeros(16) + mac_bytes(mac) + mac_bytes(bssid) + zeros(4));
    expects(syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Disassociation " + text(bssid) + " -- " + text(mac)));
    const client *known = find(mac);
    if (known != nullptr && (known->flag & (FOREIGN | TUNNEL)) == 0) {
        const int idx = index_of(bssid);
        if (idx < 0) {
            says("Invalid ap bssid in disassoc msg");
        } else if (known->vap_idx != idx) {
            says("Disassoc from wrong vap, Don't remove");
        } else {
            entry &on = table[static_cast<size_t>(idx)];
            sends_update(3, mac, bssid, zeros(4));
            if ((known->flag & GUEST) != 0 && on.guest_count != 0) {
                removes_guest_entries(on, known->ip, "Client disassociated, removing arp and route");
            }
            clients.erase(mac);
            tells_portal(mac, on.loaded->portal, 168);
            removes_from_bridge(mac);
            verdicts.erase(mac);
        }
    }
    check();
}

// --- roaming

void daemon_run::roams_in(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION,
              zeros(16) + mac_bytes(mac) + mac_bytes(bssid) + mac_bytes(ELSEWHERE) + zeros(4));
    if (client *known = find(mac)) {
        takes_up_roam(mac, *known, bssid);
    } else {
        fetches(mac, bssid, ELSEWHERE, 13);
    }
    check();
}

void daemon_run::sends_foreign_update(uint8_t type, std::string_view mac, const client &c, std::string_view bssid) {
    sends(foreign_update(type, mac, bssid, ELSEWHERE, c.ip), "Error sending Foreign Client Update");
}

void daemon_run::takes_up_roam(std::string_view mac, client &c, std::string_view bssid) {
    const std::string line = "<clmgr> Proc Reassociation-Req " + text(bssid) + " -- " + text(mac);
    expects(syslog(LOG_USER | LOG_INFO, line + " [Last BSS " + text(ELSEWHERE) + "]"));
    const int idx = index_of(bssid);
    if (idx < 0) {
        expects(syslog(LOG_USER | LOG_CRIT, line + " [Invalid BSS]"));
        says("Invalid ap bssid in foreign assoc msg");
        return;
    }
    const entry &on = table[static_cast<size_t>(idx)];
    const int vlan = on.loaded->vlan;
    if ((c.flag & GUEST) != 0 && vlan != c.home_vlan) {
        disassociates(on, mac, 1);
        return;
    }
    sends_foreign_update(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, mac, c, bssid);
    c.bssid = bssid;
    c.vap_idx = idx;
    if (vlan != c.home_vlan) {
        c.flag |= TUNNEL;
        adds_to_bridge(mac, on.ifname, "tun0", c.home_vlan, zeros(4), 1);
    } else {
        if ((c.flag & GUEST) != 0) {
            sends_foreign_update(CLIENT_MGR_CLIENT_GUEST_ASSOC, mac, c, bssid);
        }
        c.flag = LOCAL | (c.flag & (PMK | GUEST));
        adds_to_bridge(mac, on.ifname, "eth0", c.home_vlan, c.ip, 0);
    }
    tells_portal(mac, on.loaded->portal, 167);
}

void daemon_run::fetches(std::string_view mac, std::string_view bssid, std::string_view last_bssid, uint8_t type) {
    const int idx = index_of(bssid);
    if (idx < 0) {
        says("Invalid ap bssid in assoc msg");
        return;
    }
    if (find(mac) == nullptr) {
        clients[mac] = {idx,      bssid,   last_bssid, table[static_cast<size_t>(idx)].loaded->vlan,
                        zeros(4), FOREIGN, zeros(32)};
    }
    sends(fetch_request(type, mac, bssid), "Error sending Foreign Client Update");
}

void daemon_run::fetched(const listed_client &answer) {
    sim.controller(one_record(CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS, client_list({answer})));
    if (find(answer.mac) != nullptr) {
        if (index_of(answer.bssid) < 0) {
            says("Invalid ap bssid in fetch client info msg");
        } else {
            client &c = clients[answer.mac];
            c = {0,         answer.bssid,  c.last_bssid, static_cast<int>(answer.home_vlan),
                 answer.ip, FOREIGN | PMK, answer.pmk};
            takes_up_roam(answer.mac, c, answer.bssid);
        }
    }
    check();
}

void daemon_run::foreign_leaves(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION,
              zeros(16) + mac_bytes(mac) + mac_bytes(bssid) + mac_bytes(ELSEWHERE) + zeros(4));
    const client *known = find(mac);
    const unsigned flag = known != nullptr ? known->flag & (LOCAL | FOREIGN | TUNNEL) : 0;
    const bool roamed_on = flag == FOREIGN || flag == (LOCAL | TUNNEL);
    if (known != nullptr && !roamed_on) {
        const int idx = index_of(bssid);
        if (idx < 0) {
            says("Invalid ap bssid in frn disassoc msg");
        } else if (known->vap_idx != idx) {
            says("Frn Disassoc from wrong vap, Don't remove");
        } else {
            sends(foreign_update(CLIENT_MGR_FOREIGN_CLIENT_DISASSOC, mac, bssid, ELSEWHERE, zeros(4)),
                  "Error sending Foreign Client Update");
            clients.erase(mac);
            tells_portal(mac, table[static_cast<size_t>(idx)].loaded->portal, 169);
            removes_from_bridge(mac);
        }
    }
    check();
}

// --- addresses and guests

void daemon_run::gets_ip(std::string_view mac, const bytes &ip, std::string_view ifname) {
    sim.local(KX_MSG_ID_CLIENT_IP, mac_bytes(mac) + zeros(2) + ip + bytes(ifname.begin(), ifname.end()) + zeros(1));
    client *known = find(mac);
    if (known == nullptr || known->ip == ip) {
        return check();
    }
    if ((known->flag & GUEST) != 0) {
        const int idx = index_of(known->bssid);
        if (idx < 0) {
            says("Get VAP Index failed, captive portal set failed");
        } else {
            entry &on = table[static_cast<size_t>(idx)];
            if (known->ip != zeros(4)) {
                removes_guest_entries(on, known->ip, "");
            }
            if (on.guest_count == 0) {
                runs("Add IP to intf", "ifconfig " + text(ifname) + " " + dotted({ip[0], ip[1], ip[2], 0}));
            }
            says("Add arp and route entries for unauth client");
            on.guest_count++;
            runs("Executing cmd", "arp -s " + dotted(ip) + " " + text(mac) + " dev " + text(ifname));
            runs("Executing cmd", "route add " + dotted(ip) + "/32 dev " + text(ifname));
        }
    }
    known->ip = ip;
    sends_update(4, mac, known->bssid, ip);
    expects(syslog(LOG_USER | LOG_INFO,
                   "<clmgr> Proc Event " + text(known->bssid) + " -- " + text(mac) + " [Set IP=" + dotted(ip) + "]"));
    check();
}

void daemon_run::removes_guest_entries(entry &on, const bytes &ip, std::string_view reason) {
    on.guest_count--;
    if (!reason.empty()) {
        says(reason);
    }
    runs("Executing command", "arp -d " + dotted(ip));
    runs("Executing command", "route del " + dotted(ip));
    if (on.guest_count == 0) {
        says("removing ip from intf");
        runs("", "ifconfig " + on.ifname + " 0.0.0.0");
    }
}

void daemon_run::guest_authorised(std::string_view mac) {
    sim.controller(one_record(CLIENT_MGR_CLIENT_GUEST_AUTH, mac_bytes(mac)));
    client *known = find(mac);
    const int idx = known != nullptr ? index_of(known->bssid) : -1;
    if (known == nullptr) {
        says("Invalid client " + text(mac));
    } else if (idx < 0) {
        says("Invalid ap bssid in assoc msg");
    } else {
        entry &on = table[static_cast<size_t>(idx)];
        known->flag &= ~GUEST;
        if (on.guest_count != 0) {
            removes_guest_entries(on, known->ip, "Client authenticated, removing arp and route");
        }
        tells_portal(mac, on.loaded->portal, 67);
    }
    check();
}

// --- what the controller hands over and takes back

void daemon_run::handed_over(const listed_client &c) {
    sim.controller(one_record(ROAMING_MGR_CLIENT_BULK_INFO, client_list({c})));
    if (const client *known = find(c.mac)) {
        for (const entry &e : table) {
            if (e.loaded != nullptr && e.loaded->bssid == known->bssid) {
                disassociates(e, c.mac, 0);
                tells_portal(c.mac, e.loaded->portal, 168);
                removes_from_bridge(c.mac);
                break;
            }
        }
    }
    const unsigned guest = (c.flags & 2) != 0 ? GUEST : 0;
    clients[c.mac] = {0, NOWHERE, NOWHERE, static_cast<int>(c.home_vlan), c.ip, FOREIGN | guest, zeros(32)};
    check();
}

void daemon_run::forgotten(std::string_view mac) {
    sim.controller(one_record(CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, client_list({{.mac = mac}})));
    if (const client *known = find(mac)) {
        for (const entry &e : table) {
            if (e.loaded != nullptr && e.loaded->bssid == known->bssid) {
                disassociates(e, mac, 2);
                tells_portal(mac, e.loaded->portal, 168);
            }
        }
        clients.erase(mac);
        removes_from_bridge(mac);
    }
    check();
}

void daemon_run::moved_away(std::string_view mac) {
    sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY, hex("01") + mac_bytes(mac) + zeros(13)));
    if (const client *known = find(mac)) {
        for (const entry &e : table) {
            if (e.loaded != nullptr && e.loaded->bssid == known->bssid) {
                disassociates(e, mac, 2);
            }
        }
        clients.erase(mac);
        tells_portal(mac, "", 168);
        removes_from_bridge(mac);
    } else {
        says("Client not present in AP");
    }
    check();
}

void daemon_run::moved(std::string_view mac, std::string_view bssid) {
    sim.controller(one_record(CLIENT_MGR_CLIENT_MOVE_NOTIFY,
                              hex("02") + mac_bytes(mac) + zeros(6) + mac_bytes(bssid) + hex("2c")));
    if (client *known = find(mac)) {
        adds_to_bridge(mac, "tun0", "eth0", known->home_vlan, zeros(4), 0);
        known->bssid = bssid;
        known->flag |= TUNNEL;
    } else {
        says("Client not present in AP");
    }
    check();
}

// --- keys

void daemon_run::has_key(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO, big32(2) + mac_bytes(bssid) + zeros(6) + mac_bytes(mac) + pmk_bytes());
    const bytes body = mac_bytes(mac) + mac_bytes(bssid) + zeros(6) + pmk_bytes();
    if (!does("apcomm_send_msg", to_controller(bulk_message(1, ctrlr_record(CLIENT_MGR_PMK_ADD, body))))) {
        says("APComm Unable to send data");
        says("Error sending Foreign Client Update");
    } else if (const int idx = index_of(bssid); idx < 0) {
        says("Invalid ap bssid in assoc msg");
    } else {
        if (find(mac) == nullptr) {
            clients[mac] = {idx,      bssid, bssid,    table[static_cast<size_t>(idx)].loaded->vlan,
                            zeros(4), LOCAL, zeros(32)};
        }
        clients[mac].flag |= PMK;
        clients[mac].pmk = pmk_bytes();
    }
    check();
}

void daemon_run::needs_key(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO,
              big32(1) + mac_bytes(bssid) + mac_bytes(ELSEWHERE) + mac_bytes(mac) + zeros(32));
    const client *known = find(mac);
    if (known != nullptr && (known->flag & PMK) != 0) {
        tells_hostapd(mac, bssid, ELSEWHERE, known->pmk);
    } else {
        fetches(mac, bssid, bssid, 12);
    }
    check();
}

void daemon_run::key_fetched(const listed_client &answer) {
    sim.controller(one_record(CLIENT_MGR_PMK_FETCH_SUCCESS, client_list({answer})));
    if (client *known = find(answer.mac)) {
        known->flag |= PMK;
        known->pmk = answer.pmk;
        tells_hostapd(answer.mac, answer.bssid, NOWHERE, answer.pmk);
    }
    check();
}

// --- MAC ACL

void daemon_run::may_it_associate(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, mac_bytes(mac) + mac_bytes(bssid) + big32(10) + QUESTION_DATA);
    const int idx = index_of(bssid);
    const client *known = find(mac);
    const auto cached = verdicts.find(mac);
    if (idx < 0) {
        says("Invalid ap bssid in acl auth msg");
    } else if ((known != nullptr && known->vap_idx == idx) || (cached != verdicts.end() && cached->second != PENDING)) {
        if (!pushes_verdict(bssid, known != nullptr ? 1 : cached->second)) {
            says("sending acl auth response to drv failed for" + text(mac) + " ");
        }
    } else if (cached == verdicts.end()) {
        bytes data = QUESTION_DATA;
        data.resize(128);
        const bytes body = hex("ffffffff") + mac_bytes(mac) + mac_bytes(bssid) + hex("a0a1a2a3a4a5") +
                           big32(static_cast<uint32_t>(idx)) + zeros(12) + big32(10) + data;
        sends(to_controller(bulk_message(1, ctrlr_record(CLIENT_MGR_CLIENT_ACL_AUTH_REQ, body))),
              "Error sending mac acl auth to ctrlr ");
        verdicts[mac] = PENDING;
    }
    check();
}

void daemon_run::verdict_on(std::string_view mac, std::string_view bssid, uint32_t verdict) {
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP, big32(verdict) + mac_bytes(mac) + mac_bytes(bssid) +
                                                                   zeros(22) + big32(10) + QUESTION_DATA));
    if (!pushes_verdict(bssid, verdict)) {
        says("sending acl auth response to drv failed for " + text(mac) + " ");
    }
    if (const auto cached = verdicts.find(mac); cached != verdicts.end()) {
        if (cached->second != PENDING) {
            says("acl auth resp from controller for client  " + text(mac) + " but client cached entry state is (" +
                 std::to_string(cached->second) + ")");
        }
        cached->second = verdict;
    }
    check();
}

bool daemon_run::pushes_verdict(std::string_view bssid, uint32_t verdict) {
    const int idx = index_of(bssid);
    if (idx < 0) {
        says("Invalid ap bssid in acl auth resp msg");
        return false;
    }
    bytes data = QUESTION_DATA;
    data.resize(128);
    return asks_driver(
        driver_request(0x89fc, table[static_cast<size_t>(idx)].ifname, host32(verdict) + host32(10) + data), "");
}

}  // namespace sim
