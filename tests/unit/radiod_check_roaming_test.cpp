// What `radiod --check` says about stations whose home is on another VLAN.
#include <gtest/gtest.h>
#include <sys/utsname.h>

#include <filesystem>
#include <fstream>

#include "radiod/check/roaming.h"
#include "tests/unit/private_root.h"

namespace {

using lines = std::vector<std::string>;
using namespace radiod;

vap_view good_vap() {
    vap_view vap{.wanted = {},
                 .hostapd = {},
                 .no_replies_because = {},
                 .settings = bss_settings{.macaddr_acl = "2", .dynamic_vlan = "1", .bridge = "br0"},
                 .port = {.bridge = "br0", .separates_vlans = true},
                 .interfaces = 8};
    vap.wanted.ifname = "wlan0";
    return vap;
}

std::string fault_of(const vap_view &vap) {
    check_result result;
    check_roaming({vap}, {.is_known = true, .missing = {}}, result);
    return result.faults.size() == 1 ? result.faults.front() : testing::PrintToString(result.faults);
}

TEST(check_roaming, finds_no_fault_where_all_fits) { EXPECT_EQ(fault_of(good_vap()), "{}"); }

TEST(check_roaming, names_what_hostapd_lacks) {
    vap_view vap = good_vap();
    vap.interfaces = 0;
    EXPECT_EQ(fault_of(vap),
              "wlan0: hostapd has no interface for a station whose home is on another VLAN: set dynamic_vlan=1 and "
              "vlan_file= in hostapd.conf, with lines like \"1001 wlan0.1001 br0\"");
    vap = good_vap();
    vap.settings->dynamic_vlan = "0";
    EXPECT_EQ(fault_of(vap),
              "wlan0: hostapd does not use its interfaces for single stations: set dynamic_vlan=1 in hostapd.conf");
    vap = good_vap();
    vap.settings->macaddr_acl = "0";
    EXPECT_EQ(
        fault_of(vap),
        "wlan0: nobody asks where a station has its home, because hostapd lets stations in without a question: set "
        "macaddr_acl=2 in hostapd.conf");
}

TEST(check_roaming, names_a_bridge_that_does_not_filter) {
    vap_view vap = good_vap();
    vap.port.separates_vlans = false;
    EXPECT_EQ(
        fault_of(vap),
        "wlan0: its bridge does not keep VLANs apart, so no station can keep a home on another VLAN: switch on its "
        "vlan_filtering");
}

class check_kernel : public private_root {
protected:
    std::string modules() {
        utsname name{};
        uname(&name);
        const std::filesystem::path directory = std::filesystem::path(root()) / "modules" / name.release;
        std::filesystem::create_directories(directory);
        std::ofstream(directory / "modules.dep")
            << "kernel/drivers/net/vxlan/vxlan.ko: kernel/net/ipv4/udp_tunnel.ko\n"
               "kernel/net/sched/cls_flower.ko:\nkernel/net/sched/act_gact.ko.xz:\n";
        std::ofstream(directory / "modules.builtin") << "kernel/net/sched/sch_ingress.ko\n";
        return (std::filesystem::path(root()) / "modules").string();
    }
};

TEST_F(check_kernel, names_the_modules_that_are_missing) {
    const std::string directory = modules();
    std::filesystem::create_directories(std::filesystem::path(root()) / "proc");
    std::ofstream(std::filesystem::path(root()) / "proc/modules") << "act_vlan 16384 1 - Live 0x0\n";
    const kernel_view seen = look_at_kernel(root() + "/proc", directory);
    EXPECT_TRUE(seen.is_known);
    EXPECT_EQ(seen.missing, (lines{"act_mirred", "act_tunnel_key", "act_pedit"}));
    check_result result;
    check_roaming({}, seen, result);
    EXPECT_EQ(result.faults,
              lines{"the kernel lacks act_mirred, act_tunnel_key, act_pedit: install a kernel with these "
                    "modules, or set enabled = false in [tunnel] of ap.toml"});
}

TEST_F(check_kernel, says_when_modules_are_not_listed) {
    const kernel_view seen = look_at_kernel(root() + "/none", root() + "/none");
    EXPECT_FALSE(seen.is_known);
    check_result result;
    check_roaming({}, seen, result);
    EXPECT_EQ(result.faults, lines{});
    EXPECT_EQ(result.unseen.size(), 1u);
}

}  // namespace
