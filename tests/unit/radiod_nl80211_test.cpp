// nl80211: messages made by hand, a kernel that the test plays, and the machine's own generic netlink.
#include <gtest/gtest.h>
#include <linux/nl80211.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <span>
#include <thread>

#include "radiod/kernel/interface_messages.h"
#include "radiod/kernel/nl80211.h"
#include "tests/unit/radiod_kernel_rig.h"

namespace {

using namespace std::chrono_literals;

constexpr std::uint16_t family = 0x1c;
constexpr std::uint32_t sequence = 7;
constexpr std::uint32_t ifindex = 5;
constexpr mac_address first{2, 0, 0, 0, 1, 1};
constexpr mac_address second{2, 0, 0, 0, 1, 2};

octets information(std::uint32_t inactive_ms, std::uint32_t connected_s, std::uint32_t mask, std::uint32_t set) {
    return attribute(NL80211_ATTR_STA_INFO,
                     attribute(NL80211_STA_INFO_CONNECTED_TIME, raw(connected_s)) +
                         attribute(NL80211_STA_INFO_INACTIVE_TIME, raw(inactive_ms)) +
                         attribute(NL80211_STA_INFO_SIGNAL, {0xd0}) +
                         attribute(NL80211_STA_INFO_STA_FLAGS, raw(nl80211_sta_flag_update{mask, set})));
}

octets station(const mac_address &mac, const octets &more = {}, std::uint32_t generation = 9, std::uint16_t flags = 0,
               std::uint8_t command = NL80211_CMD_NEW_STATION) {
    return generic_message(family, command, sequence,
                           attribute(NL80211_ATTR_IFINDEX, raw(ifindex)) + attribute(NL80211_ATTR_MAC, raw(mac)) +
                               attribute(NL80211_ATTR_GENERATION, raw(generation)) + more,
                           static_cast<std::uint16_t>(NLM_F_MULTI | flags));
}

constexpr std::uint32_t authorized = 1U << NL80211_STA_FLAG_AUTHORIZED;

// The error of a complete answer, or -1.
int error_of(const std::vector<octets> &datagrams) {
    radiod::station_answer answer(sequence);
    for (const octets &each : datagrams) {
        answer.answer().add(each);
    }
    return answer.answer().is_complete() ? answer.error() : -1;
}

}  // namespace

TEST(radiod_station_list, has_what_the_kernel_says) {
    radiod::station_answer answer(sequence);
    answer.answer().add(station(first, information(1500, 3600, authorized, authorized)) +
                        station(second, information(20, 2, authorized, 0)));
    EXPECT_FALSE(answer.answer().is_complete());
    answer.answer().add(done(sequence));
    ASSERT_TRUE(answer.answer().is_complete());
    EXPECT_EQ(answer.error(), 0);
    EXPECT_EQ(answer.stations(), (std::vector<radiod::kernel_station>{
                                     {.mac = first, .inactive = 1500ms, .connected = 3600s, .authorized = true},
                                     {.mac = second, .inactive = 20ms, .connected = 2s, .authorized = false}}));
}

TEST(radiod_station_list, takes_a_flag_that_is_not_in_the_mask_for_unset) {
    radiod::station_answer answer(sequence);
    answer.answer().add(station(first, information(0, 0, 0, authorized)) + station(second) + done(sequence));
    ASSERT_EQ(answer.stations().size(), 2U);
    EXPECT_FALSE(answer.stations()[0].authorized);
    EXPECT_FALSE(answer.stations()[1].authorized);
}

TEST(radiod_station_list, that_is_empty_is_no_error) { EXPECT_EQ(error_of({done(sequence)}), 0); }

TEST(radiod_station_list, fails_with_the_kernels_error) {
    EXPECT_EQ(error_of({failure(sequence, -ENODEV)}), ENODEV);
    EXPECT_EQ(error_of({station(first), done(sequence, -EOPNOTSUPP)}), EOPNOTSUPP);
    EXPECT_EQ(error_of({failure(sequence, 5)}), EPROTO);
    EXPECT_EQ(error_of({failure(sequence, INT32_MIN)}), EPROTO);
    EXPECT_EQ(error_of({netlink_message(NLMSG_ERROR, 0, sequence, {})}), EPROTO);
    EXPECT_EQ(error_of({netlink_message(NLMSG_OVERRUN, 0, sequence, {})}), ENOBUFS);
}

