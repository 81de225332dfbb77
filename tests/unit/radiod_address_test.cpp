// Addresses of stations in ARP and DHCP packets. The packet socket is tested on a pair of virtual interfaces.
#include <gtest/gtest.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sched.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cstdlib>
#include <optional>

#include "radiod/kernel/address_filter.h"
#include "radiod/kernel/address_snoop.h"
#include "tests/unit/event_rig.h"
#include "tests/unit/radiod_kernel_rig.h"

namespace {

constexpr mac_address station{2, 0, 0, 0, 0xc, 1};
constexpr mac_address router{2, 0, 0, 0, 0xa, 1};
constexpr std::uint32_t ip = 0x0a00000b;  // 10.0.0.11
const octets ip_bytes{10, 0, 0, 11};
const octets tag{0x81, 0, 0, 10};
const octets arp_type{8, 6};
const octets ipv4_type{8, 0};

octets big16(std::size_t value) { return {static_cast<std::uint8_t>(value >> 8U), static_cast<std::uint8_t>(value)}; }
octets bytes_of(const mac_address &mac) { return {mac.begin(), mac.end()}; }

constexpr mac_address everybody{0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
octets ethernet(const mac_address &from, const octets &type_and_payload, const mac_address &to = everybody) {
    return bytes_of(to) + bytes_of(from) + type_and_payload;
}
octets arp(const mac_address &sender, const octets &sender_ip) {
    return octets{0, 1, 8, 0, 6, 4, 0, 1} + bytes_of(sender) + sender_ip + octets(6) + octets{10, 0, 0, 1};
}

const octets ack_options{53, 1, 5, 54, 4, 10, 0, 0, 1, 255};

octets dhcp(const octets &options, std::uint8_t op = 2) {
    return octets{op, 1, 6, 0} + octets(12) + ip_bytes + octets(8) + bytes_of(station) + octets(202) +
           octets{0x63, 0x82, 0x53, 0x63} + options;
}
octets udp(std::uint16_t from, std::uint16_t to, const octets &payload) {
    return big16(from) + big16(to) + big16(8 + payload.size()) + octets{0, 0} + payload;
}
octets ipv4(const octets &datagram, const octets &options = {}, std::uint16_t fragment = 0,
            std::uint8_t protocol = 17) {
    return octets{static_cast<std::uint8_t>(0x45 + options.size() / 4), 0} +
           big16(20 + options.size() + datagram.size()) + octets{0, 0} + big16(fragment) + octets{64, protocol, 0, 0} +
           octets{10, 0, 0, 1} + octets{255, 255, 255, 255} + options + datagram;
}
octets ack() { return ipv4(udp(67, 68, dhcp(ack_options))); }

std::optional<radiod::seen_address> seen_from(const mac_address &source) {
    return radiod::seen_address{.used = {.station = station, .ip = ip}, .source = source};
}

}  // namespace

TEST(radiod_address, is_the_sender_of_an_arp_packet) {
    const octets packet = arp(station, ip_bytes);
    EXPECT_EQ(radiod::find_address(ethernet(station, arp_type + packet)), seen_from(station));
    EXPECT_EQ(radiod::find_address(ethernet(station, tag + arp_type + packet)), seen_from(station));
    EXPECT_EQ(radiod::find_address(ethernet(station, arp_type + arp(station, {0, 0, 0, 0}))), std::nullopt);
    EXPECT_EQ(radiod::find_address(ethernet(station, arp_type + arp({3, 0, 0, 0, 0, 1}, ip_bytes))), std::nullopt);
    EXPECT_EQ(radiod::find_address(ethernet(router, arp_type + packet)), std::nullopt);
    EXPECT_EQ(radiod::find_address(ethernet(router, tag + arp_type + packet)), std::nullopt);
    octets other = packet;
    other[1] = 6;
    EXPECT_EQ(radiod::find_address(ethernet(station, arp_type + other)), std::nullopt);
}

TEST(radiod_address, is_in_an_acknowledgement_of_dhcp) {
    EXPECT_EQ(radiod::find_address(ethernet(router, ipv4_type + ack())), seen_from(router));
    EXPECT_EQ(radiod::find_address(ethernet(router, tag + ipv4_type + ack())), seen_from(router));
    EXPECT_EQ(radiod::find_address(ethernet(
                  router, ipv4_type + ipv4(udp(67, 68, dhcp(octets{0, 12, 1, 'a'} + ack_options)), octets(8)))),
              seen_from(router));
    EXPECT_EQ(radiod::find_address(ethernet(router, ipv4_type + ack(), station)), seen_from(router));
    EXPECT_EQ(radiod::find_address(ethernet(router, ipv4_type + ack(), {2, 0, 0, 0, 0xc, 2})), std::nullopt);
    for (const octets &wrong : {
             ipv4(udp(67, 68, dhcp({53, 1, 2, 255}))),          // an offer
             ipv4(udp(67, 68, dhcp({53, 2, 5, 0, 255}))),       // a type of two bytes
             ipv4(udp(67, 68, dhcp({255, 53, 1, 5}))),          // behind the end
             ipv4(udp(67, 68, dhcp({12, 200, 53, 1, 5}))),      // an option longer than the message
             ipv4(udp(67, 68, dhcp({53}))),                     // no length
             ipv4(udp(67, 68, dhcp({}))),                       // no options
             ipv4(udp(67, 68, dhcp(ack_options, 1))),           // a request
             ipv4(udp(68, 67, dhcp(ack_options))),              // to the server
             ipv4(udp(67, 68, dhcp(ack_options)), {}, 0x2000),  // the first fragment
             ipv4(udp(67, 68, dhcp(ack_options)), {}, 0, 6),    // TCP
             ipv4(udp(67, 68, octets(240) + ack_options)),      // no magic cookie
         }) {
        EXPECT_EQ(radiod::find_address(ethernet(router, ipv4_type + wrong)), std::nullopt);
    }
}

TEST(radiod_address, is_in_no_frame_that_was_cut) {
    for (const octets &whole : {ethernet(station, arp_type + arp(station, ip_bytes)),
                                ethernet(router, ipv4_type + ack()), ethernet(router, tag + ipv4_type + ack())}) {
        for (std::size_t size = 0; size < whole.size(); size++) {
            const octets cut(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size));
            EXPECT_EQ(radiod::find_address(cut), std::nullopt) << size;
        }
    }
}

