#include "platform/linux/client_paths/client_paths.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace {

using where = kx::bridge_call::client;
using kind = kx::path_entry::kind;

constexpr mac_address sta{{2, 0, 0, 0, 0xaa, 1}};
constexpr mac_address other_sta{{2, 0, 0, 0, 0xaa, 2}};
constexpr std::uint32_t peer1 = 0x0a010001, peer2 = 0x0a010002;
constexpr int wlan0 = 10, wlan1 = 11, own = 21, other_own = 22, bridge = 5;

std::string text_of(const kx::path_entry &entry) {
    static const std::array<const char *, 11> names{"forwarding",  "vap_rules",     "vap_guard",   "group_copies",
                                                    "port_vlan",   "uplink",        "downlink",    "tunnel_port",
                                                    "tunnel_vlan", "tunnel_groups", "moved_client"};
    std::string text = names[static_cast<std::size_t>(entry.what)];
    if (entry.mac != mac_address{}) {
        text += " sta" + std::to_string(entry.mac[5]);
    }
    for (auto [name, value] : {std::pair{" vlan ", std::uint32_t{entry.vlan}},
                               {" if ", static_cast<std::uint32_t>(entry.ifindex)},
                               {" peer ", entry.peer & 0xffu}}) {
        text += value == 0 ? "" : name + std::to_string(value);
    }
    return text;
}

// Holds what a kernel would hold.
class recorded_kernel final : public kx::path_kernel {
public:
    kx::bridge_port find_port(const char *ifname) override {
        auto known = ports.find(ifname);
        return known == ports.end() ? kx::bridge_port{.error = ENODEV} : known->second;
    }
    int home_bridge() override { return bridge_of_vaps; }
    int apply(std::span<const kx::path_change> changes) override {
        applied++;
        int error = 0;
        for (const kx::path_change &change : changes) {
            const std::string text = text_of(change.entry);
            if (!change.adds) {
                EXPECT_EQ(entries.erase(text), 1u) << text;
            } else if (change.entry.what == refused) {
                error = EOPNOTSUPP;
                entries.insert(text);  // so that what was made in part is removed
            } else {
                EXPECT_TRUE(entries.insert(text).second || change.entry.what == kind::forwarding) << text;
            }
        }
        return error;
    }
    void refuse(const mac_address &client, const char *ifname) override {
        refusals.push_back(std::string(ifname) + " sta" + std::to_string(client[5]));
    }
    void report(const char *, int error) override { reported = error; }

    std::map<std::string, kx::bridge_port> ports{
        {"wlan0", {.error = 0, .ifindex = wlan0, .bridge = bridge, .filters_vlans = true}},
        {"wlan1", {.error = 0, .ifindex = wlan1, .bridge = bridge, .filters_vlans = true}},
        {"plain", {.error = 0, .ifindex = 12, .bridge = 6, .filters_vlans = false}},
    };
    std::set<std::string> entries;
    std::vector<std::string> refusals;
    int bridge_of_vaps = bridge;
    int reported = 0;
    int applied = 0;
    kind refused = static_cast<kind>(255);
};

kx::client_tunnel_statement statement(std::uint32_t says, const mac_address &client = {}, std::uint16_t vlan = 0,
                                      std::uint32_t peer = 0, std::uint32_t ifindex = 0) {
    kx::client_tunnel_statement made{};
    made.kind = says;
    made.client = client;
    made.vlan = vlan;
    made.peer = peer;
    made.ifindex = ifindex;
    return made;
}

}  // namespace

class client_paths_rig : public testing::Test {
public:
    client_paths_rig() { paths.carry_roamed_clients(true); }

    int call(where place, const char *ifname, std::uint16_t vlan, const mac_address &client = sta) {
        kx::bridge_call made{.vlan = vlan, .where = place};
        std::strncpy(made.ifname, ifname, sizeof(made.ifname) - 1);
        return paths.called(client, made, now);
    }
    void state(const kx::client_tunnel_statement &made) { EXPECT_TRUE(paths.stated(made, now)); }
    void state_foreign(const mac_address &client = sta, std::uint32_t peer = peer1) {
        state(statement(kx::client_tunnel_foreign, client, 10, peer));
    }
    void state_home(std::uint32_t peer = peer1, const mac_address &client = sta) {
        state(statement(kx::client_tunnel_home, client, 10, peer));
    }
    void state_interface(int ifindex = own, const mac_address &client = sta) {
        state(statement(kx::client_tunnel_interface, client, 0, 0, static_cast<std::uint32_t>(ifindex)));
    }