TEST(radiod_station_list, that_changed_while_it_was_read_is_an_error) {
    EXPECT_EQ(error_of({station(first, {}, 9, NLM_F_DUMP_INTR), done(sequence)}), EINTR);
    EXPECT_EQ(error_of({station(first), netlink_message(NLMSG_DONE, NLM_F_DUMP_INTR, sequence, raw(0))}), EINTR);
    EXPECT_EQ(error_of({station(first), station(second, {}, 10), done(sequence)}), EINTR);
    EXPECT_EQ(error_of({station(first, {}, 9, NLM_F_DUMP_INTR), failure(sequence, -EPERM)}), EPERM);
}

TEST(radiod_station_list, skips_the_answer_to_an_earlier_request) {
    octets late = station(second) + done(sequence);
    for (std::size_t at : {offsetof(nlmsghdr, nlmsg_seq), station(second).size() + offsetof(nlmsghdr, nlmsg_seq)}) {
        late[at] = static_cast<std::uint8_t>(sequence - 1);
    }
    radiod::station_answer answer(sequence);
    answer.answer().add(late);
    EXPECT_FALSE(answer.answer().is_complete());
    answer.answer().add(station(first) + done(sequence));
    EXPECT_EQ(answer.stations().size(), 1U);
}

TEST(radiod_station_list, needs_an_address_and_an_interface) {
    EXPECT_EQ(error_of({generic_message(family, NL80211_CMD_NEW_STATION, sequence,
                                        attribute(NL80211_ATTR_IFINDEX, raw(ifindex)))}),
              EPROTO);
    EXPECT_EQ(
        error_of({generic_message(family, NL80211_CMD_NEW_STATION, sequence, attribute(NL80211_ATTR_MAC, raw(first)))}),
        EPROTO);
    EXPECT_EQ(error_of({station(first, {}, 9, 0, NL80211_CMD_DEL_STATION)}), EPROTO);
    EXPECT_EQ(error_of({netlink_message(family, 0, sequence, {1, 2, 0, 0})}), EPROTO);
}

TEST(radiod_station_list, that_is_cut_at_any_length_is_an_error_or_incomplete) {
    const octets whole = station(first, information(1500, 3600, authorized, authorized)) + done(sequence);
    const std::size_t done_at = whole.size() - done(sequence).size();
    for (std::size_t size = 0; size < whole.size(); size++) {
        // A buffer of its own, so that a sanitizer sees a byte read too many.
        const octets cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        EXPECT_EQ(error_of({cut}), size == 0 || size == done_at ? -1 : EPROTO) << size;
    }
}

TEST(radiod_station_list, survives_every_wrong_byte) {
    const octets whole = station(first, information(1500, 3600, authorized, authorized)) + done(sequence);
    for (std::size_t at = 0; at < whole.size(); at++) {
        for (const int wrong : {0x00, 0x01, 0x7f, 0x80, 0xff}) {
            octets damaged = whole;
            damaged[at] = static_cast<std::uint8_t>(wrong);
            radiod::station_answer answer(sequence);
            answer.answer().add(damaged);
            EXPECT_LE(answer.stations().size(), 1U);
        }
    }
}

TEST(radiod_station_events, are_read_from_their_family) {
    std::vector<std::pair<unsigned, mac_address>> seen;
    const auto each = [&](const radiod::station_message &event) {
        EXPECT_EQ(event.ifindex, ifindex);
        seen.emplace_back(event.command, event.station.mac);
    };
    const octets datagram = station(first) + station(second, {}, 9, 0, NL80211_CMD_DEL_STATION) +
                            station(second, {}, 9, 0, NL80211_CMD_AUTHENTICATE) + netlink_message(family + 1, 0, 0, {});
    EXPECT_TRUE(radiod::read_station_events(datagram, family, each));
    EXPECT_EQ(seen, (std::vector<std::pair<unsigned, mac_address>>{{NL80211_CMD_NEW_STATION, first},
                                                                   {NL80211_CMD_DEL_STATION, second}}));
    for (std::size_t size = 1; size < station(first).size(); size++) {
        EXPECT_FALSE(radiod::read_station_events(octets(datagram.begin(), datagram.begin() + static_cast<long>(size)),
                                                 family, each));
    }
}

