// Clients are entered in the forwarding table of the Linux bridge that their interface is a port of. A machine without
// bridge, interface or permission has this table alone. The kernel needs neither the client's address nor its way
// upstream: those follow from the bridge's other ports.
#include "kx/kxbr_api.h"

#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/linux/bridge_netlink.h"

namespace {

struct client {
    uint8_t mac[6] = {};
    bool used = false;
    kx::bridge_place place;  // interface 0: the kernel has no entry
};

constexpr std::size_t max_clients = 2048;
constexpr uint32_t max_vlan = 4094;

// Open addressing: a client lies in the first slot from its MAC's own on that was free. Even with all clients the ways
// are short beside a call of the kernel, and every slot more is memory that a full table touches.
constinit std::array<client, max_clients + max_clients / 4> clients{};
std::size_t client_count;

std::size_t next(std::size_t slot) { return (slot + 1) % clients.size(); }

std::size_t own_slot(const uint8_t mac[6]) {
    std::uint32_t hash = 2166136261u;  // FNV-1a
    for (std::size_t i = 0; i < sizeof(client::mac); i++) {
        hash = (hash ^ mac[i]) * 16777619u;
    }
    return hash % clients.size();
}

// The client's slot, or the free one where it belongs.
std::size_t find(const uint8_t mac[6]) {
    std::size_t slot = own_slot(mac);
    while (clients[slot].used && std::memcmp(clients[slot].mac, mac, sizeof(client::mac)) != 0) {
        slot = next(slot);
    }
    return slot;
}

// Frees a slot and closes the gap, so that no client behind it is cut off.
void remove(std::size_t gap) {
    client_count--;
    for (std::size_t slot = next(gap); clients[slot].used; slot = next(slot)) {
        std::size_t own = own_slot(clients[slot].mac);
        bool own_is_behind_gap = gap <= slot ? gap < own && own <= slot : gap < own || own <= slot;
        if (!own_is_behind_gap) {
            clients[gap] = clients[slot];
            gap = slot;
        }
    }
    clients[gap] = {};
}

void say_once(const char *ifname, int error) {
    static bool said = false;
    if (!said) {
        said = true;
        syslog(LOG_USER | LOG_NOTICE, "no bridge entries are made: %s: %s", ifname,
               error == ENOTCONN ? "not a port of a bridge" : std::strerror(error));
    }
}

// Takes an entry that the client had elsewhere out of the kernel. A move between ports of one bridge has taken it
// along, an interface that went away has taken it with it.
void leave(const uint8_t mac[6], const kx::bridge_place &place) {
    if (place.ifindex != 0) {
        kx::del_bridge_entry(mac, place);
    }
}

}  // namespace

int kxbr_api_add_client(const uint8_t mac[6], const char *ifname, const char *, uint32_t vlan, uint32_t, int) {
    client &entry = clients[find(mac)];
    if (!entry.used) {
        if (client_count == max_clients) {
            return -1;
        }
        client_count++;
        std::memcpy(entry.mac, mac, sizeof(entry.mac));
        entry.used = true;
    }
    kx::bridge_place place;
    int error = vlan > max_vlan ? EINVAL : kx::find_bridge_place(ifname, static_cast<uint16_t>(vlan), place);
    if (error == 0) {
        error = kx::add_bridge_entry(mac, place);
    }
    if (error != 0) {
        say_once(ifname, error);
        place = {};
    }
    if (entry.place != place) {
        leave(mac, entry.place);
        entry.place = place;
    }
    return error == 0 ? 0 : -1;
}

int kxbr_api_del_client(const uint8_t mac[6]) {
    std::size_t slot = find(mac);
    if (!clients[slot].used) {
        return 0;
    }
    kx::bridge_place place = clients[slot].place;
    remove(slot);
    int error = place.ifindex == 0 ? 0 : kx::del_bridge_entry(mac, place);
    return error == 0 || error == ENOENT || error == ENODEV ? 0 : -1;
}
