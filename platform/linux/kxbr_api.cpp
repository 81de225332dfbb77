// Each client is entered in the forwarding table of the Linux bridge that its interface is a port of. Without a bridge,
// an interface or the permission, the client is kept in this table alone. The device and the IP address of a client are
// not needed: the bridge forwards to its other ports.
#include "kx/kxbr_api.h"

#include <syslog.h>

#include <array>
#include <cerrno>
#include <cstring>

#include "platform/linux/bridge_netlink.h"
#include "wire/mac_address.h"

namespace {

constexpr std::size_t max_clients = 2048;
constexpr uint32_t max_vlan = 4094;

mac_address mac_of(const uint8_t bytes[6]) {
    mac_address mac{};
    std::memcpy(mac.data(), bytes, mac.size());
    return mac;
}

// Open addressing: a client is in the first slot that was free, from the slot of its hash on. The table is never full,
// so every search ends. It is only a quarter larger than its clients: a probe is cheap next to a call of the kernel,
// and every slot more is memory that a full table touches.
class bridge_clients {
public:
    // Returns 0 or -1.
    int add(const mac_address &mac, const char *ifname, uint32_t vlan);
    int remove(const mac_address &mac);

private:
    struct slot {
        mac_address mac{};
        bool used = false;
        kx::bridge_place place;  // of the kernel's entry; ifindex 0: there is none
    };

    static std::size_t next(std::size_t index) { return (index + 1) % size; }
    static std::size_t own_index(const mac_address &mac);
    std::size_t find(const mac_address &mac) const;
    void free_slot(std::size_t gap);
    void report_once(const char *ifname, int error);

    static constexpr std::size_t size = max_clients + max_clients / 4;
    std::array<slot, size> slots_{};
    std::size_t count_ = 0;
    bool reported_ = false;
};

std::size_t bridge_clients::own_index(const mac_address &mac) {
    std::uint32_t hash = 2166136261u;  // FNV-1a
    for (std::uint8_t byte : mac) {
        hash = (hash ^ byte) * 16777619u;
    }
    return hash % size;
}

// The slot of the client, or the free one for it.
std::size_t bridge_clients::find(const mac_address &mac) const {
    std::size_t index = own_index(mac);
    while (slots_[index].used && slots_[index].mac != mac) {
        index = next(index);
    }
    return index;
}

// Moves clients from behind into the gap, so that every search still meets them before a free slot.
void bridge_clients::free_slot(std::size_t gap) {
    count_--;
    for (std::size_t index = next(gap); slots_[index].used; index = next(index)) {
        std::size_t own = own_index(slots_[index].mac);
        bool own_is_behind_gap = gap <= index ? gap < own && own <= index : gap < own || own <= index;
        if (!own_is_behind_gap) {
            slots_[gap] = slots_[index];
            gap = index;
        }
    }
    slots_[gap] = {};
}

void bridge_clients::report_once(const char *ifname, int error) {
    if (!reported_) {
        reported_ = true;
        syslog(LOG_USER | LOG_NOTICE, "no bridge entries are made: %s: %s", ifname,
               error == ENOTCONN ? "not a port of a bridge" : std::strerror(error));
    }
}

int bridge_clients::add(const mac_address &mac, const char *ifname, uint32_t vlan) {
    slot &client = slots_[find(mac)];
    if (!client.used) {
        if (count_ == max_clients) {
            return -1;
        }
        count_++;
        client.mac = mac;
        client.used = true;
    }
    kx::bridge_place place;
    int error = vlan > max_vlan ? EINVAL : kx::find_bridge_place(ifname, static_cast<uint16_t>(vlan), place);
    if (error == 0) {
        error = kx::add_bridge_entry(mac, place);
    }
    if (error != 0) {
        report_once(ifname, error);
        place = {};
    }
    if (client.place != place) {
        // This fails when the entry has moved within its bridge, or its interface no longer exists.
        if (client.place.ifindex != 0) {
            kx::del_bridge_entry(mac, client.place);
        }
        client.place = place;
    }
    return error == 0 ? 0 : -1;
}

int bridge_clients::remove(const mac_address &mac) {
    std::size_t index = find(mac);
    if (!slots_[index].used) {
        return 0;
    }
    kx::bridge_place place = slots_[index].place;
    free_slot(index);
    int error = place.ifindex == 0 ? 0 : kx::del_bridge_entry(mac, place);
    return error == 0 || error == ENOENT || error == ENODEV ? 0 : -1;
}

constinit bridge_clients clients;

}  // namespace

int kxbr_api_add_client(const uint8_t mac[6], const char *ifname, const char *, uint32_t vlan, uint32_t, int) {
    return clients.add(mac_of(mac), ifname, vlan);
}

int kxbr_api_del_client(const uint8_t mac[6]) { return clients.remove(mac_of(mac)); }
