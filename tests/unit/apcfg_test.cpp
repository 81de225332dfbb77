#include "kx/apcfg.h"

#include <array>
#include <cstring>
#include <filesystem>

#include "kx/kx_node.h"
#include "tests/unit/private_root.h"

namespace {

constexpr char base[] =
    "[ap]\nmac = \"020000001A0b\"\n[controller]\naddress = \"127.0.0.1\"\nport = 7443\nca = \"ca.pem\"\n"
    "certificate = \"ap.pem\"\nkey = \"ap.key\"\n";
constexpr char office[] = "[[vap]]\nifname = \"wlan0\"\nssid = \"office\"\nvlan = 10\n";
constexpr char guest[] =
    "[[vap]]\nifname = \"wlan0.guest1\"\nssid = \"12345678901234567890123456789012\"\nvlan = 20\nguest = true\n"
    "enabled = false\ncaptive = \"abcdefghijklmnopqrstuvwxyz012345\"\nradius_index = 3\nmac_acl_index = 4\n"
    "radius_acl_type = 5\n";

}  // namespace

class apcfg : public private_root {
protected:
    // -1 when there is no list.
    int count() {
        uint8_t names = 0;
        return apcfg_vap_get_ifname_list(list_.data(), &names) == 0 ? names : -1;
    }

    std::array<char[12], APCFG_MAX_IFNAMES> list_{};
    apcfg_vap vap_{};
};

TEST_F(apcfg, lists_the_vaps_in_the_order_of_the_file) {
    write_file("ap.toml", std::string(base) + guest + office);
    ASSERT_EQ(count(), 2);
    EXPECT_EQ(std::memcmp(list_[0], "wlan0.guest1", 12), 0);
    EXPECT_EQ(std::memcmp(list_[1], "wlan0\0\0\0\0\0\0", 12), 0);
}

TEST_F(apcfg, gives_every_value_of_a_vap) {
    write_file("ap.toml", std::string(base) + office + guest);
    std::memset(&vap_, 0xee, sizeof(vap_));
    ASSERT_EQ(apcfg_vap_get_by_ifname("wlan0.guest1", &vap_), 0);
    EXPECT_EQ(std::memcmp(vap_.ifname, "wlan0.guest1\0\0\0", 16), 0);
    EXPECT_EQ(vap_.vap_attr, 1u);
    EXPECT_EQ(std::memcmp(vap_.ssid, "12345678901234567890123456789012", 32), 0);
    EXPECT_EQ(std::memcmp(vap_.captive_cfg, "abcdefghijklmnopqrstuvwxyz012345", 32), 0);
    EXPECT_EQ(vap_.vlan, 20);
    EXPECT_EQ(vap_.status, 0u);
    EXPECT_EQ(vap_.radius_idx, 3u);
    EXPECT_EQ(vap_.mac_acl_idx, 4u);
    EXPECT_EQ(vap_.radius_acl_type, 5u);

    std::memset(&vap_, 0xee, sizeof(vap_));
    ASSERT_EQ(apcfg_vap_get_by_ifname("wlan0", &vap_), 0);
    EXPECT_EQ(vap_.vap_attr, 0u);
    EXPECT_EQ(vap_.status, 1u);
    EXPECT_STREQ(vap_.ssid, "office");
    EXPECT_EQ(vap_.ssid[31], '\0');
    EXPECT_STREQ(vap_.captive_cfg, "");
    EXPECT_NE(apcfg_vap_get_by_ifname("wlan1", &vap_), 0);
}

TEST_F(apcfg, notices_a_changed_file) {
    EXPECT_EQ(count(), -1);
    write_file("ap.toml", base);
    EXPECT_EQ(count(), 0);
    // Each call makes a new file, which differs even if it has the same size and time.
    for (int vaps : {1, 0, 1}) {
        write_file("new", vaps == 1 ? std::string(base) + office : base);
        std::filesystem::rename(root() + "/new", root() + "/ap.toml");
        EXPECT_EQ(count(), vaps);
    }
    std::filesystem::remove(root() + "/ap.toml");
    EXPECT_EQ(count(), -1);
}

TEST_F(apcfg, reports_an_error_to_the_system_log_once) {
    std::string file = write_file("ap.toml", std::string(base) + office + "vlna = 10\n");
    EXPECT_EQ(count(), -1);
    EXPECT_EQ(count(), -1);
    EXPECT_NE(apcfg_vap_get_by_ifname("wlan0", &vap_), 0);
    ASSERT_EQ(syslog_lines().size(), 1u);
    EXPECT_TRUE(syslog_lines()[0].starts_with(file + ":13: vap.vlna: unknown key")) << syslog_lines()[0];
}

TEST_F(apcfg, has_one_radio_with_a_mac_address) {
    std::array<char, 24> text{};
    write_file("ap.toml", base);
    EXPECT_EQ(kx_get_node_radio_mac_addr(text.data(), text.size(), 0), 0);
    EXPECT_STREQ(text.data(), "02:00:00:00:1a:0b");
    EXPECT_NE(kx_get_node_radio_mac_addr(text.data(), text.size(), 1), 0);
    EXPECT_EQ(kx_get_node_radio_mac_addr(text.data(), 18, 0), 0);
    EXPECT_NE(kx_get_node_radio_mac_addr(text.data(), 17, 0), 0);
}

TEST_F(apcfg, reports_a_missing_radio_on_standard_error) {
    std::array<char, 24> text{};
    testing::internal::CaptureStderr();
    EXPECT_NE(kx_get_node_radio_mac_addr(text.data(), text.size(), 0), 0);
    std::string file = root() + "/ap.toml";
    std::string why = file + ": No such file or directory; the access point's configuration was expected here";
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "client_mgr: " + why + "\n");
    EXPECT_EQ(syslog_lines(), std::vector{why});
}
