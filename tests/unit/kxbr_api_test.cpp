#include "kx/kxbr_api.h"

#include <event2/event.h>
#include <sched.h>

#include <array>
#include <cstdio>
#include <cstdlib>
#include <memory>

#include "kx/kx_eloop.h"
#include "platform/linux/event_base.h"
#include "tests/unit/private_root.h"

namespace {

using mac_address = std::array<std::uint8_t, 6>;

int run(const std::string &command) { return std::system(("(" + command + ") 2>/dev/null").c_str()); }

std::string output_of(const std::string &command) {
    std::unique_ptr<FILE, int (*)(FILE *)> pipe(popen(command.c_str(), "r"), pclose);
    std::string text;
    for (int c = 0; (c = fgetc(pipe.get())) != EOF;) {
        text += static_cast<char>(c);
    }
    return text;
}

// The process moves into a network namespace of its own, once: the port keeps its netlink socket.
bool enter_namespace() {
    static bool entered = unshare(CLONE_NEWNET) == 0;
    return entered;
}

}  // namespace

// The bridge br0 has the ports wlan0 and wlan1, br1 has wlan2.
class kxbr_api : public private_root {
protected:
    void SetUp() override {
        static const int loop = kx_eloop_init(nullptr);
        ASSERT_EQ(loop, 0);
        if (!enter_namespace() || run("ip link add br0 type bridge && ip link add br1 type bridge") != 0) {
            GTEST_SKIP() << "network namespaces or bridges are not permitted here";
        }
        add_port("wlan0", "br0");
        add_port("wlan1", "br0");
        add_port("wlan2", "br1");
        serve_events();
    }
    void TearDown() override {
        kxbr_api_del_client(sta_.data());
        for (const char *link : {"wlan0", "wlan1", "wlan2", "br0", "br1"}) {
            run(std::string("ip link del ") + link);
        }
    }

    static void add_port(const std::string &name, const std::string &bridge) {
        std::string command = "ip link add ";
        command.append(name).append(" type veth peer name p").append(name);
        command.append(" && ip link set ").append(name).append(" master ").append(bridge);
        ASSERT_EQ(run(command), 0);
    }
    // Handles the notifications about links that the kernel has sent so far.
    static void serve_events() { event_base_loop(kx::process_event_base(), EVLOOP_NONBLOCK); }
    int add(const char *ifname, std::uint32_t vlan) {
        serve_events();
        return kxbr_api_add_client(sta_.data(), ifname, "eth0", vlan, 0, 0);
    }
    // The station's forwarding entries.
    static std::string entries() { return output_of("bridge fdb show | grep -i 02:00:00:00:aa:01 | sort"); }

    mac_address sta_{2, 0, 0, 0, 0xaa, 1};
};

TEST_F(kxbr_api, keeps_a_client_in_the_bridge_until_it_is_deleted) {
    EXPECT_EQ(add("wlan0", 10), 0);
    EXPECT_NE(entries().find("02:00:00:00:aa:01 dev wlan0 master br0 static"), std::string::npos) << entries();
    EXPECT_EQ(kxbr_api_del_client(sta_.data()), 0);
    EXPECT_EQ(entries(), "");
    EXPECT_EQ(kxbr_api_del_client(sta_.data()), 0);
}

TEST_F(kxbr_api, adds_a_client_once) {
    EXPECT_EQ(add("wlan0", 10), 0);
    std::string once = entries();
    EXPECT_EQ(add("wlan0", 10), 0);
    EXPECT_EQ(entries(), once);
}

TEST_F(kxbr_api, moves_a_client_from_its_old_interface) {
    EXPECT_EQ(add("wlan0", 10), 0);
    EXPECT_EQ(add("wlan1", 10), 0);
    EXPECT_EQ(entries().find("wlan0"), std::string::npos) << entries();
    EXPECT_NE(entries().find("dev wlan1 master br0 static"), std::string::npos) << entries();
    EXPECT_EQ(add("wlan2", 10), 0);
    EXPECT_EQ(entries().find("br0"), std::string::npos) << entries();
    EXPECT_NE(entries().find("dev wlan2 master br1 static"), std::string::npos) << entries();
}

TEST_F(kxbr_api, ignores_an_entry_that_is_already_deleted) {
    EXPECT_EQ(add("wlan0", 10), 0);
    EXPECT_EQ(run("ip link del wlan0"), 0);
    EXPECT_EQ(kxbr_api_del_client(sta_.data()), 0);
    EXPECT_EQ(add("wlan1", 10), 0);
    EXPECT_EQ(run("ip link del wlan1"), 0);
    EXPECT_EQ(add("wlan2", 10), 0);
    EXPECT_NE(entries().find("dev wlan2 master br1 static"), std::string::npos) << entries();
}