    const std::set<std::string> to_home{"vap_rules if 10", "vap_guard sta1 if 10", "group_copies sta1 if 21",
                                        "uplink sta1 vlan 10 if 21 peer 1", "downlink sta1 vlan 10 if 21 peer 1"};
    const std::set<std::string> to_client{"tunnel_port if 5", "tunnel_vlan vlan 10", "tunnel_groups vlan 10 peer 1",
                                          "moved_client sta1 vlan 10 peer 1"};
    const std::set<std::string> on_own_port{"vap_rules if 10", "vap_guard sta1 if 10", "group_copies sta1 if 21",
                                            "port_vlan sta1 vlan 10 if 21", "forwarding sta1 vlan 10 if 21"};

    recorded_kernel kernel;
    std::unique_ptr<kx::client_paths_room> room = std::make_unique<kx::client_paths_room>();
    kx::client_paths paths{kernel, *room};
    std::uint32_t now = 1000;
};

using client_paths = client_paths_rig;

TEST_F(client_paths, forward_a_client_to_its_vap) {
    EXPECT_EQ(call(where::here, "wlan0", 10), 0);
    EXPECT_EQ(kernel.entries, std::set<std::string>{"forwarding sta1 vlan 10 if 10"});
    EXPECT_EQ(call(where::here, "plain", 10), 0);
    EXPECT_EQ(kernel.entries, std::set<std::string>{"forwarding sta1 if 12"});
    EXPECT_EQ(call(where::here, "none", 10), -1);
    EXPECT_EQ(kernel.entries, std::set<std::string>{});
    EXPECT_EQ(kernel.reported, ENODEV);
    EXPECT_EQ(paths.call_taken_back(sta), 0);
    EXPECT_EQ(paths.call_taken_back(sta), 0);
}

TEST_F(client_paths, renew_the_entry_of_a_client_that_the_bridge_may_have_moved) {
    EXPECT_EQ(call(where::here, "wlan0", 10), 0);
    EXPECT_EQ(call(where::here, "wlan0", 10), 0);
    EXPECT_EQ(kernel.applied, 2);
}

// Whatever is said first, the path is there when all has been said, and gone when one of it is withdrawn.
TEST_F(client_paths, of_a_client_from_another_vlan_need_all_three_in_any_order) {
    std::array<std::function<void()>, 3> say{[&] { EXPECT_EQ(call(where::tunnelled, "wlan0", 10), 0); },
                                             [&] { state_foreign(); }, [&] { state_interface(); }};
    std::array<std::function<void()>, 3> take_back{[&] { EXPECT_EQ(paths.call_taken_back(sta), 0); },
                                                   [&] { state(statement(kx::client_tunnel_gone, sta)); },
                                                   [&] { state(statement(kx::client_tunnel_no_interface, sta)); }};
    std::array<std::size_t, 3> order{0, 1, 2};
    do {
        std::array<std::size_t, 3> back{0, 1, 2};
        do {
            for (std::size_t i = 0; i < order.size(); i++) {
                EXPECT_EQ(kernel.entries, std::set<std::string>{});
                say[order[i]]();
            }
            EXPECT_EQ(kernel.entries, to_home);
            for (std::size_t i : back) {
                take_back[i]();
                EXPECT_EQ(kernel.entries, std::set<std::string>{});
            }
            EXPECT_FALSE(paths.has_waiting());
        } while (std::ranges::next_permutation(back).found);
    } while (std::ranges::next_permutation(order).found);
    EXPECT_EQ(kernel.refusals, std::vector<std::string>{});
}