TEST(radiod_address, survives_every_wrong_byte) {
    for (const octets &whole :
         {ethernet(station, arp_type + arp(station, ip_bytes)), ethernet(router, tag + ipv4_type + ack())}) {
        for (std::size_t at = 0; at < whole.size(); at++) {
            for (const int wrong : {0x00, 0x01, 0x4f, 0x7f, 0x80, 0xff}) {
                octets damaged = whole;
                damaged[at] = static_cast<std::uint8_t>(wrong);
                radiod::find_address(damaged);
            }
        }
    }
}

// The VAP vap0 and, at the other end of the air, sta0.
class radiod_address_snoop : public testing::Test, protected event_rig {
protected:
    void SetUp() override {
        static const bool entered = unshare(CLONE_NEWNET) == 0;
        if (!entered ||
            run("ip link add vap0 type veth peer name sta0 && ip link set vap0 up && ip link set sta0 up")) {
            GTEST_SKIP() << "network namespaces or virtual interfaces are not permitted here";
        }
        air_ = socket_on("sta0");
        snoop_.emplace(base.get(), "vap0");
        snoop_->on_address = [this](const radiod::seen_address &each) { seen_.push_back(each); };
    }
    void TearDown() override {
        snoop_.reset();
        close(air_);
        run("ip link del vap0");
    }

