// The two reports of a client that are sent from a notification's payload.
#include "client_mgr/dispatch/local_events.h"
#include "lifecycle.h"
#include "wire/ctrlr_messages.h"

namespace sim {
namespace {

// The 16 bytes that nobody reads, and the client.
const bytes START = hex("c0c1c2c3c4c5c6c7c8c9cacbcccdcecf") + mac_bytes(CLIENT);
const bytes IP = hex("0a5b5c5d");
// Version 1, a record, 40 bytes, the access point's address.
const bytes HEADER = hex("01 0e 00 0001 00 0028 a0a1a2a3a4a5");

bytes update(uint8_t type, const bytes &last_bssid) {
    return HEADER + bytes{type} + hex("04 001a") + mac_bytes(CLIENT) + mac_bytes(BSSID) + last_bssid + IP;
}

}  // namespace

SIM_TEST(client_updates, are_built_from_an_association_notification) {
    const bytes payload = START + mac_bytes(BSSID) + IP;
    client_mgr_send_client_update_msg(payload.data(), CLIENT_MGR_CLIENT_IP);
    sim.expect({log(3, "Client " + std::string(CLIENT)), log(3, "To BSSID " + std::string(BSSID)),
                log(3, "Client IP 0x0a5b5c5d"), to_controller(update(CLIENT_MGR_CLIENT_IP, zeros(6)))});
}

SIM_TEST(client_updates, are_built_from_a_foreign_association_notification) {
    const bytes payload = START + mac_bytes(BSSID) + mac_bytes(ELSEWHERE) + IP;
    client_mgr_send_foreign_client_update_msg(payload.data(), CLIENT_MGR_FOREIGN_CLIENT_DISASSOC);
    sim.expect({log(3, "Client " + std::string(CLIENT)), log(3, "To BSSID " + std::string(BSSID)),
                log(3, "From BSSID " + std::string(ELSEWHERE)),
                to_controller(update(CLIENT_MGR_FOREIGN_CLIENT_DISASSOC, mac_bytes(ELSEWHERE)))});
}

}  // namespace sim
