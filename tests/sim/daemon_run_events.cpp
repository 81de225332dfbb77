// Association, roaming, addresses and guests.
#include "daemon_run.h"
#include "guest_commands.h"

namespace sim {
namespace {

std::string text(std::string_view view) { return std::string(view); }

}  // namespace

// --- association and disassociation

void daemon_run::associates(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_CLIENT_ASSOCIATION, association_payload(mac_bytes(mac), mac_bytes(bssid)));
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
    sends_update(CLIENT_MGR_CLIENT_ASSOC, mac, bssid, ip);
    if (v.guests) {
        sends_update(CLIENT_MGR_CLIENT_GUEST_ASSOC, mac, bssid, ip);
    }
    clients[mac] = {
        idx, bssid, bssid, v.vlan, ip, v.guests ? CLIENT_FLAG_LOCAL | CLIENT_FLAG_GUEST : CLIENT_FLAG_LOCAL, zeros(32)};
    adds_to_bridge(mac, v.ifname, "eth0", v.vlan, ip, 0);
    tells_portal(mac, v.portal, CAPTIVE_MSG_ASSOCIATION);
}

void daemon_run::leaves(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_CLIENT_DISASSOCIATION, association_payload(mac_bytes(mac), mac_bytes(bssid)));
    expects(syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Disassociation " + text(bssid) + " -- " + text(mac)));
    const client *known = find(mac);
    if (known != nullptr && (known->flag & (CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL)) == 0) {
        const int idx = index_of(bssid);
        if (idx < 0) {
            says("Invalid ap bssid in disassoc msg");
        } else if (known->vap_idx != idx) {
            says("Disassoc from wrong vap, Don't remove");
        } else {
            entry &on = table[static_cast<size_t>(idx)];
            sends_update(CLIENT_MGR_CLIENT_DISASSOC, mac, bssid, zeros(4));
            if ((known->flag & CLIENT_FLAG_GUEST) != 0 && on.guest_count != 0) {
                removes_guest_entries(on, known->ip, "Client disassociated, removing arp and route");
            }
            clients.erase(mac);
            tells_portal(mac, on.loaded->portal, CAPTIVE_MSG_DISASSOCIATION);
            removes_from_bridge(mac);
            verdicts.erase(mac);
        }
    }
    check();
}

// --- roaming

void daemon_run::roams_in(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION,
              foreign_association_payload(mac_bytes(mac), mac_bytes(bssid), mac_bytes(ELSEWHERE)));
    if (client *known = find(mac)) {
        takes_up_roam(mac, *known, bssid);
    } else {
        fetches(mac, bssid, ELSEWHERE, CLIENT_MGR_CLIENT_INFO_FETCH);
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
    if ((c.flag & CLIENT_FLAG_GUEST) != 0 && vlan != c.home_vlan) {
        disassociates(on, mac, 1);
        return;
    }
    sends_foreign_update(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, mac, c, bssid);
    c.bssid = bssid;
    c.vap_idx = idx;
    if (vlan != c.home_vlan) {
        c.flag |= CLIENT_FLAG_TUNNEL;
        adds_to_bridge(mac, on.ifname, "tun0", c.home_vlan, zeros(4), 1);
    } else {
        if ((c.flag & CLIENT_FLAG_GUEST) != 0) {
            sends_foreign_update(CLIENT_MGR_CLIENT_GUEST_ASSOC, mac, c, bssid);
        }
        c.flag = CLIENT_FLAG_LOCAL | (c.flag & (CLIENT_FLAG_PMK | CLIENT_FLAG_GUEST));
        adds_to_bridge(mac, on.ifname, "eth0", c.home_vlan, c.ip, 0);
    }
    tells_portal(mac, on.loaded->portal, CAPTIVE_MSG_FOREIGN_ASSOCIATION);
}

void daemon_run::fetches(std::string_view mac, std::string_view bssid, std::string_view last_bssid, uint8_t type) {
    const int idx = index_of(bssid);
    if (idx < 0) {
        says("Invalid ap bssid in assoc msg");
        return;
    }
    if (find(mac) == nullptr) {
        clients[mac] = {
            idx,      bssid, last_bssid, table[static_cast<size_t>(idx)].loaded->vlan, zeros(4), CLIENT_FLAG_FOREIGN,
            zeros(32)};
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
            c = {0,
                 answer.bssid,
                 c.last_bssid,
                 static_cast<int>(answer.home_vlan),
                 answer.ip,
                 CLIENT_FLAG_FOREIGN | CLIENT_FLAG_PMK,
                 answer.pmk};
            takes_up_roam(answer.mac, c, answer.bssid);
        }
    }
    check();
}

void daemon_run::foreign_leaves(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION,
              foreign_association_payload(mac_bytes(mac), mac_bytes(bssid), mac_bytes(ELSEWHERE)));
    const client *known = find(mac);
    const unsigned flag =
        known != nullptr ? known->flag & (CLIENT_FLAG_LOCAL | CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL) : 0;
    const bool roamed_on = flag == CLIENT_FLAG_FOREIGN || flag == (CLIENT_FLAG_LOCAL | CLIENT_FLAG_TUNNEL);
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
            tells_portal(mac, table[static_cast<size_t>(idx)].loaded->portal, CAPTIVE_MSG_FOREIGN_DISASSOCIATION);
            removes_from_bridge(mac);
        }
    }
    check();
}

// --- addresses and guests

void daemon_run::gets_ip(std::string_view mac, const bytes &ip, std::string_view ifname) {
    sim.local(KX_MSG_ID_CLIENT_IP, client_ip_payload(mac_bytes(mac), ip, ifname));
    client *known = find(mac);
    if (known == nullptr || known->ip == ip) {
        return check();
    }
    if ((known->flag & CLIENT_FLAG_GUEST) != 0) {
        const int idx = index_of(known->bssid);
        if (idx < 0) {
            says("Get VAP Index failed, captive portal set failed");
        } else {
            entry &on = table[static_cast<size_t>(idx)];
            if (known->ip != zeros(4)) {
                removes_guest_entries(on, known->ip, "");
            }
            if (on.guest_count == 0) {
                runs("Add IP to intf", address_command(ifname, ip));
            }
            says("Add arp and route entries for unauth client");
            on.guest_count++;
            for (const std::string &command : install_commands(mac, ip, ifname)) {
                runs("Executing cmd", command);
            }
        }
    }
    known->ip = ip;
    sends_update(CLIENT_MGR_CLIENT_IP, mac, known->bssid, ip);
    expects(syslog(LOG_USER | LOG_INFO,
                   "<clmgr> Proc Event " + text(known->bssid) + " -- " + text(mac) + " [Set IP=" + dotted(ip) + "]"));
    check();
}

void daemon_run::removes_guest_entries(entry &on, const bytes &ip, std::string_view reason) {
    on.guest_count--;
    if (!reason.empty()) {
        says(reason);
    }
    for (const std::string &command : remove_commands(ip)) {
        runs("Executing command", command);
    }
    if (on.guest_count == 0) {
        says("removing ip from intf");
        runs("", no_address_command(on.ifname));
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
        known->flag &= ~CLIENT_FLAG_GUEST;
        if (on.guest_count != 0) {
            removes_guest_entries(on, known->ip, "Client authenticated, removing arp and route");
        }
        tells_portal(mac, on.loaded->portal, CAPTIVE_MSG_GUEST_AUTHENTICATED);
    }
    check();
}

}  // namespace sim
