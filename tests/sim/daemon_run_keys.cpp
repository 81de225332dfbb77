// Clients that the controller hands over or takes back, PMKs and MAC ACL verdicts.
#include "daemon_run.h"

namespace sim {
namespace {

constexpr unsigned PENDING = 2;

const bytes QUESTION_DATA = hex("30313233343536373839");

std::string text(std::string_view view) { return std::string(view); }

}  // namespace

// --- what the controller hands over and takes back

void daemon_run::handed_over(const listed_client &c) {
    sim.controller(one_record(ROAMING_MGR_CLIENT_BULK_INFO, client_list({c})));
    if (const client *known = find(c.mac)) {
        for (const entry &e : table) {
            if (e.loaded != nullptr && e.loaded->bssid == known->bssid) {
                disassociates(e, c.mac, 0);
                tells_portal(c.mac, e.loaded->portal, CAPTIVE_MSG_DISASSOCIATION);
                removes_from_bridge(c.mac);
                break;
            }
        }
    }
    const unsigned guest = (c.flags & CLIENT_ENTRY_GUEST) != 0 ? CLIENT_FLAG_GUEST : 0U;
    clients[c.mac] = {0, NOWHERE, NOWHERE, static_cast<int>(c.home_vlan), c.ip, CLIENT_FLAG_FOREIGN | guest, zeros(32)};
    check();
}

void daemon_run::forgotten(std::string_view mac) {
    sim.controller(one_record(CLIENT_MGR_REMOVE_CLIENT_BULK_INFO, client_list({{.mac = mac}})));
    if (const client *known = find(mac)) {
        for (const entry &e : table) {
            if (e.loaded != nullptr && e.loaded->bssid == known->bssid) {
                disassociates(e, mac, 2);
                tells_portal(mac, e.loaded->portal, CAPTIVE_MSG_DISASSOCIATION);
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
        tells_portal(mac, "", CAPTIVE_MSG_DISASSOCIATION);
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
        known->flag |= CLIENT_FLAG_TUNNEL;
    } else {
        says("Client not present in AP");
    }
    check();
}

// --- keys

void daemon_run::has_key(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO,
              pmk_payload(HOSTAPD_PMK_ADD, mac_bytes(bssid), zeros(6), mac_bytes(mac), pmk_bytes()));
    const bytes body = mac_bytes(mac) + mac_bytes(bssid) + zeros(6) + pmk_bytes();
    if (!does("apcomm_send_msg", to_controller(bulk_message(1, ctrlr_record(CLIENT_MGR_PMK_ADD, body))))) {
        says("APComm Unable to send data");
        says("Error sending Foreign Client Update");
    } else if (const int idx = index_of(bssid); idx < 0) {
        says("Invalid ap bssid in assoc msg");
    } else {
        if (find(mac) == nullptr) {
            clients[mac] = {
                idx,      bssid, bssid, table[static_cast<size_t>(idx)].loaded->vlan, zeros(4), CLIENT_FLAG_LOCAL,
                zeros(32)};
        }
        clients[mac].flag |= CLIENT_FLAG_PMK;
        clients[mac].pmk = pmk_bytes();
    }
    check();
}

void daemon_run::needs_key(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_CLIENT_MGR_PMK_INFO,
              pmk_payload(HOSTAPD_PMK_FETCH, mac_bytes(bssid), mac_bytes(ELSEWHERE), mac_bytes(mac), zeros(32)));
    const client *known = find(mac);
    if (known != nullptr && (known->flag & CLIENT_FLAG_PMK) != 0) {
        tells_hostapd(mac, bssid, ELSEWHERE, known->pmk);
    } else {
        fetches(mac, bssid, bssid, CLIENT_MGR_PMK_FETCH);
    }
    check();
}

void daemon_run::key_fetched(const listed_client &answer) {
    sim.controller(one_record(CLIENT_MGR_PMK_FETCH_SUCCESS, client_list({answer})));
    if (client *known = find(answer.mac)) {
        known->flag |= CLIENT_FLAG_PMK;
        known->pmk = answer.pmk;
        tells_hostapd(answer.mac, answer.bssid, NOWHERE, answer.pmk);
    }
    check();
}

// --- MAC ACL

void daemon_run::may_it_associate(std::string_view mac, std::string_view bssid) {
    sim.local(KX_MSG_ID_MAC_ACL_AUTH, acl_payload(mac_bytes(mac), mac_bytes(bssid), QUESTION_DATA));
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
    sim.controller(one_record(CLIENT_MGR_CLIENT_ACL_AUTH_RESP,
                              acl_verdict_body(verdict, mac_bytes(mac), mac_bytes(bssid), QUESTION_DATA)));
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
