// What `radiod --check` says of what it has read.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "radiod/check/rules.h"

namespace {

using lines = std::vector<std::string>;
using radiod::check_vaps;
using radiod::vap_view;

constexpr std::uint16_t radius_port = 1812;

// A VAP with a MAC ACL that has no fault.
vap_view good_vap() {
    vap_view vap{
        .wanted = {},
        .hostapd = vap_view::replies{.status = "state=ENABLED\nbss[0]=wlan0\nnum_sta[0]=0\n",
                                     .config = "ssid=office\nkey_mgmt=WPA-PSK\n",
                                     .mib = "radiusAuthServerAddress=127.0.0.1\n"
                                            "radiusAuthClientServerPortNumber=1812\n"
                                            "radiusAuthClientAccessRequests=0\n"
                                            "radiusAuthClientAccessAccepts=0\n"
                                            "radiusAuthClientAccessRejects=0\n"
                                            "radiusAuthClientAccessChallenges=0\n"
                                            "radiusAuthClientBadAuthenticators=0\n"
                                            "radiusAuthClientTimeouts=0\n"},
        .no_replies_because = {},
        .settings =
            radiod::bss_settings{.macaddr_acl = "2", .notify_mgmt_frames = "1", .ft_over_ds = "1", .bridge = "br0"},
        .port = {.bridge = "br0", .separates_vlans = false}};
    vap.wanted.ifname = "wlan0";
    vap.wanted.ssid = "office";
    vap.wanted.vlan = 10;
    vap.wanted.mac_acl_index = 1;
    return vap;
}

// Replaces `from` in one of hostapd's replies.
std::string with(std::string reply, const std::string &from, const std::string &to) {
    return reply.replace(reply.find(from), from.size(), to);
}

// The only fault of a VAP; otherwise all of them.
std::string fault_of(const vap_view &vap) {
    const lines faults = check_vaps({vap}, radius_port).faults;
    return faults.size() == 1 ? faults.front() : testing::PrintToString(faults);
}

TEST(check_rules, find_no_fault_where_all_fits) {
    const radiod::check_result result = check_vaps({good_vap()}, radius_port);
    EXPECT_EQ(result.faults, lines{});
    EXPECT_EQ(result.unseen, lines{});
}

TEST(check_rules, name_a_hostapd_that_does_not_answer) {
    vap_view vap = good_vap();
    vap.hostapd.reset();
    vap.no_replies_because = "no hostapd: start it";
    EXPECT_EQ(fault_of(vap), "wlan0: no hostapd: start it");
}

TEST(check_rules, name_a_radio_that_is_off) {
    vap_view vap = good_vap();
    vap.hostapd->status = with(vap.hostapd->status, "ENABLED", "DISABLED");
    EXPECT_EQ(fault_of(vap), "wlan0: hostapd is not on air, its state is DISABLED: see hostapd's log for the reason");
}

TEST(check_rules, name_another_ssid) {
    vap_view vap = good_vap();
    vap.wanted.ssid = "caf\xc3\xa9 \"x\"\n";
    EXPECT_EQ(fault_of(vap),
              "wlan0: hostapd has the SSID \"office\", ap.toml has "
              "\"caf\\xc3\\xa9 \\\"x\\\"\\n\": make them equal");
    vap.hostapd->config = with(vap.hostapd->config, "office", R"(caf\xc3\xa9 \"x\"\n)");
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
}

TEST(check_rules, name_another_radius_server) {
    const std::string remedy = ": set auth_server_addr=127.0.0.1 and auth_server_port=1812 in hostapd.conf";
    vap_view vap = good_vap();
    vap.hostapd->mib = with(vap.hostapd->mib, "PortNumber=1812", "PortNumber=1645");
    EXPECT_EQ(fault_of(vap), "wlan0: hostapd asks the RADIUS server 127.0.0.1 port 1645 and not radiod" + remedy);
    vap.hostapd->mib = with(good_vap().hostapd->mib, "127.0.0.1", "10.0.0.5");
    EXPECT_EQ(fault_of(vap), "wlan0: hostapd asks the RADIUS server 10.0.0.5 port 1812 and not radiod" + remedy);
    vap.hostapd->mib = "";
    EXPECT_EQ(fault_of(vap), "wlan0: hostapd has no RADIUS server" + remedy + ", with auth_server_shared_secret");
    // Without an ACL only EAP needs one.
    vap.wanted.mac_acl_index = 0;
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
    vap.hostapd->config = with(vap.hostapd->config, "WPA-PSK", "WPA-EAP-SHA256");
    EXPECT_NE(fault_of(vap).find("has no RADIUS server"), std::string::npos);
}

TEST(check_rules, name_another_radius_secret) {
    vap_view vap = good_vap();
    vap.hostapd->mib = with(vap.hostapd->mib, "Authenticators=0", "Authenticators=3");
    EXPECT_NE(fault_of(vap).find("make auth_server_shared_secret"), std::string::npos) << fault_of(vap);
}

TEST(check_rules, name_a_silence_of_radiod) {
    vap_view vap = good_vap();
    vap.hostapd->mib = with(vap.hostapd->mib, "Timeouts=0", "Timeouts=3");
    EXPECT_EQ(fault_of(vap),
              "wlan0: hostapd has had no answer to its RADIUS requests: make auth_server_shared_secret in hostapd.conf "
              "equal to the secret in radius_secret_file of ap.toml, and see that radiod runs");
    for (const std::string answer : {"Accepts", "Rejects", "Challenges"}) {
        vap_view answered = vap;
        answered.hostapd->mib = with(vap.hostapd->mib, answer + "=0", answer + "=1");
        EXPECT_EQ(check_vaps({answered}, radius_port).faults, lines{});
    }
}

TEST(check_rules, name_a_vap_whose_pmks_are_never_fetched) {
    vap_view vap = good_vap();
    vap.hostapd->config = with(vap.hostapd->config, "WPA-PSK", "WPA-EAP FT-EAP");
    vap.wanted.mac_acl_index = 0;
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
    vap.settings->macaddr_acl = "0";
    EXPECT_EQ(
        fault_of(vap),
        "wlan0: no PMK is ever fetched, because hostapd lets stations in without a question: set macaddr_acl=2 in "
        "hostapd.conf, or fetch_pmk = false in ap.toml where stations need not keep their PMKs");
    vap_view hidden = vap;
    hidden.settings.reset();
    EXPECT_EQ(check_vaps({hidden}, radius_port).unseen.size(), 2U);
    // One line is enough for one remedy.
    vap_view with_acl = vap;
    with_acl.wanted.mac_acl_index = 1;
    EXPECT_NE(fault_of(with_acl).find("the VAP has a MAC ACL"), std::string::npos) << fault_of(with_acl);
    vap.wanted.fetch_pmk = false;
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
    // Only the PMKs of these suites have a PMKID that an access point can compute.
    vap.wanted.fetch_pmk = true;
    vap.hostapd->config = with(vap.hostapd->config, "WPA-EAP FT-EAP", "FT-EAP WPA-EAP-SUITE-B-192");
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
    vap.hostapd->config = with(vap.hostapd->config, "FT-EAP WPA-EAP-SUITE-B-192", "WPA-EAP-SHA256");
    EXPECT_NE(fault_of(vap).find("no PMK is ever fetched"), std::string::npos) << fault_of(vap);
}

TEST(check_rules, name_two_suites_whose_pmks_exclude_each_other) {
    vap_view vap = good_vap();
    vap.hostapd->config = with(vap.hostapd->config, "WPA-PSK", "WPA-EAP WPA-EAP-SHA256");
    EXPECT_EQ(
        fault_of(vap),
        "wlan0: hostapd keeps a station's PMK for one of WPA-EAP and WPA-EAP-SHA256, so stations that can only do "
        "WPA-EAP need EAP at each access point: set one of them in wpa_key_mgmt in hostapd.conf, or fetch_pmk = "
        "false in ap.toml where stations need not keep their PMKs");
    vap.wanted.fetch_pmk = false;
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
}

TEST(check_rules, name_an_acl_that_hostapd_does_not_ask_about) {
    const std::string fault =
        "wlan0: the VAP has a MAC ACL, but hostapd lets stations in without a question: set macaddr_acl=2 in "
        "hostapd.conf";
    vap_view vap = good_vap();
    vap.settings->macaddr_acl = "0";
    EXPECT_EQ(fault_of(vap), fault);
    vap.wanted.mac_acl_index = 0;
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
    vap.wanted.radius_acl_type = 1;
    EXPECT_EQ(fault_of(vap), fault);
    // The file cannot be read: stations for which there was no question.
    vap.settings.reset();
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
    EXPECT_EQ(check_vaps({vap}, radius_port).unseen.size(), 2U);
    vap.hostapd->status = with(vap.hostapd->status, "num_sta[0]=0", "num_sta[0]=2");
    EXPECT_EQ(fault_of(vap), fault);
    vap.hostapd->mib = with(vap.hostapd->mib, "AccessRequests=0", "AccessRequests=2");
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
}

TEST(check_rules, name_ft_over_the_ds_where_there_is_an_acl) {
    vap_view vap = good_vap();
    vap.hostapd->config = with(vap.hostapd->config, "WPA-PSK", "WPA-PSK FT-PSK");
    EXPECT_EQ(fault_of(vap),
              "wlan0: a station that comes by FT over the DS passes the MAC ACL: set ft_over_ds=0 in "
              "hostapd.conf");
    vap.settings->ft_over_ds = "0";
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
    vap.settings.reset();
    EXPECT_EQ(check_vaps({vap}, radius_port).unseen.size(), 3U);
    vap.wanted.mac_acl_index = 0;
    EXPECT_EQ(check_vaps({vap}, radius_port).unseen.size(), 1U);
}

TEST(check_rules, name_frames_that_are_not_reported) {
    vap_view vap = good_vap();
    vap.settings->notify_mgmt_frames = "0";
    EXPECT_NE(fault_of(vap).find("set notify_mgmt_frames=1"), std::string::npos) << fault_of(vap);
}

TEST(check_rules, name_a_wrong_bridge) {
    vap_view vap = good_vap();
    vap.port.bridge = "br1";
    EXPECT_EQ(fault_of(vap), "wlan0: it is a port of br1, hostapd.conf has bridge=br0: make them equal");
    vap.port.bridge = "";
    EXPECT_EQ(fault_of(vap), "wlan0: it is not a port of a bridge: set bridge= in hostapd.conf");
}

TEST(check_rules, name_a_bridge_of_another_vlan) {
    vap_view vap = good_vap();
    vap.port.uplink_vlans = {20, 30};
    EXPECT_EQ(fault_of(vap),
              "wlan0: its bridge br0 is that of VLAN 20, ap.toml has vlan = 10: set bridge= in hostapd.conf to the "
              "bridge of VLAN 10");
    vap_view untagged = vap;
    untagged.wanted.vlan = 0;
    EXPECT_EQ(check_vaps({untagged}, radius_port).faults, lines{});
    vap.port.uplink_vlans.push_back(10);
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
}

TEST(check_rules, name_a_port_on_another_vlan) {
    vap_view vap = good_vap();
    vap.port.separates_vlans = true;
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{}) << "the kernel does not say it";
    vap.port.pvid = 10;
    EXPECT_EQ(check_vaps({vap}, radius_port).faults, lines{});
    const std::string remedy =
        ", ap.toml has vlan = 10: run \"bridge vlan add dev wlan0 vid 10 pvid untagged\" after hostapd has started";
    vap.port.pvid = 1;
    EXPECT_EQ(fault_of(vap), "wlan0: its bridge br0 puts it on VLAN 1" + remedy);
    vap.port.pvid = 0;
    EXPECT_EQ(fault_of(vap), "wlan0: its bridge br0 puts it on no VLAN" + remedy);
}

