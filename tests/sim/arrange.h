// Sets up the daemon's state for a test without an event.
#ifndef TESTS_SIM_ARRANGE_H
#define TESTS_SIM_ARRANGE_H

#include <cstdint>
#include <string_view>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_tbl.h"
#include "sim_test.h"

namespace sim {

// Sets system ready, link up, and the controller's address 10.11.12.13.
void ready_to_talk();

// A VAP without attributes. Raises num_vaps so that the entry is valid. MAC addresses are text.
vap_cfg &have_vap(uint32_t idx, std::string_view ifname, std::string_view bssid, uint32_t vlan);

// A name of 12 characters, which has no terminator. The padding after the field is filled with letters too.
inline constexpr std::string_view FULL_IFNAME = "abcdefghijkl";
void set_full_ifname(vap_cfg &vap);

// A client with this MAC address and every other field zero. It is in no table.
client_info client_of(std::string_view mac);
// Adds the client and returns its slot. Drops the effects.
int32_t have_client(site &sim, const client_info &client);

// The table's record, null if there is none. The lookup leaves no trace in the log.
const client_info *stored_client(std::string_view mac);
const acl_cache_entry *stored_verdict(std::string_view mac);

void set_mac(uint8_t dst[6], std::string_view mac);
void set_mac(mac_address &dst, std::string_view mac);
void set_bytes(uint8_t *dst, const bytes &value);
void set_bytes(mac_address &dst, const bytes &value);
void set_text(char *dst, size_t width, std::string_view text);
// The client data of a record: the 88 bytes that callers and the table exchange.
bytes client_data(const client_info &client);

// The bytes of g_cfg, padding included.
bytes state_block();

// An interface as the platform's configuration lists it.
listed_vap apcfg_entry(std::string_view ifname, std::string_view ssid, uint16_t vlan);

}  // namespace sim

#endif
