#include "guest_rules.h"

#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"
#include "effects.h"
#include "guest_commands.h"
#include "tables.h"
#include "wire/ctrlr_messages.h"
#include "wire/local_messages.h"
#include "wire/mac_address.h"

namespace sim {
namespace {

const client_info *client_of(int station) {
    const bytes mac = station_mac(station);
    for (const int slot : used_clients()) {
        const client_info &c = client_info_tbl[slot];
        if (memcmp(c.cl_mac.bytes, mac.data(), mac.size()) == 0) {
            return &c;
        }
    }
    return nullptr;
}

bool is_guest(const client_info *client) { return client != nullptr && (client->flag & CLIENT_FLAG_GUEST) != 0; }

bool ready() { return g_cfg.status_flags == 3 && g_cfg.ctrlr_ip != 0; }

// The index of the VAP with this BSSID, -1 if there is none.
int vap_with(const uint8_t *bssid) {
    for (int v = 0; v < VAPS && v < static_cast<int>(g_cfg.num_vaps); v++) {
        if (memcmp(g_cfg.vaps[v].bssid.bytes, bssid, 6) == 0) {
            return v;
        }
    }
    return -1;
}

bool is_known(int vap) { return vap >= 0 && vap < static_cast<int>(g_cfg.num_vaps); }

bytes ip_of(const client_info &client) { return {client.cl_ip.bytes, client.cl_ip.bytes + 4}; }

}  // namespace

guest_rules::guest_rules(const step &s) {
    for (int v = 0; v < VAPS; v++) {
        counts_[static_cast<size_t>(v)] = g_cfg.vaps[v].guest_count;
    }
    for (int i = 0; i < STATIONS; i++) {
        guest_[static_cast<size_t>(i)] = is_guest(client_of(i));
    }
    if (s.kind == step::LOCAL && s.id == KX_MSG_ID_CLIENT_IP) {
        new_address(s);
    } else if (s.kind == step::LOCAL && s.id == KX_MSG_ID_CLIENT_DISASSOCIATION) {
        left(s);
    } else if (s.kind == step::CONTROLLER && s.id == CLIENT_MGR_CLIENT_GUEST_AUTH) {
        authorised(s);
    }
    who_is_guest(s);
}

void guest_rules::expect(const std::vector<std::string> &commands) {
    commands_.insert(commands_.end(), commands.begin(), commands.end());
}

void guest_rules::remove_entries(int vap, const bytes &ip) {
    uint32_t &count = counts_[static_cast<size_t>(vap)];
    count--;
    expect(remove_commands(ip));
    if (count == 0) {
        expect({no_address_command("ath" + std::to_string(vap))});
    }
}

// A guest's first address installs entries. Another address first removes the entries of the old one.
void guest_rules::new_address(const step &s) {
    const client_info *client = client_of(s.station);
    if (!ready() || !is_guest(client) || ip_of(*client) == s.ip) {
        return;
    }
    const int vap = vap_with(client->assoc_bssid.bytes);
    if (vap < 0) {
        return;
    }
    if (ip_of(*client) != zeros(4)) {
        remove_entries(vap, ip_of(*client));
    }
    uint32_t &count = counts_[static_cast<size_t>(vap)];
    if (count == 0) {
        expect({address_command("ath1", s.ip)});
    }
    count++;
    expect(install_commands(mac_text(client->cl_mac.bytes), s.ip, "ath1"));
}

// Entries are removed as long as the VAP counts any guest, even when the authorised client had none.
void guest_rules::authorised(const step &s) {
    const client_info *client = client_of(s.station);
    const int vap = client != nullptr ? vap_with(client->assoc_bssid.bytes) : -1;
    if (vap < 0) {
        return;
    }
    guest_[static_cast<size_t>(s.station)] = false;
    if (counts_[static_cast<size_t>(vap)] != 0) {
        remove_entries(vap, ip_of(*client));
    }
}

// A guest leaves the VAP that it is on.
void guest_rules::left(const step &s) {
    const client_info *client = client_of(s.station);
    const bool can_leave =
        ready() && is_guest(client) && (client->flag & (CLIENT_FLAG_FOREIGN | CLIENT_FLAG_TUNNEL)) == 0;
    if (!can_leave || !is_known(s.vap) || client->bssid_idx != s.vap) {
        return;
    }
    if (counts_[static_cast<size_t>(s.vap)] != 0) {
        remove_entries(s.vap, ip_of(*client));
    }
}

// Guests are the clients that associate to the guest VAP, and those that the controller marks as guests.
void guest_rules::who_is_guest(const step &s) {
    const bool association = (s.kind == step::LOCAL && s.id == KX_MSG_ID_CLIENT_ASSOCIATION) ||
                             (s.kind == step::CONTROLLER && s.id == CLIENT_MGR_CLIENT_INFO_TREAT_AS_ASSOC);
    if (association && ready() && is_known(s.vap)) {
        guest_[static_cast<size_t>(s.station)] = s.vap == 1;
    }
    if (s.kind != step::CONTROLLER) {
        return;
    }
    if (s.id == ROAMING_MGR_CLIENT_BULK_INFO) {
        for (int i = 0; i < STATIONS; i++) {
            if (s.station < 0 || s.station == i) {
                guest_[static_cast<size_t>(i)] = s.guest;
            }
        }
    }
    // The answer about a client that roams in does not mark it as a guest.
    if (s.id == CLIENT_MGR_CLIENT_INFO_FETCH_SUCCESS && is_known(s.vap)) {
        guest_[static_cast<size_t>(s.station)] = false;
    }
}

std::vector<std::string> guest_rules::faults(const std::vector<std::string> &commands) const {
    std::vector<std::string> faults;
    for (size_t i = 0; i < commands.size() || i < commands_.size(); i++) {
        const std::string wanted = i < commands_.size() ? commands_[i] : "nothing";
        const std::string ran = i < commands.size() ? commands[i] : "nothing";
        if (wanted != ran) {
            std::string fault = "the rules for guests want \"" + wanted;
            fault += "\", the daemon ran \"" + ran + "\"";
            faults.push_back(fault);
        }
    }
    for (size_t v = 0; v < VAPS; v++) {
        if (g_cfg.vaps[v].guest_count != counts_[v]) {
            faults.push_back("VAP " + std::to_string(v) + " counts " + std::to_string(g_cfg.vaps[v].guest_count) +
                             " guests, by the rules " + std::to_string(counts_[v]));
        }
    }
    for (int i = 0; i < STATIONS; i++) {
        const client_info *client = client_of(i);
        if (client != nullptr && is_guest(client) != guest_[static_cast<size_t>(i)]) {
            faults.push_back("by the rules station " + mac_text(client->cl_mac.bytes) +
                             (guest_[static_cast<size_t>(i)] ? " is a guest" : " is no guest"));
        }
    }
    return faults;
}

}  // namespace sim
