#include "platform/linux/client_paths/client_statement.h"

#include <climits>
#include <cstring>

namespace kx {

namespace {

constexpr std::uint16_t last_vlan = 4094;

bool is_unicast(const mac_address &mac) { return (mac[0] & 1u) == 0 && mac != mac_address{}; }

// 0.0.0.0/8, 127.0.0.0/8, and multicast, reserved and broadcast addresses are no host's (RFC 6890, 2.2).
bool is_host(std::uint32_t ipv4) {
    const std::uint32_t first = ipv4 >> 24;
    return first != 0 && first != 127 && first < 224;
}

bool is_peer_kind(std::uint32_t kind) { return kind >= client_tunnel_home && kind <= client_tunnel_local; }

bool is_of_all(std::uint32_t kind) {
    return kind == client_tunnel_peers_begin || kind == client_tunnel_peers_end ||
           kind == client_tunnel_interfaces_begin || kind == client_tunnel_interfaces_end;
}

const char *fault_of(const client_tunnel_statement &statement) {
    const std::uint32_t kind = statement.kind;
    if (kind < client_tunnel_home || kind > client_tunnel_interfaces_end) {
        return "unknown kind";
    }
    if (!is_of_all(kind) && !is_unicast(statement.client)) {
        return "not a client's address";
    }
    if (is_peer_kind(kind) && (statement.vlan == 0 || statement.vlan > last_vlan)) {
        return "VLAN out of range";
    }
    if ((kind == client_tunnel_home || kind == client_tunnel_foreign) && !is_host(statement.peer)) {
        return "not an access point's address";
    }
    if (kind == client_tunnel_interface && (statement.ifindex == 0 || statement.ifindex > INT_MAX)) {
        return "no interface";
    }
    return nullptr;
}

// Fields that a kind does not need could otherwise mean something one day.
bool has_unused_fields(const client_tunnel_statement &statement) {
    const std::uint32_t kind = statement.kind;
    const bool has_peer = kind == client_tunnel_home || kind == client_tunnel_foreign;
    return (is_of_all(kind) && statement.client != mac_address{}) || (!is_peer_kind(kind) && statement.vlan != 0) ||
           (!has_peer && statement.peer != 0) || (kind != client_tunnel_interface && statement.ifindex != 0);
}

}  // namespace

checked_statement check_client_statement(std::span<const std::uint8_t> payload) {
    checked_statement checked;
    if (payload.size() != sizeof(checked.statement)) {
        checked.fault = "wrong length";
        return checked;
    }
    std::memcpy(&checked.statement, payload.data(), sizeof(checked.statement));
    checked.fault = fault_of(checked.statement);
    if (checked.fault == nullptr && has_unused_fields(checked.statement)) {
        checked.fault = "a field that should be zero is not";
    }
    return checked;
}

}  // namespace kx
