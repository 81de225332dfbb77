// Where everything lies in the daemon's state, on every host alike: other programs read it in a core dump, and a moved
// client's captive text is read by its offset.
#include <gtest/gtest.h>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/tables/client_mgr_acl.h"
#include "client_mgr/tables/client_mgr_acl_state.h"
#include "client_mgr/tables/client_tbl.h"
#include "client_mgr/tables/client_tbl_state.h"

namespace sim {

TEST(state_layout, the_state_block) {
    EXPECT_EQ(0U, offsetof(client_mgr_cfg, status_flags));
    EXPECT_EQ(4U, offsetof(client_mgr_cfg, ctrlr_ip));
    EXPECT_EQ(8U, offsetof(client_mgr_cfg, num_vaps));
    EXPECT_EQ(12U, offsetof(client_mgr_cfg, ap_mac));
    EXPECT_EQ(20U, offsetof(client_mgr_cfg, vaps));
    EXPECT_EQ(16U, std::size(g_cfg.vaps));
    EXPECT_EQ(1748U, offsetof(client_mgr_cfg, ctrlr_msg_buf));
    EXPECT_EQ(18132U, offsetof(client_mgr_cfg, ipc_rx_buf));
    EXPECT_EQ(34516U, sizeof(client_mgr_cfg));
}

TEST(state_layout, a_vap) {
    EXPECT_EQ(0U, offsetof(vap_cfg, bssid));
    EXPECT_EQ(6U, offsetof(vap_cfg, ssid));
    EXPECT_EQ(38U, offsetof(vap_cfg, captive_cfg));
    EXPECT_EQ(70U, offsetof(vap_cfg, ifname));
    EXPECT_EQ(84U, offsetof(vap_cfg, vlan));
    EXPECT_EQ(88U, offsetof(vap_cfg, vap_attr));
    EXPECT_EQ(92U, offsetof(vap_cfg, radius_idx));
    EXPECT_EQ(96U, offsetof(vap_cfg, mac_acl_idx));
    EXPECT_EQ(100U, offsetof(vap_cfg, radius_acl_type));
    EXPECT_EQ(104U, offsetof(vap_cfg, guest_count));
    EXPECT_EQ(108U, sizeof(vap_cfg));
    // Entry 16, which there is not, would have its captive text at byte 38 of the controller's message.
    EXPECT_EQ(g_cfg.ctrlr_msg_buf + 38,
              reinterpret_cast<uint8_t *>(g_cfg.vaps) + 16 * sizeof(vap_cfg) + offsetof(vap_cfg, captive_cfg));
}

TEST(state_layout, a_client) {
    EXPECT_EQ(0U, offsetof(client_info, cl_mac));
    EXPECT_EQ(6U, offsetof(client_info, cl_mac_str));
    EXPECT_EQ(24U, offsetof(client_info, home_bssid));
    EXPECT_EQ(30U, offsetof(client_info, assoc_bssid));
    EXPECT_EQ(36U, offsetof(client_info, home_vlan));
    EXPECT_EQ(40U, offsetof(client_info, assoc_vlan));
    EXPECT_EQ(44U, offsetof(client_info, cl_ip));
    EXPECT_EQ(48U, offsetof(client_info, bssid_idx));
    EXPECT_EQ(52U, offsetof(client_info, pmk));
    EXPECT_EQ(84U, offsetof(client_info, flag));
    EXPECT_EQ(88U, offsetof(client_info, hash_index));
    EXPECT_EQ(92U, offsetof(client_info, hash_next));
    EXPECT_EQ(96U, offsetof(client_info, hash_prev));
    EXPECT_EQ(100U, offsetof(client_info, next));
    EXPECT_EQ(104U, offsetof(client_info, prev));
    EXPECT_EQ(108U, offsetof(client_info, entry_flag));
    EXPECT_EQ(112U, sizeof(client_info));
    EXPECT_EQ(2048U, std::size(client_info_tbl));
    EXPECT_EQ(2048U, std::size(client_hash_tbl));
}

TEST(state_layout, a_verdict) {
    EXPECT_EQ(0U, offsetof(acl_cache_entry, acl_mac));
    EXPECT_EQ(6U, offsetof(acl_cache_entry, acl_mac_str));
    EXPECT_EQ(24U, offsetof(acl_cache_entry, timestamp));
    EXPECT_EQ(28U, offsetof(acl_cache_entry, state));
    EXPECT_EQ(32U, offsetof(acl_cache_entry, hash_index));
    EXPECT_EQ(36U, offsetof(acl_cache_entry, hash_next));
    EXPECT_EQ(40U, offsetof(acl_cache_entry, hash_prev));
    EXPECT_EQ(44U, offsetof(acl_cache_entry, next));
    EXPECT_EQ(48U, offsetof(acl_cache_entry, prev));
    EXPECT_EQ(52U, offsetof(acl_cache_entry, entry_flag));
    EXPECT_EQ(56U, sizeof(acl_cache_entry));
    EXPECT_EQ(2048U, std::size(client_acl_cache));
    EXPECT_EQ(2048U, std::size(client_acl_hash));
}

}  // namespace sim