TEST_F(kxbr_api, fails_when_the_kernel_refuses_and_reports_it_once) {
    EXPECT_LT(add("none", 10), 0);
    EXPECT_LT(add("lo", 10), 0);
    EXPECT_LT(add("wlan2", 4095), 0);
    EXPECT_LT(add("wlan2", 65536 + 10), 0);
    EXPECT_EQ(entries(), "");
    EXPECT_EQ(syslog_lines(), std::vector<std::string>{"no bridge entries are made: none: No such device"});
    EXPECT_EQ(kxbr_api_del_client(sta_.data()), 0);
}

TEST_F(kxbr_api, finds_an_interface_that_joins_a_bridge_later) {
    EXPECT_LT(add("wlan3", 10), 0);
    ASSERT_EQ(run("ip link add wlan3 type veth peer name pwlan3"), 0);
    EXPECT_LT(add("wlan3", 10), 0);
    ASSERT_EQ(run("ip link set wlan3 master br0"), 0);
    EXPECT_EQ(add("wlan3", 10), 0);
    EXPECT_NE(entries().find("dev wlan3 master br0 static"), std::string::npos) << entries();
    ASSERT_EQ(run("ip link del wlan3 && ip link add wlan3 type veth peer name pwlan3 && ip link set wlan3 master br1"),
              0);
    EXPECT_EQ(add("wlan3", 10), 0);
    EXPECT_NE(entries().find("dev wlan3 master br1 static"), std::string::npos) << entries();
    ASSERT_EQ(run("ip link del wlan3"), 0);
}

TEST_F(kxbr_api, removes_a_client_that_moves_away_from_the_bridge) {
    EXPECT_EQ(add("wlan0", 10), 0);
    EXPECT_LT(add("none", 10), 0);
    EXPECT_EQ(entries(), "");
}

TEST_F(kxbr_api, holds_2048_clients) {
    auto nth = [](unsigned i) {
        return mac_address{2, 0, 0, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)};
    };
    constexpr unsigned capacity = 2048;
    for (unsigned i = 0; i < capacity; i++) {
        ASSERT_EQ(kxbr_api_add_client(nth(i).data(), "wlan0", "eth0", 10, 0, 0), 0) << i;
    }
    EXPECT_LT(kxbr_api_add_client(nth(capacity).data(), "wlan0", "eth0", 10, 0, 0), 0);
    // Deletes every other client, then the rest, and checks that none is lost in between.
    for (unsigned i = 0; i < capacity; i += 2) {
        ASSERT_EQ(kxbr_api_del_client(nth(i).data()), 0);
    }
    for (unsigned i = 1; i < capacity; i += 2) {
        ASSERT_EQ(kxbr_api_add_client(nth(i).data(), "wlan1", "eth0", 10, 0, 0), 0);
    }
    EXPECT_EQ(output_of("bridge fdb show | grep 02:00:00:01 | grep -c 'wlan0 '"), "0\n");
    for (unsigned i = 1; i < capacity; i += 2) {
        ASSERT_EQ(kxbr_api_del_client(nth(i).data()), 0);
    }
    EXPECT_EQ(output_of("bridge fdb show | grep -c 02:00:00:01"), "0\n");
}

class kxbr_api_vlan : public kxbr_api {
protected:
    void SetUp() override {
        kxbr_api::SetUp();
        if (!IsSkipped() && run("ip link set br1 type bridge vlan_filtering 1 && bridge vlan add dev wlan2 vid 10 && "
                                "bridge vlan add dev wlan2 vid 20") != 0) {
            GTEST_SKIP() << "this kernel's bridges do not filter VLANs";
        }
    }
};

TEST_F(kxbr_api_vlan, enters_the_vlan_of_the_client_when_the_bridge_filters_vlans) {
    EXPECT_EQ(add("wlan0", 10), 0);
    EXPECT_EQ(add("wlan2", 10), 0);
    EXPECT_EQ(entries(), "02:00:00:00:aa:01 dev wlan2 vlan 10 master br1 static\n");
    EXPECT_EQ(add("wlan2", 20), 0);
    EXPECT_EQ(entries(), "02:00:00:00:aa:01 dev wlan2 vlan 20 master br1 static\n");
    EXPECT_LT(add("wlan2", 30), 0);
    EXPECT_EQ(entries(), "");
}
