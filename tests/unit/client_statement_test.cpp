#include "platform/linux/client_paths/client_statement.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

namespace {

constexpr mac_address sta{{2, 0, 0, 0, 0xaa, 1}};

struct row {
    std::uint32_t kind = 0;
    mac_address client{};
    std::uint16_t vlan = 0;
    std::uint32_t peer = 0;
    std::uint32_t ifindex = 0;
    std::string fault;  // empty: it is well-formed
};

std::string fault_of(const row &from) {
    kx::client_tunnel_statement statement{};
    statement.kind = from.kind;
    statement.client = from.client;
    statement.vlan = from.vlan;
    statement.peer = from.peer;
    statement.ifindex = from.ifindex;
    std::vector<std::uint8_t> payload(sizeof(statement));
    std::memcpy(payload.data(), &statement, sizeof(statement));
    const char *fault = kx::check_client_statement(payload).fault;
    return fault == nullptr ? "" : fault;
}

}  // namespace

TEST(client_statement, is_checked) {
    constexpr std::uint32_t peer = 0x0a000001;
    const std::string unused = "a field that should be zero is not";
    const std::string no_client = "not a client's address", no_vlan = "VLAN out of range";
    const std::string no_peer = "not an access point's address";
    const std::vector<row> rows{
        {kx::client_tunnel_home, sta, 10, peer, 0, ""},
        {kx::client_tunnel_foreign, sta, 4094, peer, 0, ""},
        {kx::client_tunnel_local, sta, 1, 0, 0, ""},
        {kx::client_tunnel_gone, sta, 0, 0, 0, ""},
        {kx::client_tunnel_interface, sta, 0, 0, 7, ""},
        {kx::client_tunnel_no_interface, sta, 0, 0, 0, ""},
        {kx::client_tunnel_peers_begin, {}, 0, 0, 0, ""},
        {kx::client_tunnel_peers_end, {}, 0, 0, 0, ""},
        {kx::client_tunnel_interfaces_begin, {}, 0, 0, 0, ""},
        {kx::client_tunnel_interfaces_end, {}, 0, 0, 0, ""},
        {0, sta, 10, peer, 0, "unknown kind"},
        {11, sta, 10, peer, 0, "unknown kind"},
        {kx::client_tunnel_home, {}, 10, peer, 0, no_client},
        {kx::client_tunnel_gone, {{3, 0, 0, 0, 0, 1}}, 0, 0, 0, no_client},
        {kx::client_tunnel_interface, {}, 0, 0, 7, no_client},
        {kx::client_tunnel_home, sta, 0, peer, 0, no_vlan},
        {kx::client_tunnel_foreign, sta, 4095, peer, 0, no_vlan},
        {kx::client_tunnel_home, sta, 10, 0, 0, no_peer},
        {kx::client_tunnel_home, sta, 10, 0x7f000001, 0, no_peer},
        {kx::client_tunnel_foreign, sta, 10, 0xe0000001, 0, no_peer},
        {kx::client_tunnel_foreign, sta, 10, 0xffffffff, 0, no_peer},
        {kx::client_tunnel_interface, sta, 0, 0, 0, "no interface"},
        {kx::client_tunnel_interface, sta, 0, 0, 0x80000000, "no interface"},
        {kx::client_tunnel_home, sta, 10, peer, 7, unused},
        {kx::client_tunnel_local, sta, 10, peer, 0, unused},
        {kx::client_tunnel_gone, sta, 10, 0, 0, unused},
        {kx::client_tunnel_peers_end, sta, 0, 0, 0, unused},
        {kx::client_tunnel_interface, sta, 10, 0, 7, unused},
    };
    for (const row &each : rows) {
        EXPECT_EQ(fault_of(each), each.fault) << "kind " << each.kind << " vlan " << each.vlan;
    }
}

TEST(client_statement, has_one_length) {
    const std::vector<std::uint8_t> bytes(64);
    for (std::size_t size = 0; size <= bytes.size(); size++) {
        const kx::checked_statement got = kx::check_client_statement(std::span(bytes).first(size));
        ASSERT_NE(got.fault, nullptr);
        EXPECT_EQ(std::string(got.fault),
                  size == sizeof(kx::client_tunnel_statement) ? "unknown kind" : "wrong length");
    }
}