TEST_F(client_paths, of_a_client_that_moved_away_need_the_statement_and_no_other_call) {
    EXPECT_EQ(call(where::here, "wlan0", 10), 0);
    state_home();
    EXPECT_EQ(kernel.entries, std::set<std::string>{"forwarding sta1 vlan 10 if 10"});
    EXPECT_EQ(call(where::away, "tun0", 10), 0);
    EXPECT_EQ(kernel.entries, to_client);
    EXPECT_EQ(paths.call_taken_back(sta), 0);
    EXPECT_EQ(kernel.entries, to_client);  // as after a new start of the daemon
    state(statement(kx::client_tunnel_gone, sta));
    EXPECT_EQ(kernel.entries, std::set<std::string>{});
    EXPECT_EQ(call(where::away, "tun0", 10), 0);
    EXPECT_EQ(kernel.entries, std::set<std::string>{});
    state_home();
    EXPECT_EQ(kernel.entries, to_client);
}

TEST_F(client_paths, change_at_once_when_a_client_comes_home) {
    state_home();
    EXPECT_EQ(call(where::here, "wlan0", 10), 0);
    EXPECT_EQ(kernel.entries, std::set<std::string>{"forwarding sta1 vlan 10 if 10"});
    state(statement(kx::client_tunnel_gone, sta));
    EXPECT_EQ(kernel.entries, std::set<std::string>{"forwarding sta1 vlan 10 if 10"});
}

TEST_F(client_paths, follow_a_client_that_moves_on) {
    state_home();
    state_home(peer2);
    EXPECT_EQ(kernel.entries,
              (std::set<std::string>{"tunnel_port if 5", "tunnel_vlan vlan 10", "tunnel_groups vlan 10 peer 2",
                                     "moved_client sta1 vlan 10 peer 2"}));
}

TEST_F(client_paths, are_none_while_call_and_statement_disagree_about_the_vlan) {
    EXPECT_EQ(call(where::tunnelled, "wlan0", 30), 0);
    state_foreign();
    state_interface();
    EXPECT_EQ(kernel.entries, std::set<std::string>{});
    EXPECT_TRUE(paths.has_waiting());
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10), 0);
    EXPECT_EQ(kernel.entries, to_home);
    EXPECT_FALSE(paths.has_waiting());
}

TEST_F(client_paths, make_a_clients_own_interface_a_port_of_its_vlan) {
    EXPECT_EQ(call(where::here, "wlan0", 10), 0);
    state_interface();
    EXPECT_EQ(kernel.entries, on_own_port);
    state_interface(wlan0);
    EXPECT_EQ(kernel.entries, std::set<std::string>{"forwarding sta1 vlan 10 if 10"});
    // Both ends are here.
    state_interface();
    state(statement(kx::client_tunnel_local, sta, 10));
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10), 0);
    EXPECT_EQ(kernel.entries, on_own_port);
}

TEST_F(client_paths, share_what_several_need) {
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10), 0);
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10, other_sta), 0);
    for (const auto &[client, ifindex] : {std::pair{sta, own}, {other_sta, other_own}}) {
        state_foreign(client);
        state_interface(ifindex, client);
    }
    EXPECT_EQ(kernel.entries.size(), 9u);
    EXPECT_EQ(paths.call_taken_back(other_sta), 0);
    EXPECT_EQ(kernel.entries, to_home);
    paths.clear();
    EXPECT_EQ(kernel.entries, std::set<std::string>{});

    state_home(peer1);
    state_home(peer1, other_sta);
    EXPECT_EQ(kernel.entries.size(), 5u);
    state_home(peer2, other_sta);
    EXPECT_EQ(kernel.entries.size(), 6u);
    state(statement(kx::client_tunnel_gone, other_sta));
    EXPECT_EQ(kernel.entries, to_client);
}

TEST_F(client_paths, end_with_statements_that_are_not_repeated) {
    state_home();
    state_home(peer1, other_sta);
    state_interface(own, other_sta);
    const std::set<std::string> both = kernel.entries;
    const int applied = kernel.applied;
    state(statement(kx::client_tunnel_peers_begin));
    state_home();
    state_home(peer1, other_sta);
    state(statement(kx::client_tunnel_peers_end));
    EXPECT_EQ(kernel.entries, both);
    EXPECT_EQ(kernel.applied, applied);  // traffic is not interrupted
    state(statement(kx::client_tunnel_peers_begin));
    state_home();
    state(statement(kx::client_tunnel_peers_end));
    EXPECT_EQ(kernel.entries, to_client);
    state(statement(kx::client_tunnel_interfaces_begin));
    state(statement(kx::client_tunnel_interfaces_end));
    EXPECT_EQ(call(where::here, "wlan0", 10, other_sta), 0);
    EXPECT_TRUE(kernel.entries.contains("forwarding sta2 vlan 10 if 10"));
}

