#include "platform/linux/client_paths/path_entries.h"

#include <algorithm>

namespace kx {

namespace {

using kind = path_entry::kind;

}  // namespace

bool is_shared(const path_entry &entry) {
    return entry.what == kind::vap_rules || entry.what == kind::tunnel_port || entry.what == kind::tunnel_vlan ||
           entry.what == kind::tunnel_groups;
}

void path_entries::add_own_interface(const client_path &path, const mac_address &mac, std::uint16_t number) {
    add({.what = kind::vap_rules, .ifindex = path.through});
    add({.what = kind::vap_guard, .mac = mac, .number = number, .ifindex = path.through});
    add({.what = kind::group_copies, .mac = mac, .number = number, .ifindex = path.ifindex});
}

path_entries::path_entries(const client_path &path, const mac_address &mac, std::uint16_t number) {
    const path_entry forwarding{
        .what = kind::forwarding, .mac = mac, .vlan = path.vlan, .number = number, .ifindex = path.ifindex};
    switch (path.how) {
        case client_path::kind::none:
            break;
        case client_path::kind::shared_port:
            add(forwarding);
            break;
        case client_path::kind::own_port:
            add_own_interface(path, mac, number);
            add({.what = kind::port_vlan, .mac = mac, .vlan = path.vlan, .number = number, .ifindex = path.ifindex});
            add(forwarding);
            break;
        case client_path::kind::to_home: {
            add_own_interface(path, mac, number);
            path_entry tunnel = forwarding;
            tunnel.peer = path.peer;
            tunnel.what = kind::uplink;
            add(tunnel);
            tunnel.what = kind::downlink;
            add(tunnel);
            break;
        }
        case client_path::kind::to_client:
            add({.what = kind::tunnel_port, .ifindex = path.through});
            add({.what = kind::tunnel_vlan, .vlan = path.vlan});
            add({.what = kind::tunnel_groups, .vlan = path.vlan, .peer = path.peer});
            add({.what = kind::moved_client, .mac = mac, .vlan = path.vlan, .number = number, .peer = path.peer});
            break;
    }
}

bool path_entries::has(const path_entry &entry) const { return std::find(begin(), end(), entry) != end(); }

}  // namespace kx
