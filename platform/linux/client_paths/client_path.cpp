#include "platform/linux/client_paths/client_path.h"

#include <cerrno>

namespace kx {

namespace {

using kind = client_path::kind;
using outlook = decision::outlook;

decision through_the_bridge(const client_account &client, const bridge_port &port) {
    if (port.error != 0) {
        return {.error = port.error};
    }
    const bool owns_interface = client.ifindex != 0 && client.ifindex != port.ifindex;
    if (!port.filters_vlans) {
        return {.path = {.how = kind::shared_port, .ifindex = owns_interface ? client.ifindex : port.ifindex}};
    }
    if (!owns_interface) {
        return {.path = {.how = kind::shared_port, .vlan = client.call.vlan, .ifindex = port.ifindex}};
    }
    return {
        .path = {.how = kind::own_port, .vlan = client.call.vlan, .ifindex = client.ifindex, .through = port.ifindex}};
}

// On the VAP's own interface the client would hear the group frames of the VAP's VLAN, and its own would reach it.
decision to_the_home_vlan(const client_account &client, const bridge_port &port) {
    if (port.ifindex == 0 || client.ifindex == port.ifindex) {
        return {.is = outlook::impossible};
    }
    if (client.ifindex == 0 || client.peer.vlan != client.call.vlan) {
        return {.is = outlook::waiting};
    }
    if (client.peer.kind == client_tunnel_foreign) {
        return {.path = {.how = kind::to_home,
                         .vlan = client.call.vlan,
                         .ifindex = client.ifindex,
                         .through = port.ifindex,
                         .peer = client.peer.peer}};
    }
    if (client.peer.kind == client_tunnel_local && port.filters_vlans) {
        return through_the_bridge(client, port);
    }
    return {.is = client.peer.kind == client_tunnel_local ? outlook::impossible : outlook::waiting};
}

// A daemon that has started again makes no call for a client that was away already.
decision to_the_client(const client_account &client, int home_bridge) {
    const bool is_stated = client.peer.kind == client_tunnel_home;
    const bool was_called = client.call.where == bridge_call::client::away;
    if (!is_stated || (was_called && client.call.vlan != client.peer.vlan)) {
        return {};
    }
    if (home_bridge == 0) {
        return {.error = ENOTCONN};
    }
    return {
        .path = {.how = kind::to_client, .vlan = client.peer.vlan, .through = home_bridge, .peer = client.peer.peer}};
}

}  // namespace

decision decide(const client_account &client, const bridge_port &port, int home_bridge) {
    switch (client.call.where) {
        case bridge_call::client::here:
            return through_the_bridge(client, port);
        case bridge_call::client::tunnelled:
            return to_the_home_vlan(client, port);
        case bridge_call::client::away:
        case bridge_call::client::unknown:
            return to_the_client(client, home_bridge);
    }
    return {};
}

}  // namespace kx