// hostapd is started after the daemon, or once more.
TEST_F(client_paths, follow_the_vaps_into_their_bridge_and_out_of_it) {
    const kx::bridge_port in_bridge = kernel.ports["wlan0"];
    EXPECT_EQ(call(where::here, "wlan0", 10, other_sta), 0);
    kernel.bridge_of_vaps = 0;
    kernel.ports["wlan0"] = {.error = ENOTCONN, .ifindex = wlan0};
    state_home();
    paths.links_changed(now);
    EXPECT_EQ(kernel.entries, std::set<std::string>{});
    kernel.bridge_of_vaps = bridge;
    kernel.ports["wlan0"] = in_bridge;
    paths.links_changed(now);
    std::set<std::string> both = to_client;
    both.insert("forwarding sta2 vlan 10 if 10");
    EXPECT_EQ(kernel.entries, both);
    const int applied = kernel.applied;
    paths.links_changed(now);
    EXPECT_EQ(kernel.applied, applied);
}

TEST_F(client_paths, come_back_with_a_new_tunnel) {
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10), 0);
    state_foreign();
    state_interface();
    state_home(peer2, other_sta);
    const std::set<std::string> both = kernel.entries;
    paths.tunnel_lost();
    EXPECT_EQ(kernel.entries, std::set<std::string>{});
    paths.carry_roamed_clients(true);
    paths.links_changed(now);
    EXPECT_EQ(kernel.entries, both);
    EXPECT_EQ(kernel.refusals.size(), 0u);
}

TEST_F(client_paths, refuse_tunnelled_clients_when_there_is_no_new_tunnel) {
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10), 0);
    state_foreign();
    state_interface();
    paths.tunnel_lost();
    paths.carry_roamed_clients(false);
    paths.links_changed(now);
    paths.links_changed(now);
    EXPECT_EQ(kernel.refusals, std::vector<std::string>{"wlan0 sta1"});
    EXPECT_TRUE(paths.has_waiting());
}

TEST_F(client_paths, refuse_a_client_on_the_interface_of_the_vap_at_once) {
    state_interface(wlan0);
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10), -1);
    EXPECT_EQ(kernel.refusals, std::vector<std::string>{"wlan0 sta1"});
}

TEST_F(client_paths, refuse_a_client_that_waits_in_vain_until_it_leaves) {
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10), 0);
    now += kx::client_paths::patience_ms - 1;
    paths.refuse_waiting(now);
    EXPECT_EQ(kernel.refusals.size(), 0u);
    state_interface();
    now += 1;
    paths.refuse_waiting(now);
    EXPECT_EQ(kernel.refusals.size(), 1u);
    now += kx::client_paths::patience_ms;
    paths.refuse_waiting(now);
    EXPECT_EQ(kernel.refusals.size(), 2u);
    EXPECT_EQ(paths.call_taken_back(sta), 0);
    EXPECT_FALSE(paths.has_waiting());
}

TEST_F(client_paths, refuse_every_tunnelled_client_without_tunnels) {
    paths.carry_roamed_clients(false);
    state_interface();
    state_foreign();
    EXPECT_EQ(call(where::tunnelled, "wlan0", 10), -1);
    EXPECT_EQ(kernel.entries, std::set<std::string>{});
    EXPECT_EQ(kernel.refusals, std::vector<std::string>{"wlan0 sta1"});
}

TEST_F(client_paths, leave_nothing_of_a_path_that_the_kernel_refused) {
    for (kind refused : {kind::group_copies, kind::uplink, kind::downlink}) {
        kernel.refused = refused;
        state_foreign();
        state_interface();
        EXPECT_EQ(call(where::tunnelled, "wlan0", 10), -1);
        EXPECT_EQ(kernel.entries, std::set<std::string>{});
        EXPECT_EQ(kernel.reported, EOPNOTSUPP);
        paths.clear();
    }
    EXPECT_EQ(kernel.refusals.size(), 3u);
}