TEST(check_rules, name_bridges_that_contradict_the_vlans) {
    vap_view one = good_vap(), other = good_vap();
    other.wanted.ifname = "wlan1";
    EXPECT_EQ(check_vaps({one, other}, radius_port).faults, lines{});
    other.wanted.vlan = 20;
    EXPECT_EQ(check_vaps({one, other}, radius_port).faults,
              lines{"wlan0 and wlan1: their bridge br0 does not keep their VLANs apart: switch on its vlan_filtering, "
                    "or use two bridges"});
    one.port.separates_vlans = true;
    EXPECT_EQ(check_vaps({one, other}, radius_port).faults, lines{});
    other.wanted.vlan = 10;
    other.port.bridge = other.settings->bridge = "br1";
    EXPECT_EQ(check_vaps({one, other}, radius_port).faults,
              lines{"wlan0 and wlan1: both have VLAN 10, but are ports of br0 and br1: set the same bridge= in "
                    "hostapd.conf"});
}

TEST(check_rules, print_no_control_characters) {
    vap_view vap = good_vap();
    vap.hostapd->config = "ssid=\x1b[31mred\xff\n";
    EXPECT_NE(fault_of(vap).find("\"?[31mred?\""), std::string::npos) << fault_of(vap);
}

}  // namespace
