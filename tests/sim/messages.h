// The messages that the daemon receives, put together from their fields. Addresses are bytes.
#ifndef TESTS_SIM_MESSAGES_H
#define TESTS_SIM_MESSAGES_H

#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "bytes.h"

namespace sim {

// --- payloads of local messages; fields that the daemon does not read are zero

// For an association and both disassociations.
bytes association_payload(const bytes &mac, const bytes &bssid);
bytes foreign_association_payload(const bytes &mac, const bytes &bssid, const bytes &last_bssid);
bytes client_ip_payload(const bytes &mac, const bytes &ip, std::string_view ifname);
bytes pmk_payload(uint32_t sub_type, const bytes &bssid, const bytes &previous_bssid, const bytes &mac,
                  const bytes &pmk);
bytes acl_payload(const bytes &mac, const bytes &bssid, const bytes &data);

// --- messages of the controller

bytes ctrlr_record(uint8_t type, const bytes &body);
// From the controller 90:91:92:93:94:95.
bytes ctrlr_message(std::initializer_list<bytes> records);
bytes one_record(uint8_t type, const bytes &body);

// An entry of the controller's client lists.
bytes client_entry(const bytes &mac, const bytes &home_bssid, const bytes &bssid, uint32_t home_vlan, const bytes &ip,
                   const bytes &pmk, uint32_t flags);
bytes acl_verdict_body(uint32_t verdict, const bytes &mac, const bytes &bssid, const bytes &data);

// --- the driver

// The driver's record of a station, in the host's order.
bytes station_record(const bytes &mac);

}  // namespace sim

#endif
