// Clients, VAPs, messages and sequences of effects for the tests of a client's life.
#ifndef TESTS_SIM_LIFECYCLE_H
#define TESTS_SIM_LIFECYCLE_H

#include <cstdint>
#include <functional>
#include <initializer_list>
#include <string_view>

#include "arrange.h"
#include "client_mgr/tables/client_tbl.h"
#include "daemon_steps.h"
#include "messages.h"
#include "sim_test.h"
#include "wire/ctrlr_messages.h"

namespace sim {

inline constexpr std::string_view CLIENT = "02:13:24:35:46:57";
inline constexpr std::string_view CLIENT_2 = "0e:1d:2c:3b:4a:59";
inline constexpr std::string_view BSSID = "b0:b1:b2:b3:b4:b5";      // of VAP 0
inline constexpr std::string_view BSSID_2 = "c0:c1:c2:c3:c4:c5";    // of VAP 1
inline constexpr std::string_view ELSEWHERE = "d0:d1:d2:d3:d4:d5";  // of another access point
inline constexpr std::string_view NOWHERE = "00:00:00:00:00:00";

// 32 bytes that all differ.
bytes pmk_bytes();
bytes other_pmk_bytes();

// Ready to talk, with VAP 0 "ath0" on VLAN 100 and VAP 1 "ath1" on VLAN 200.
void have_two_vaps();

// An interface that the configuration lists and whose hardware address can be read.
void have_interface(site &sim, std::string_view ifname, std::string_view ssid, uint16_t vlan, std::string_view bssid);

// Adds 2048 other clients. Drops the effects.
void have_full_table(site &sim);

// Runs the event in every state in which the daemon cannot talk to the controller.
void whenever_not_ready(const std::function<void()> &event);

// Expects exactly this client data in the table, with the text of the MAC address.
void expect_stored(const client_info &expected, const char *file = __builtin_FILE(), int line = __builtin_LINE());

// Adds a verdict to the ACL cache and returns its slot. Drops the effects.
int32_t have_verdict(site &sim, std::string_view mac, int32_t state, int32_t timestamp);

// The lines of a local notification up to its receipt.
steps notified(uint32_t id, std::string_view text, int level = 3);

// --- messages of the controller

// The lines of a message with one record, up to the record's receipt.
steps received(uint8_t type, size_t body_size);

// One entry of the controller's client lists.
struct listed_client {
    std::string_view mac;
    std::string_view home_bssid = NOWHERE;
    std::string_view bssid = NOWHERE;
    uint32_t home_vlan = 0;
    bytes ip = zeros(4);
    bytes pmk = zeros(32);
    uint32_t flags = 0;
};
bytes client_list(std::initializer_list<listed_client> clients);

// Calls `handler` with a record of this body that ends with the controller message buffer.
void at_buffer_end(const bytes &body, const std::function<void(uint8_t *rec)> &handler);
// Logged when a record is cut by the buffer's end.
inline const steps LEAVES_BUFFER = log(1, "Record leaves the controller message buffer");

// --- what the daemon sends

// Messages with one update record, and the lines that announce them.
steps client_update(uint8_t type, std::string_view mac, std::string_view bssid, const bytes &ip);
steps foreign_update(uint8_t type, std::string_view mac, std::string_view bssid, std::string_view last_bssid,
                     const bytes &ip);
// The request for a client (CLIENT_MGR_CLIENT_INFO_FETCH) or its PMK (CLIENT_MGR_PMK_FETCH).
steps fetch_request(uint8_t type, std::string_view mac, std::string_view bssid);
// A VAP's record in the bulk configuration, and in the bulk client information with its station entries.
bytes config_record(std::string_view bssid, std::string_view ssid, uint16_t vlan);
bytes list_record(std::string_view bssid, std::string_view ssid, uint16_t vlan, const bytes &entries = {});
// A bulk report of these records.
bytes bulk_message(uint8_t count, const bytes &records);
// Logged after a failed send, before the sender's own line.
inline const steps NOT_SENT = log(1, "APComm Unable to send data");

// --- lines

steps adding_to_bridge(std::string_view function, std::string_view mac, std::string_view bssid, int vlan);
steps deleting_from_bridge(std::string_view function, std::string_view mac);
// The effects of reading a VAP for a bulk report.
steps vap_read(std::string_view ifname, std::string_view bssid, std::string_view ssid, int vlan,
               std::string_view status = "AP_TRUE");
// sta_disassoc of daemon_steps.h, refused by the driver.
steps sta_disassoc_refused(std::string_view ifname, std::string_view bssid, std::string_view mac, int reason);
// captive_msg of daemon_steps.h for a client that is not in the table.
steps captive_msg_of_stranger(std::string_view mac, std::string_view text, uint32_t id);

}  // namespace sim

#endif
