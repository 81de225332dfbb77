#include "client_mgr/clients/vaps.h"

#include <cstring>

#include "client_mgr/base/client_mgr_cfg.h"
#include "vap_table.h"

namespace sim {
namespace {

constexpr const char *BSSID_OF_MANY = "0a:1b:2c:3d:4e:72";

steps got(int count) { return log(3, "Got " + std::to_string(count) + " vap configuration"); }

// The lines about one VAP without RADIUS and ACL indexes.
steps loaded(const std::string &ifname, const std::string &bssid, const std::string &ssid, int vlan) {
    return log(3, "vap " + ifname + " status = AP_TRUE") + read_hwaddr(ifname) + log(3, "BSSID : " + bssid) +
           log(3, "SSID  " + ssid) + log(3, "VLAN  " + std::to_string(vlan)) + log(3, "Radius Index  0") +
           log(3, "MAC Acl Index  0") + log(3, "Radius Acl Type  0");
}

int32_t index_of(const bytes &bssid) {
    uint32_t idx = 99;
    const int result = client_mgr_get_vap_idx(bssid.data(), &idx);
    EXPECT_TRUE(result == 0 || (result == -1 && idx == 99));
    return result == 0 ? static_cast<int32_t>(idx) : -1;
}

}  // namespace

// --- loading

SIM_TEST(vaps, is_loaded_only_while_the_controller_can_be_reached) {
    sim.vaps = {apcfg_entry("ath0", "home", 10)};
    sim.hwaddr = {{"ath0", BSSID_0}};
    have_vap(0, "old", "02:00:00:00:00:01", 5);
    for (uint32_t flags : {0U, 1U, 2U, 3U, 0xfffffffcU}) {
        for (uint32_t ip : {0U, 1U}) {
            if (flags == 3 && ip == 1) {
                continue;
            }
            g_cfg.status_flags = flags;
            g_cfg.ctrlr_ip = ip;
            client_mgr_vap_init();
            sim.expect({INITIALISING, NOT_READY});
            EXPECT_EQ("old", name_of(g_cfg.vaps[0]));
            EXPECT_EQ(1U, g_cfg.num_vaps);
        }
    }
    g_cfg.status_flags = 0xffffffff;
    g_cfg.ctrlr_ip = 0x80000000;
    client_mgr_vap_init();
    sim.expect({INITIALISING, got(1), loaded("ath0", "0a:1b:2c:3d:4e:50", "home", 10)});
}

SIM_TEST(vaps, stays_as_it_was_when_the_interfaces_cannot_be_listed) {
    ready_to_talk();
    have_vap(0, "old", "02:00:00:00:00:01", 5);
    for (int result : {-1, 1}) {
        sim.fail_nth("apcfg_vap_get_ifname_list", 1, result);
        client_mgr_vap_init();
        sim.expect({INITIALISING, log(1, "Error getting the VAP list")});
        sim.end_rules();
    }
    EXPECT_EQ("old", name_of(g_cfg.vaps[0]));
    EXPECT_EQ(1U, g_cfg.num_vaps);
}

SIM_TEST(vaps, takes_every_field_of_a_vap) {
    ready_to_talk();
    listed_vap entry = apcfg_entry("ath0", "abcdefghijklmnopqrstuvwxyz012345", 0xfedc);
    set_text(entry.record.captive_cfg, 32, "ABCDEFGHIJKLMNOPQRSTUVWXYZ678901");
    entry.record.vap_attr = 0x11121314;
    entry.record.radius_idx = 0x21222324;
    entry.record.mac_acl_idx = 0x31323334;
    entry.record.radius_acl_type = 0xf1f2f3f4;
    sim.vaps = {entry};
    sim.hwaddr = {{"ath0", BSSID_0}};
    memset(&g_cfg.vaps[0], 'x', offsetof(vap_cfg, guest_count));
    client_mgr_vap_init();
    // An SSID of 32 bytes has no terminator and ends the line. The log shows unsigned values as signed.
    sim.expect({INITIALISING, got(1), log(3, "vap ath0 status = AP_TRUE"), read_hwaddr("ath0"),
                log(3, "BSSID : 0a:1b:2c:3d:4e:50"), log(3, "SSID  abcdefghijklmnopqrstuvwxyz012345"),
                log(3, "VLAN  65244"), log(3, "Radius Index  555885348"), log(3, "MAC Acl Index  825373492"),
                log(3, "Radius Acl Type  -235736076")});
    vap_cfg expected = {};
    set_bytes(expected.bssid.bytes, BSSID_0);
    set_text(expected.ssid, 32, "abcdefghijklmnopqrstuvwxyz012345");
    set_text(expected.captive_cfg, 32, "ABCDEFGHIJKLMNOPQRSTUVWXYZ678901");
    set_text(expected.ifname, 12, "ath0");
    expected.vlan = 0xfedc;
    expected.vap_attr = 0x11121314;
    expected.radius_idx = 0x21222324;
    expected.mac_acl_idx = 0x31323334;
    expected.radius_acl_type = 0xf1f2f3f4;
    // The two bytes between the name and the VLAN are padding.
    EXPECT_EQ(0, memcmp(&expected, &g_cfg.vaps[0], 82)) << "BSSID, texts and name";
    EXPECT_EQ(0, memcmp(&expected.vlan, &g_cfg.vaps[0].vlan, sizeof(expected) - offsetof(vap_cfg, vlan)));
    EXPECT_EQ(1U, g_cfg.num_vaps);
}

SIM_TEST(vaps, keeps_the_order_of_the_list) {
    have_two_vaps(sim);
    client_mgr_vap_init();
    sim.expect({INITIALISING, got(2), loaded("ath0", "0a:1b:2c:3d:4e:50", "home", 10),
                loaded("ath1", "0a:1b:2c:3d:4e:61", "guest", 20)});
    EXPECT_EQ(0, index_of(BSSID_0));
    EXPECT_EQ(1, index_of(BSSID_1));
}

SIM_TEST(vaps, of_an_access_point_without_vaps_is_empty) {
    ready_to_talk();
    have_vap(0, "old", "02:00:00:00:00:01", 5);
    client_mgr_vap_init();
    sim.expect({INITIALISING, got(0)});
    EXPECT_EQ(0U, g_cfg.num_vaps);
}

SIM_TEST(vaps, leaves_out_a_vap_that_cannot_be_read) {
    have_two_vaps(sim);
    sim.vaps[0].readable = false;
    client_mgr_vap_init();
    sim.expect({INITIALISING, got(2), loaded("ath1", "0a:1b:2c:3d:4e:61", "guest", 20)});
    EXPECT_EQ(1U, g_cfg.num_vaps);
    EXPECT_EQ("ath1", name_of(g_cfg.vaps[0]));
}

SIM_TEST(vaps, takes_any_result_but_0_for_a_vap_that_cannot_be_read) {
    have_two_vaps(sim);
    sim.fail_nth("apcfg_vap_get_by_ifname", 2, 1);
    client_mgr_vap_init();
    sim.expect({INITIALISING, got(2), loaded("ath0", "0a:1b:2c:3d:4e:50", "home", 10)});
    EXPECT_EQ(1U, g_cfg.num_vaps);
}

SIM_TEST(vaps, overwrites_a_vap_without_bssid_by_the_next) {
    have_two_vaps(sim);
    sim.hwaddr.erase("ath0");
    client_mgr_vap_init();
    sim.expect({INITIALISING, got(2), log(3, "vap ath0 status = AP_TRUE"), did("socket"),
                did("ioctl(0x8927, ath0) = -1"), log(1, "Error obtaining the BSSID for ath0"), did("close"),
                loaded("ath1", "0a:1b:2c:3d:4e:61", "guest", 20)});
    EXPECT_EQ(1U, g_cfg.num_vaps);
    EXPECT_EQ("ath1", name_of(g_cfg.vaps[0]));
}

SIM_TEST(vaps, stores_the_name_of_a_last_vap_without_bssid_beside_the_old_fields) {
    have_two_vaps(sim);
    vap_cfg &old = have_vap(1, "old", "02:00:00:00:00:01", 5);
    set_text(old.ssid, 32, "old ssid");
    old.guest_count = 7;
    sim.hwaddr.erase("ath1");
    client_mgr_vap_init();
    sim.forget();
    EXPECT_EQ(1U, g_cfg.num_vaps);
    EXPECT_EQ("ath1", name_of(g_cfg.vaps[1]));
    EXPECT_STREQ("old ssid", g_cfg.vaps[1].ssid);
    EXPECT_EQ(5U, g_cfg.vaps[1].vlan);
    EXPECT_EQ(7U, g_cfg.vaps[1].guest_count);
    EXPECT_EQ(hex("02 00 00 00 00 01"), bytes(g_cfg.vaps[1].bssid.begin(), g_cfg.vaps[1].bssid.end()));
}

SIM_TEST(vaps, only_logs_the_status) {
    have_two_vaps(sim);
    sim.vaps[0].record.status = 0;
    sim.vaps[1].record.status = 2;
    client_mgr_vap_init();
    const auto disabled = [](const std::string &ifname, steps all) {
        all[0] = log(3, "vap " + ifname + " status = AP_FALSE")[0];
        return all;
    };
    sim.expect({INITIALISING, got(2), disabled("ath0", loaded("ath0", "0a:1b:2c:3d:4e:50", "home", 10)),
                disabled("ath1", loaded("ath1", "0a:1b:2c:3d:4e:61", "guest", 20))});
    EXPECT_EQ(2U, g_cfg.num_vaps);
}

SIM_TEST(vaps, keeps_the_guest_counts_when_it_is_loaded_again) {
    have_two_vaps(sim);
    g_cfg.vaps[1].guest_count = 0x01020304;
    client_mgr_vap_init();
    sim.forget();
    EXPECT_EQ(0x01020304U, g_cfg.vaps[1].guest_count);
    EXPECT_EQ(0U, g_cfg.vaps[0].guest_count);
}

SIM_TEST(vaps, stores_a_name_of_12_characters_without_terminator) {
    ready_to_talk();
    sim.vaps = {apcfg_entry("wlan0.vap123", "home", 10)};
    sim.hwaddr = {{"wlan0.vap123", BSSID_0}};
    client_mgr_vap_init();
    sim.expect({INITIALISING, got(1), loaded("wlan0.vap123", "0a:1b:2c:3d:4e:50", "home", 10)});
    EXPECT_EQ("wlan0.vap123", name_of(g_cfg.vaps[0]));
    EXPECT_EQ(10U, g_cfg.vaps[0].vlan) << "the member behind the name";
}

SIM_TEST(vaps, stores_the_name_in_the_vaps_record) {
    ready_to_talk();
    sim.vaps = {apcfg_entry("ath0", "home", 10)};
    for (const std::string name : {"wifi0", "wifi0vap-1234567"}) {
        memcpy(sim.vaps[0].record.ifname, padded(name, 16).data(), 16);
        const std::string kept = name.substr(0, 12);
        sim.hwaddr = {{kept, BSSID_0}};
        client_mgr_vap_init();
        steps all = loaded(kept, "0a:1b:2c:3d:4e:50", "home", 10);
        all[0] = log(3, "vap " + name + " status = AP_TRUE")[0];
        sim.expect({INITIALISING, got(1), all});
        EXPECT_EQ(kept, name_of(g_cfg.vaps[0]));
    }
}

// Up to 255 interfaces: the count has 8 bits.
SIM_TEST(vaps, stops_at_16_vaps) {
    ready_to_talk();
    steps first_16;
    for (unsigned i = 0; i < 255; i++) {
        const std::string name = "ath" + std::to_string(i);
        sim.vaps.push_back(apcfg_entry(name, name, static_cast<uint16_t>(100 + i)));
        sim.hwaddr[name] = mac_bytes(BSSID_OF_MANY);
        if (i < 16) {
            first_16 = first_16 + loaded(name, BSSID_OF_MANY, name, static_cast<int>(100 + i));
        }
    }
    memset(g_cfg.ctrlr_msg_buf, 0xa5, 256);
    for (int left_out : {239, 1, 0}) {
        sim.vaps.resize(16 + static_cast<size_t>(left_out));
        client_mgr_vap_init();
        const std::string complaint = "No room for " + std::to_string(left_out) + " of the VAPs";
        sim.expect({INITIALISING, got(16 + left_out), first_16, left_out > 0 ? log(1, complaint) : steps{}});
        EXPECT_EQ(16U, g_cfg.num_vaps);
        EXPECT_EQ("ath15", name_of(g_cfg.vaps[15]));
        EXPECT_EQ(bytes(256, 0xa5), bytes(g_cfg.ctrlr_msg_buf, g_cfg.ctrlr_msg_buf + 256)) << "what lies behind";
    }
}

SIM_TEST(vaps, takes_the_first_16_vaps_that_can_be_read) {
    ready_to_talk();
    for (unsigned i = 0; i < 20; i++) {
        const std::string name = "ath" + std::to_string(i);
        sim.vaps.push_back(apcfg_entry(name, name, 1));
        if (i % 8 != 3) {
            sim.hwaddr[name] = hex("0a 1b 2c 3d 4e") + bytes{static_cast<uint8_t>(i)};
        }
    }
    client_mgr_vap_init();
    EXPECT_EQ(16U, g_cfg.num_vaps);
    EXPECT_EQ("ath17", name_of(g_cfg.vaps[15]));
    sim.forget();
}

// --- lookup

SIM_TEST(vap_lookup, finds_the_first_entry_with_the_bssid) {
    have_vap(0, "a", "02:00:00:00:00:01", 1);
    have_vap(1, "b", "02:00:00:00:00:02", 1);
    have_vap(2, "c", "02:00:00:00:00:02", 1);
    EXPECT_EQ(0, index_of(hex("02 00 00 00 00 01")));
    EXPECT_EQ(1, index_of(hex("02 00 00 00 00 02")));
    EXPECT_EQ(-1, index_of(hex("02 00 00 00 00 03")));
    EXPECT_EQ(-1, index_of(hex("82 00 00 00 00 01")));
    sim.expect_nothing();
}

SIM_TEST(vap_lookup, finds_nothing_without_valid_entries) {
    have_vap(0, "a", "02:00:00:00:00:01", 1);
    g_cfg.num_vaps = 0;
    EXPECT_EQ(-1, index_of(hex("02 00 00 00 00 01")));
    EXPECT_EQ(-1, index_of(zeros(6)));
}

SIM_TEST(vap_lookup, never_leaves_the_16_entries) {
    have_vap(15, "a", "02:00:00:00:00:01", 1);
    // The place of a 17th entry.
    set_bytes(g_cfg.ctrlr_msg_buf, hex("02 00 00 00 00 02"));
    for (uint32_t num_vaps : {16U, 17U, 255U, 0xffffffffU}) {
        g_cfg.num_vaps = num_vaps;
        EXPECT_EQ(15, index_of(hex("02 00 00 00 00 01")));
        EXPECT_EQ(-1, index_of(hex("02 00 00 00 00 02")));
    }
}

SIM_TEST(vap_lookup, does_not_find_entries_past_the_valid_ones_which_are_still_updated) {
    have_two_vaps(sim);
    client_mgr_vap_init();
    sim.vaps.pop_back();
    client_mgr_vap_init();
    sim.forget();
    EXPECT_EQ(1U, g_cfg.num_vaps);
    EXPECT_EQ(-1, index_of(BSSID_1));
    EXPECT_EQ(0, client_mgr_vap_update("ath1\0\0\0\0\0\0\0"));
    sim.expect({log(3, "Rcvd vap update for ath1"), read_hwaddr("ath1"), log(3, "BSSID : 0a:1b:2c:3d:4e:61"),
                log(3, "SSID  guest"), log(3, "VLAN  20"),
                to_controller(hex("01 0e 00 0001 00 003c a0a1a2a3a4a5  01 04 002e  0a1b2c3d4e61") +
                              padded("guest", 32) + hex("00000014"))});
}

}  // namespace sim
