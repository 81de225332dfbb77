// A station's association to one of two VAPs, and its effects.
#ifndef TESTS_SIM_ASSOCIATION_STEPS_H
#define TESTS_SIM_ASSOCIATION_STEPS_H

#include <string>

#include "arrange.h"
#include "daemon_steps.h"
#include "sim_test.h"
#include "wire/local_messages.h"

namespace sim::associating {

inline constexpr const char *STA = "02:11:22:33:44:55";
inline constexpr const char *BSSID = "0a:1b:2c:3d:4e:50";
inline constexpr const char *GUEST_BSSID = "0a:1b:2c:3d:4e:61";

// 16 bytes that the daemon does not use, the client, the BSSID, an address that is not used.
inline const bytes NOTIFICATION = hex("c0c1c2c3c4c5c6c7c8c9cacbcccdcecf  021122334455  0a1b2c3d4e50  e1e2e3e4");
inline const bytes GUEST_NOTIFICATION = hex("c0c1c2c3c4c5c6c7c8c9cacbcccdcecf  021122334455  0a1b2c3d4e61  e1e2e3e4");

inline const steps RECEIVED =
    log(4, "Received Msg ID : 63") + log(4, "Notification message") + log(3, "KX_MSG_ID_CLIENT_ASSOCIATION rcvd");
inline const steps ACCEPTED = log(3, "Received association msg");
inline const steps SEND_FAILED = log(1, "APComm Unable to send data") + log(1, "Error sending Client Update");

// Two VAPs, the second for guests.
inline void have_vaps() {
    ready_to_talk();
    set_text(have_vap(0, "ath0", BSSID, 0x1234).captive_cfg, 32, "welcome");
    vap_cfg &guests = have_vap(1, "ath1", GUEST_BSSID, 20);
    guests.vap_attr = 0x80000000;
    set_text(guests.captive_cfg, 32, "guests only");
}

inline steps heard(const std::string &bssid, const std::string &client) {
    return syslog(LOG_USER | LOG_INFO, "<clmgr> Proc Association-Req " + bssid + " -- " + client);
}

inline steps invalid(const std::string &bssid, const std::string &client) {
    return heard(bssid, client) +
           syslog(LOG_USER | LOG_CRIT, "<clmgr> Proc Association-Req " + bssid + " -- " + client + " [Invalid BSS]") +
           log(1, "Invalid ap bssid in assoc msg");
}

inline steps update_lines(const char *bssid, const char *ip) {
    return log(3, std::string("Client ") + STA) + log(3, std::string("To BSSID ") + bssid) +
           log(3, std::string("Client IP ") + ip);
}

// One client update message. `type`, the last byte of the BSSID and the address are hexadecimal digits.
inline bytes update_msg(const char *type, const char *bssid_end, const char *ip) {
    return hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5") + hex(type) + hex("04 001a 021122334455 0a1b2c3d4e") +
           hex(bssid_end) + hex("000000000000") + hex(ip);
}

inline steps bridged(const char *bssid, int vlan, const char *ip) {
    return log(3, "[client_mgr_send_assoc_msg] Adding client to kxbr_api_add_client") +
           log(3, std::string("Client ") + STA) + log(3, std::string("BSSID  ") + bssid) +
           log(3, "VLAN   " + std::to_string(vlan)) + log(3, std::string("Client IP ") + ip);
}

// A first association on the VAP for home clients, after the receipt.
inline steps first_association(const steps &table) {
    return ACCEPTED + heard(BSSID, STA) + client_lookup(STA, false) + update_lines(BSSID, "0x00000000") +
           to_controller(update_msg("02", "50", "00000000")) + client_update(STA, table) +
           bridged(BSSID, 0x1234, "0x00000000") + bridge_add(STA, "ath0", "eth0", 0x1234, "0.0.0.0", 0) +
           captive_msg(STA, "welcome", CAPTIVE_MSG_ASSOCIATION, 1);
}

}  // namespace sim::associating

#endif
