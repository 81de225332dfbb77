// What `radiod --check` reads: hostapd's configuration file, files in place of the kernel's, and hostapd itself where
// it is installed.
#include <gtest/gtest.h>
#include <pwd.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>
#include <vector>

#include "common/paths.h"
#include "radiod/check/check.h"
#include "radiod/check/hostapd_conf.h"
#include "tests/unit/hostapd_rig.h"
#include "tests/unit/private_root.h"

namespace {

using lines = std::vector<std::string>;

constexpr std::uint16_t radius_port = 1812;

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
        vap.vlan = 10;
        vap.mac_acl_index = 1;
        return radiod::check(
            {.hostapd_directory = root() + "/ctrl", .radius_port = radius_port, .proc = proc_, .sys = root() + "/sys"},
            {vap});
    }
    void make_bridge() {
        std::filesystem::create_directories(root() + "/sys/class/net/wlan0");
        std::filesystem::create_directories(root() + "/sys/br0/bridge");
        std::filesystem::create_directory_symlink("../../../br0", root() + "/sys/class/net/wlan0/master");
    }

    static constexpr char program[] = "/usr/sbin/hostapd";
    std::string proc_ = "/proc";

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

TEST_F(check_of_hostapd, finds_a_bridge_of_another_vlan) {
    if (!std::filesystem::exists(program)) {
        GTEST_SKIP() << program << " is not there";
    }
    make_bridge();
    std::filesystem::create_directories(root() + "/sys/br0/brif/eth0.20");
    std::filesystem::create_directories(root() + "/sys/br0/brif/wlan0");
    std::filesystem::create_directories(root() + "/proc/net/vlan");
    write_file("proc/net/vlan/config",
               "VLAN Dev name    | VLAN ID\nName-Type: VLAN_NAME_TYPE_RAW_PLUS_VID_NO_PAD\n"
               "eth0.10        | 10  | eth0\neth0.20        | 20  | eth0\n");
    start_hostapd("ssid=office\n");
    proc_ = root() + "/proc";
    const lines faults = check().faults;
    EXPECT_NE(std::ranges::find(faults,
                                "wlan0: its bridge br0 is that of VLAN 20, ap.toml has vlan = 10: set bridge= in "
                                "hostapd.conf to the bridge of VLAN 10"),
              faults.end())
        << testing::PrintToString(faults);
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