// hostapd's interfaces for the stations of a VLAN.
TEST(radiod_interfaces, of_a_vlan_have_the_address_of_their_vap) {
    const auto parse = [](std::uint32_t type, const mac_address &address, unsigned index = ifindex,
                          std::uint8_t command = NL80211_CMD_NEW_INTERFACE) {
        const octets bytes =
            generic_message(family, command, sequence,
                            attribute(NL80211_ATTR_IFINDEX, raw(index)) + attribute(NL80211_ATTR_IFTYPE, raw(type)) +
                                attribute(NL80211_ATTR_MAC, raw(address)));
        return radiod::parse_interface_message(*reinterpret_cast<const nlmsghdr *>(bytes.data()));
    };
    const auto vlan = parse(NL80211_IFTYPE_AP_VLAN, first);
    ASSERT_TRUE(vlan);
    EXPECT_EQ(vlan->ifindex, ifindex);
    EXPECT_TRUE(vlan->is_vlan_of(first));
    EXPECT_FALSE(vlan->is_vlan_of(second));
    EXPECT_FALSE(parse(NL80211_IFTYPE_AP, first)->is_vlan_of(first));
    EXPECT_FALSE(parse(NL80211_IFTYPE_AP_VLAN, first, 0));
    EXPECT_FALSE(parse(NL80211_IFTYPE_AP_VLAN, first, ifindex, NL80211_CMD_DEL_INTERFACE));
}

TEST(radiod_interfaces, that_are_cut_are_none) {
    const octets whole =
        generic_message(family, NL80211_CMD_NEW_INTERFACE, sequence,
                        attribute(NL80211_ATTR_MAC, raw(first)) + attribute(NL80211_ATTR_IFINDEX, raw(ifindex)));
    for (std::size_t size = sizeof(nlmsghdr); size < whole.size(); size += NLMSG_ALIGNTO) {
        octets cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
        reinterpret_cast<nlmsghdr *>(cut.data())->nlmsg_len = static_cast<std::uint32_t>(size);
        EXPECT_FALSE(radiod::parse_interface_message(*reinterpret_cast<const nlmsghdr *>(cut.data()))) << size;
    }
}

TEST(radiod_generic_family, has_its_groups) {
    const auto group = [](std::uint16_t number, const std::string &name, std::uint32_t id) {
        return attribute(number,
                         attribute(CTRL_ATTR_MCAST_GRP_NAME, text(name)) + attribute(CTRL_ATTR_MCAST_GRP_ID, raw(id)));
    };
    const octets message = generic_message(
        GENL_ID_CTRL, CTRL_CMD_NEWFAMILY, 1,
        attribute(CTRL_ATTR_FAMILY_NAME, text("nl80211")) + attribute(CTRL_ATTR_FAMILY_ID, raw(family)) +
            attribute(CTRL_ATTR_MCAST_GROUPS, group(1, "scan", 4) + group(2, "mlme", 6)));
    const auto parse = [](const octets &bytes) {
        return radiod::parse_family(*reinterpret_cast<const nlmsghdr *>(bytes.data()));
    };
    ASSERT_TRUE(parse(message));
    EXPECT_EQ(parse(message)->id, family);
    EXPECT_EQ(parse(message)->groups, (decltype(radiod::generic_family::groups){{"scan", 4}, {"mlme", 6}}));
    EXPECT_FALSE(parse(generic_message(GENL_ID_CTRL, CTRL_CMD_NEWFAMILY, 1, {})));
    EXPECT_FALSE(parse(netlink_message(GENL_ID_CTRL, 0, 1, {})));
}

// The machine's own kernel.
TEST(radiod_generic_netlink, finds_a_family) {
    const auto control = radiod::find_family("nlctrl");
    ASSERT_TRUE(control);
    EXPECT_EQ(control->id, GENL_ID_CTRL);
    EXPECT_TRUE(control->groups.contains("notify"));
    EXPECT_FALSE(radiod::find_family("no such family"));
    EXPECT_FALSE(radiod::find_family(std::string(300, 'x')));
}

TEST(radiod_nl80211, says_when_the_kernel_has_no_wireless) {
    if (radiod::find_family("nl80211")) {
        GTEST_SKIP() << "the kernel here has nl80211";
    }
    try {
        radiod::nl80211 kernel;
        FAIL();
    } catch (const std::runtime_error &error) {
        EXPECT_STREQ(error.what(), "the kernel has no nl80211: is a wireless driver loaded?");
    }
}