    static int run(const std::string &command) { return std::system((command + " 2>/dev/null").c_str()); }
    static int socket_on(const char *ifname) {
        const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
        sockaddr_ll address{};
        address.sll_family = AF_PACKET;
        address.sll_ifindex = static_cast<int>(if_nametoindex(ifname));
        EXPECT_EQ(bind(fd, reinterpret_cast<const sockaddr *>(&address), sizeof address), 0);
        return fd;
    }
    // A station's frame that arrives at the VAP.
    void arrives(const octets &frame) const {
        EXPECT_EQ(send(air_, frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
    }
    // A frame that the access point sends.
    static void leaves(const octets &frame) {
        const int fd = socket_on("vap0");
        EXPECT_EQ(send(fd, frame.data(), frame.size(), 0), static_cast<ssize_t>(frame.size()));
        close(fd);
    }

    int air_ = -1;
    std::optional<radiod::address_snoop> snoop_;
    std::vector<radiod::seen_address> seen_;
};

TEST_F(radiod_address_snoop, finds_addresses_and_is_not_woken_by_other_traffic) {
    const octets arp_packet = arp(station, ip_bytes);
    // None of these passes the filter.
    leaves(ethernet(router, arp_type + arp(router, {10, 0, 0, 1})));
    leaves(ethernet(router, ipv4_type + ipv4(udp(1000, 53, octets(40)))));
    leaves(ethernet(router, ipv4_type + ipv4(udp(67, 69, dhcp(ack_options)))));
    leaves(ethernet(router, ipv4_type + ipv4(udp(68, 67, dhcp(ack_options, 1)))));
    leaves(ethernet(router, ipv4_type + ipv4(octets(40), {}, 0, 6)));
    leaves(ethernet(router, ipv4_type + ipv4(udp(67, 68, octets(40)), {}, 5)));
    leaves(ethernet(router, octets{0x86, 0xdd} + octets(60)));
    leaves(ethernet(router, tag + ipv4_type + ipv4(udp(67, 66, dhcp(ack_options)))));
    arrives(ethernet(station, octets{8, 7}));
    for (const mac_address &from : {station, router}) {
        arrives(ethernet(from, ipv4_type + ack()));
        arrives(ethernet(from, tag + ipv4_type + ack()));
    }
    // All of these do.
    const std::vector<octets> arriving = {
        ethernet(station, arp_type + arp_packet),
        ethernet(station, tag + arp_type + arp_packet),
        ethernet(station, octets{0x88, 0xa8, 0, 10} + tag + arp_type + arp_packet),
    };
    const std::vector<octets> leaving = {
        ethernet(router, ipv4_type + ack()),
        ethernet(router, tag + ipv4_type + ack()),
        ethernet(router, ipv4_type + ipv4(udp(67, 68, dhcp(ack_options)), octets(12))),
    };
    for (const octets &frame : arriving) {
        arrives(frame);
    }
    EXPECT_TRUE(run_until([&] { return seen_.size() >= arriving.size(); }));
    for (const octets &frame : leaving) {
        leaves(frame);
    }
    std::vector<radiod::seen_address> expected(arriving.size(), *seen_from(station));
    expected.resize(arriving.size() + leaving.size(), *seen_from(router));
    EXPECT_TRUE(run_until([&] { return seen_.size() >= expected.size(); }));
    settle();
    EXPECT_EQ(seen_, expected);
    EXPECT_EQ(snoop_->frames(), expected.size());
}

TEST_F(radiod_address_snoop, lasts_while_the_interface_is_down_and_is_lost_when_it_is_removed) {
    EXPECT_FALSE(snoop_->is_lost());
    run("ip link set vap0 down");
    settle();
    run("ip link set vap0 up");
    EXPECT_TRUE(run_until([&] {
        send(air_, ethernet(station, arp_type + arp(station, ip_bytes)).data(), 42, 0);
        return !seen_.empty();
    }));
    EXPECT_FALSE(snoop_->is_lost());
    run("ip link del vap0");
    settle();
    EXPECT_TRUE(snoop_->is_lost());
}

TEST_F(radiod_address_snoop, says_which_interface_it_cannot_watch) {
    try {
        radiod::address_snoop none(base.get(), "none0");
        FAIL();
    } catch (const std::system_error &error) {
        EXPECT_EQ(error.code().value(), ENODEV);
        EXPECT_TRUE(std::string(error.what()).starts_with("none0: packet socket")) << error.what();
    }
}