TEST(client_paths_switched_off, forward_tunnelled_clients_like_others) {
    recorded_kernel kernel;
    auto room = std::make_unique<kx::client_paths_room>();
    kx::client_paths paths(kernel, *room);
    EXPECT_EQ(paths.called(sta, {.ifname = "wlan0", .vlan = 10, .where = where::tunnelled}, 0), 0);
    EXPECT_EQ(kernel.entries, std::set<std::string>{"forwarding sta1 vlan 10 if 10"});
}

// However it came about, the kernel has what follows from what was said last.
TEST_F(client_paths, depend_on_what_was_said_last_alone) {
    std::mt19937 random(1);
    auto up_to = [&random](unsigned limit) { return static_cast<unsigned>(random() % limit); };
    constexpr unsigned clients = 6;
    for (int round = 0; round < 30; round++) {
        std::vector<std::function<void(client_paths_rig &)>> last(clients * 3, [](client_paths_rig &) {});
        for (int step = 0; step < 200; step++) {
            const unsigned number = up_to(clients);
            const mac_address client{{2, 0, 0, 0, 0xaa, static_cast<std::uint8_t>(number + 1)}};
            const unsigned what = up_to(3);
            const auto vlan = static_cast<std::uint16_t>(10 * (1 + up_to(2)));
            std::function<void(client_paths_rig &)> say;
            if (what == 0) {
                const auto place = static_cast<where>(up_to(4));
                const char *ifname = place == where::away ? "tun0" : up_to(2) == 0 ? "wlan0" : "wlan1";
                say = [=](client_paths_rig &to) {
                    if (place == where::unknown) {
                        to.paths.call_taken_back(client);
                    } else {
                        to.call(place, ifname, vlan, client);
                    }
                };
            } else if (what == 1) {
                const std::uint32_t role = kx::client_tunnel_home + up_to(4);
                const bool has_peer = role == kx::client_tunnel_home || role == kx::client_tunnel_foreign;
                const auto made = statement(role, client, role == kx::client_tunnel_gone ? std::uint16_t{0} : vlan,
                                            has_peer ? peer1 + up_to(2) : 0);
                say = [=](client_paths_rig &to) { to.state(made); };
            } else {
                const bool has = up_to(4) != 0;
                const auto made = statement(has ? kx::client_tunnel_interface : kx::client_tunnel_no_interface, client,
                                            0, 0, has ? (up_to(4) == 0 ? wlan0 : own + number) : 0);
                say = [=](client_paths_rig &to) { to.state(made); };
            }
            say(*this);
            last[number * 3 + what] = say;
        }
        const std::set<std::string> came_about = kernel.entries;
        paths.clear();
        EXPECT_EQ(kernel.entries, std::set<std::string>{});
        for (const auto &say : last) {
            say(*this);
        }
        EXPECT_EQ(kernel.entries, came_about) << "round " << round;
        paths.clear();
    }
}

TEST_F(client_paths, hold_2048_clients) {
    auto nth = [](unsigned i) {
        return mac_address{{2, 0, 0, 1, static_cast<std::uint8_t>(i >> 8), static_cast<std::uint8_t>(i)}};
    };
    std::vector<unsigned> order(kx::client_paths::most);
    for (unsigned i = 0; i < order.size(); i++) {
        order[i] = i * 1021 % kx::client_paths::most;  // 1021 and 2048 have no common divisor
        EXPECT_TRUE(paths.stated(statement(kx::client_tunnel_interface, nth(order[i]), 0, 0, own), now));
    }
    EXPECT_FALSE(paths.stated(statement(kx::client_tunnel_interface, sta, 0, 0, own), now));
    EXPECT_EQ(call(where::here, "wlan0", 10), -1);
    state(statement(kx::client_tunnel_no_interface, nth(7)));
    EXPECT_EQ(call(where::here, "wlan0", 10), 0);
    for (unsigned i : order) {
        state(statement(kx::client_tunnel_no_interface, nth(i)));
    }
    EXPECT_EQ(paths.call_taken_back(sta), 0);
    EXPECT_EQ(kernel.entries, std::set<std::string>{});
}