radiod::nl80211::time_point soon() { return std::chrono::steady_clock::now() + 20s; }

// The controller of generic netlink takes the place of nl80211; it has no list of stations.
TEST(radiod_nl80211, returns_the_error_when_it_can_open_no_socket_and_tries_again) {
    radiod::nl80211 kernel(radiod::find_family("nlctrl").value());
    rlimit before{};
    ASSERT_EQ(getrlimit(RLIMIT_NOFILE, &before), 0);
    rlimit none = before;
    none.rlim_cur = 0;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &none), 0);
    const int error = kernel.stations(ifindex, soon()).error;
    const int error_of_one = kernel.station(ifindex, first).error;
    const int error_of_vlans = kernel.vlan_interfaces(first, soon()).error;
    ASSERT_EQ(setrlimit(RLIMIT_NOFILE, &before), 0);
    EXPECT_EQ(error, EMFILE);
    EXPECT_EQ(error_of_one, EMFILE);
    EXPECT_EQ(error_of_vlans, EMFILE);
    EXPECT_EQ(kernel.stations(ifindex, soon()).error, EOPNOTSUPP);
    EXPECT_EQ(kernel.vlan_interfaces(first, soon()).error, EOPNOTSUPP);
}

TEST(radiod_nl80211, reads_a_list_that_changes_until_its_time_is_over) {
    int reads = 0;
    const auto changes = [&](int times) {
        reads = 0;
        return [&reads, times] { return radiod::kernel_stations{.error = ++reads <= times ? EINTR : 0}; };
    };
    const auto now = std::chrono::steady_clock::now();
    EXPECT_EQ(radiod::read_unchanged(changes(50), now + 20s).error, 0);
    EXPECT_EQ(reads, 51);
    EXPECT_EQ(radiod::read_unchanged(changes(50), now).error, EAGAIN);
    EXPECT_EQ(reads, 1);
    EXPECT_EQ(radiod::read_unchanged([] { return radiod::kernel_stations{.error = ENODEV}; }, now + 20s).error, ENODEV);
}

// The test is the kernel, at the other end of a pair of sockets.
class radiod_netlink_exchange : public testing::Test {
protected:
    void SetUp() override { ASSERT_EQ(socketpair(AF_UNIX, SOCK_DGRAM | SOCK_NONBLOCK, 0, fds_.data()), 0); }
    ~radiod_netlink_exchange() override {
        close(fds_[0]);
        close(fds_[1]);
    }
    void reply(const octets &datagram) const { send(fds_[1], datagram.data(), datagram.size(), 0); }
    int ask(radiod::station_answer &answer, std::chrono::milliseconds patience = 20s) const {
        radiod::generic_request request(family, NL80211_CMD_GET_STATION, NLM_F_DUMP, sequence);
        return radiod::exchange(fds_[0], request.head(), answer.answer(), patience);
    }

    std::array<int, 2> fds_{};
};

TEST_F(radiod_netlink_exchange, collects_the_datagrams_of_an_answer) {
    reply(station(first));
    std::thread kernel([this] {
        std::this_thread::sleep_for(10ms);
        reply(station(second));
        reply(done(sequence));
    });
    radiod::station_answer answer(sequence);
    EXPECT_EQ(ask(answer), 0);
    kernel.join();
    EXPECT_EQ(answer.stations().size(), 2U);
    octets request(256);
    request.resize(static_cast<std::size_t>(recv(fds_[1], request.data(), request.size(), 0)));
    EXPECT_EQ(request,
              netlink_message(family, NLM_F_REQUEST | NLM_F_DUMP, sequence, {NL80211_CMD_GET_STATION, 1, 0, 0}));
}

TEST_F(radiod_netlink_exchange, ends_when_its_time_is_over) {
    reply(station(first));
    const auto start = std::chrono::steady_clock::now();
    radiod::station_answer answer(sequence);
    EXPECT_EQ(ask(answer, radiod::nl80211::patience), ETIMEDOUT);
    EXPECT_GE(std::chrono::steady_clock::now() - start, radiod::nl80211::patience);
    EXPECT_FALSE(answer.answer().is_complete());
}

TEST_F(radiod_netlink_exchange, rejects_a_datagram_that_is_too_long) {
    reply(octets(40000));
    radiod::station_answer answer(sequence);
    EXPECT_EQ(ask(answer), EMSGSIZE);
}
