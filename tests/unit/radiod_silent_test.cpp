// What has become of stations that do not answer: messages made by hand, and the machine's own bridges.
#include <gtest/gtest.h>
#include <linux/if_bridge.h>
#include <linux/neighbour.h>
#include <linux/rtnetlink.h>
#include <sys/socket.h>

#include <chrono>
#include <cstdint>
#include <optional>
#include <vector>

#include "radiod/kernel/bridge_vlans.h"
#include "radiod/silent_stations.h"
#include "tests/unit/radiod_kernel_rig.h"

namespace {

using namespace std::chrono_literals;
using namespace radiod;
using stations = std::vector<mac_address>;

constexpr mac_address ann{2, 0xaa, 0, 0, 0, 1}, ben{2, 0xaa, 0, 0, 0, 2};
constexpr unsigned wlan0 = 5, uplink = 2, other_bridges_uplink = 3;

class silent : public testing::Test {
protected:
    silent_stations those(std::chrono::milliseconds inactive) {
        const std::vector<kernel_station> listed{{.mac = ann, .inactive = inactive, .authorized = true},
                                                 {.mac = ben, .inactive = 1min, .authorized = true}};
        return examine(std::vector{ann}, listed, entries, [](unsigned port) { return port == wlan0; });
    }

    std::vector<bridge_entry> entries;
};

TEST_F(silent, a_station_that_no_bridge_has_heard_may_sleep) {
    EXPECT_EQ(those(30s).roamed_away, stations{});
    EXPECT_EQ(those(30s).heard, stations{});
    entries = {{.port = wlan0, .address = ann, .age = 1s}, {.port = uplink, .address = ben, .age = 1s}};
    EXPECT_EQ(those(30s).roamed_away, stations{});
}

TEST_F(silent, a_station_that_was_heard_elsewhere_since_has_roamed_away) {
    entries = {{.port = uplink, .address = ann, .age = 2s}};
    EXPECT_EQ(those(30s).roamed_away, stations{ann});
    EXPECT_EQ(those(2s).roamed_away, stations{}) << "it has come from there";
    EXPECT_EQ(those(500ms).heard, stations{ann});
}

TEST_F(silent, a_station_may_have_roamed_to_another_vlan) {
    entries = {{.port = wlan0, .address = ann, .age = 30s}, {.port = other_bridges_uplink, .address = ann, .age = 2s}};
    EXPECT_EQ(those(30s).roamed_away, stations{ann});
}

TEST_F(silent, who_has_left_the_kernel_is_left_alone) {
    entries = {{.port = uplink, .address = ann, .age = 2s}};
    const auto found = examine(std::vector{ann}, {}, entries, [](unsigned) { return false; });
    EXPECT_EQ(found.roamed_away, stations{});
}

octets entry(const octets &attributes, std::uint16_t state = NUD_REACHABLE, std::uint8_t flags = 0) {
    ndmsg body{};
    body.ndm_family = AF_BRIDGE;
    body.ndm_ifindex = static_cast<int>(uplink);
    body.ndm_state = state;
    body.ndm_flags = flags;
    return netlink_message(RTM_NEWNEIGH, NLM_F_MULTI, 1, raw(body) + attributes);
}

std::optional<bridge_entry> parse(const octets &bytes) {
    return parse_bridge_entry(*reinterpret_cast<const nlmsghdr *>(bytes.data()));
}

// The kernel counts in hundredths of a second.
const octets heard = attribute(NDA_LLADDR, raw(ann)) + attribute(NDA_MASTER, raw(std::uint32_t{4})) +
                     attribute(NDA_CACHEINFO, raw(nda_cacheinfo{0, 0, 250, 0}));

TEST(radiod_bridge, says_where_and_when_it_heard_a_station) {
    EXPECT_EQ(parse(entry(heard)), (bridge_entry{.port = uplink, .address = ann, .age = 2500ms}));
    EXPECT_EQ(parse(entry(heard, NUD_NOARP))->age, 2500ms) << "a static entry moves";
    EXPECT_FALSE(parse(entry(heard, NUD_PERMANENT))) << "the bridge's own address";
    EXPECT_FALSE(parse(entry(heard, NUD_NOARP, NTF_STICKY)));
    EXPECT_FALSE(parse(entry(attribute(NDA_LLADDR, raw(ann)))));
    EXPECT_FALSE(parse(netlink_message(RTM_NEWNEIGH, 0, 1, {1, 2, 0, 0})));
    EXPECT_FALSE(parse(netlink_message(RTM_DELNEIGH, 0, 1, raw(ndmsg{}))));
}

octets link_message(const octets &attributes, std::uint8_t family = AF_BRIDGE) {
    ifinfomsg body{};
    body.ifi_family = family;
    body.ifi_index = static_cast<int>(wlan0);
    return netlink_message(RTM_NEWLINK, NLM_F_MULTI, 1, raw(body) + attributes);
}

std::optional<port_vlan> parse_vlan(const octets &bytes) {
    return parse_port_vlan(*reinterpret_cast<const nlmsghdr *>(bytes.data()));
}

octets vlan(std::uint16_t flags, std::uint16_t id) {
    return attribute(IFLA_BRIDGE_VLAN_INFO, raw(bridge_vlan_info{flags, id}));
}

TEST(radiod_bridge, says_on_which_vlan_a_port_is) {
    const octets vlans =
        vlan(BRIDGE_VLAN_INFO_UNTAGGED, 1) + vlan(BRIDGE_VLAN_INFO_PVID | BRIDGE_VLAN_INFO_UNTAGGED, 10) + vlan(0, 20);
    EXPECT_EQ(parse_vlan(link_message(attribute(IFLA_AF_SPEC, vlans))), (port_vlan{.port = wlan0, .pvid = 10}));
    EXPECT_EQ(parse_vlan(link_message(attribute(IFLA_AF_SPEC, vlan(0, 20)))), (port_vlan{.port = wlan0, .pvid = 0}));
    EXPECT_EQ(parse_vlan(link_message({})), (port_vlan{.port = wlan0, .pvid = 0}));
    EXPECT_FALSE(parse_vlan(link_message({}, AF_UNSPEC)));
    EXPECT_FALSE(parse_vlan(netlink_message(RTM_NEWLINK, 0, 1, {1, 2, 0, 0})));
    EXPECT_FALSE(parse_vlan(netlink_message(RTM_DELLINK, 0, 1, raw(ifinfomsg{}))));
}

TEST(radiod_bridge, lists_the_vlans_of_this_machine) { EXPECT_TRUE(list_port_vlans()); }

TEST(radiod_bridge, lists_the_entries_of_this_machine) { EXPECT_TRUE(list_bridge_entries()); }

}  // namespace
