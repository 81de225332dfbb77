// Sequences of effects that many events share, table traces included.
#ifndef TESTS_SIM_DAEMON_STEPS_H
#define TESTS_SIM_DAEMON_STEPS_H

#include <string_view>

#include "effects.h"

namespace sim {

// MAC addresses are text. `idx` is a slot, -1 for none.

steps trace_enter(std::string_view operation);
steps trace_leave(std::string_view operation);

// client_tbl_client_get_fast with *idx at `before`. `found`: whether it returns a record.
steps client_lookup(std::string_view mac, bool found, int before = -1);
// The find of an add and of the lookups by text and address.
steps client_find(std::string_view mac, int idx);
// client_tbl_mac_add, by its outcome.
steps client_added(std::string_view mac, int idx);
steps client_overwritten(std::string_view mac, int idx);
steps client_refused(std::string_view mac);
// client_tbl_mac_update: with one of the adds above, and by index.
steps client_update(std::string_view mac, const steps &add);
steps client_update_at(std::string_view mac, int idx);
// client_tbl_drv_mac_delete of a client, and of an index without one.
steps client_deleted(std::string_view mac, int idx);
steps client_not_deleted(int idx);

// The same for the ACL cache.
steps acl_lookup(std::string_view mac, bool found, int before = -1);
steps acl_added(std::string_view mac, int idx);
steps acl_overwritten(std::string_view mac, int idx);
steps acl_refused(std::string_view mac);
steps acl_update(std::string_view mac, const steps &add);
steps acl_update_at(std::string_view mac, int idx);
steps acl_deleted(std::string_view mac, int idx);
steps acl_not_deleted(int idx);

// client_mgr_sta_disassoc.
steps sta_disassoc(std::string_view ifname, std::string_view bssid, std::string_view mac, int reason);
// client_mgr_captive_msg_send for a client in the table. `text` is shorter than 32 bytes.
steps captive_msg(std::string_view mac, std::string_view text, uint32_t id, uint8_t portal_flag);

}  // namespace sim

#endif
