// What `radiod --check` says: the rules, hostapd's configuration file, and hostapd itself where it is installed.
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "common/paths.h"
#include "radiod/check/check.h"
#include "radiod/check/hostapd_conf.h"
#include "radiod/check/rules.h"
#include "tests/unit/hostapd_rig.h"
#include "tests/unit/private_root.h"

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

TEST(hostapd_conf, has_the_settings_of_each_bss) {
    const std::string text =
        "# macaddr_acl=1\ninterface=wlan0\nbridge=br0\r\nmacaddr_acl=2\nnot a setting\n"
        "bss=wlan0_0\nmacaddr_acl=1\nft_over_ds=0\nnotify_mgmt_frames=1";
    const auto first = radiod::find_bss(text, "wlan0"), second = radiod::find_bss(text, "wlan0_0");
    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->bridge, "br0");
    EXPECT_EQ(first->macaddr_acl, "2");
    EXPECT_EQ(first->ft_over_ds, "1");
    EXPECT_EQ(first->notify_mgmt_frames, "0");
    EXPECT_EQ(second->bridge, "");
    EXPECT_EQ(second->macaddr_acl, "1");
    EXPECT_EQ(second->ft_over_ds, "0");
    EXPECT_EQ(second->notify_mgmt_frames, "1");
    EXPECT_FALSE(radiod::find_bss(text, "wlan"));
    EXPECT_FALSE(radiod::find_bss("", "wlan0"));
}

// hostapd without a radio, and files in place of the kernel's bridges.
class check_of_hostapd : public private_root {
protected:
    ~check_of_hostapd() override {
        if (pid_ > 0) {
            kill(pid_, SIGKILL);
            waitpid(pid_, nullptr, 0);
        }
    }

    void start_hostapd(const std::string &settings) {
        const std::string file = write_file("hostapd.conf",
                                            "interface=wlan0\ndriver=none\nhw_mode=g\nchannel=1\nctrl_"
                                            "interface=" +
                                                root() + "/ctrl\n" + settings);
        const std::string log = root() + "/hostapd.log";
        pid_ = fork();
        if (pid_ == 0) {
            execl(program, program, "-f", log.c_str(), file.c_str(), nullptr);
            _exit(127);
        }
        event_rig rig;
        ASSERT_TRUE(rig.run_until([this] { return std::filesystem::exists(root() + "/ctrl/wlan0"); }));
    }
    radiod::check_result check() {
        kx::vap_config vap;
        vap.ifname = "wlan0";
        vap.ssid = "office";
        vap.mac_acl_index = 1;
        return radiod::check({.hostapd_directory = root() + "/ctrl",
                              .radius_port = radius_port,
                              .proc = "/proc",
                              .sys = root() + "/sys"},
                             {vap});
    }
    void make_bridge() {
        std::filesystem::create_directories(root() + "/sys/class/net/wlan0");
        std::filesystem::create_directories(root() + "/sys/br0/bridge");
        std::filesystem::create_directory_symlink("../../../br0", root() + "/sys/class/net/wlan0/master");
    }

    static constexpr char program[] = "/usr/sbin/hostapd";

private:
    pid_t pid_ = -1;
};

TEST_F(check_of_hostapd, names_a_missing_socket) {
    EXPECT_EQ(check().faults, lines{"wlan0: hostapd has no control socket " + root() +
                                    "/ctrl/wlan0: start hostapd with ctrl_interface=" + root() + "/ctrl"});
}

TEST_F(check_of_hostapd, names_a_dead_and_a_forbidden_socket) {
    std::filesystem::create_directory(root() + "/ctrl");
    event_rig rig;
    { const simulated_hostapd dead(rig.base.get(), root() + "/ctrl/wlan0"); }
    EXPECT_EQ(check().faults,
              lines{"wlan0: hostapd has ended and left its control socket " + root() + "/ctrl/wlan0: start it"});
    if (geteuid() != 0) {
        GTEST_SKIP() << "only root may become another user";
    }
    constexpr uid_t nobody = 65534;
    ASSERT_EQ(seteuid(nobody), 0);
    const lines faults = check().faults;
    ASSERT_EQ(seteuid(0), 0);
    ASSERT_EQ(faults.size(), 1U);
    EXPECT_NE(faults[0].find("set ctrl_interface_group"), std::string::npos) << faults[0];
}

TEST_F(check_of_hostapd, looks_for_the_service_s_right_to_use_the_socket) {
    const passwd *const service = getpwnam("daemon");
    if (geteuid() != 0 || service == nullptr) {
        GTEST_SKIP() << "only root may become another user, and there is none to become";
    }
    const std::string radio = kx::place(kx::radio_directory), sockets = root() + "/ctrl";
    kx::make_private_directories(radio);
    ASSERT_EQ(chown(radio.c_str(), service->pw_uid, service->pw_gid), 0);
    std::filesystem::create_directory(sockets);
    event_rig rig;
    { const simulated_hostapd dead(rig.base.get(), sockets + "/wlan0"); }
    chmod(root().c_str(), 0711);
    for (const mode_t mode : {0700, 0750}) {
        chmod(sockets.c_str(), mode);
        ASSERT_EQ(chown(sockets.c_str(), 0, mode == 0750 ? service->pw_gid : 0), 0);
        const lines faults = check().faults;
        ASSERT_EQ(faults.size(), 1U);
        EXPECT_NE(faults[0].find("set ctrl_interface_group"), std::string::npos) << faults[0];
    }
    ASSERT_EQ(chown((sockets + "/wlan0").c_str(), 0, service->pw_gid), 0);
    chmod((sockets + "/wlan0").c_str(), 0770);
    EXPECT_NE(check().faults.at(0).find("has ended"), std::string::npos) << check().faults[0];
}

TEST_F(check_of_hostapd, finds_what_does_not_fit) {
    if (!std::filesystem::exists(program)) {
        GTEST_SKIP() << program << " is not there";
    }
    start_hostapd("ssid=other\n");
    const radiod::check_result result = check();
    EXPECT_EQ(result.faults.size(), 5U) << testing::PrintToString(result.faults);
    EXPECT_EQ(result.unseen, lines{});
}

TEST_F(check_of_hostapd, finds_nothing_where_all_fits) {
    if (!std::filesystem::exists(program)) {
        GTEST_SKIP() << program << " is not there";
    }
    make_bridge();
    start_hostapd(
        "ssid=office\nmacaddr_acl=2\nauth_server_addr=127.0.0.1\nauth_server_port=1812\n"
        "auth_server_shared_secret=secret\nnotify_mgmt_frames=1\n");
    const radiod::check_result result = check();
    EXPECT_EQ(result.faults, lines{});
    EXPECT_EQ(result.unseen, lines{});
}

}  // namespace
