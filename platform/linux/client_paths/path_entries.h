// What a client's path consists of in the kernel.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_PATH_ENTRIES_H
#define PLATFORM_LINUX_CLIENT_PATHS_PATH_ENTRIES_H

#include <array>
#include <cstddef>
#include <cstdint>

#include "platform/linux/client_paths/client_path.h"
#include "wire/mac_address.h"

namespace kx {

struct path_entry {
    enum class kind : std::uint8_t {
        forwarding,     // the bridge's static entry for the client at port `ifindex` and `vlan`
        vap_rules,      // the place for filters of VAP `ifindex`; shared
        vap_guard,      // no frame for the client leaves by VAP `ifindex`, whose driver would send it on to the client
        group_copies,   // group frames leave by the client's interface `ifindex` as unicast, none returns to its sender
        port_vlan,      // interface `ifindex` is a port of `vlan`
        uplink,         // the client's own frames from its interface `ifindex` go to `peer`, and no others
        downlink,       // frames of `vlan` from `peer`, for the client or a group, go to its interface `ifindex`
        tunnel_port,    // tun0 is a port of bridge `ifindex`; shared
        tunnel_vlan,    // tun0 is a port of `vlan`; shared
        tunnel_groups,  // group frames of `vlan` go to `peer`; shared
        moved_client,   // the client's frames of `vlan` go to and come from `peer`
    };
    kind what = kind::forwarding;
    mac_address mac{};         // zero in a shared entry
    std::uint16_t vlan = 0;    // fields that the kind does not name are zero
    std::uint16_t number = 0;  // of the client, to tell its filters from those of others; zero in a shared entry
    int ifindex = 0;
    std::uint32_t peer = 0;

    bool operator==(const path_entry &) const = default;
};

// Of several clients' paths the kernel has one such entry.
bool is_shared(const path_entry &entry);

// The entries of one path, in the order in which they are made.
class path_entries {
public:
    path_entries(const client_path &path, const mac_address &mac, std::uint16_t number);

    const path_entry *begin() const { return entries_.data(); }
    const path_entry *end() const { return entries_.data() + count_; }
    std::size_t size() const { return count_; }
    const path_entry &operator[](std::size_t at) const { return entries_[at]; }
    bool has(const path_entry &entry) const;

    static constexpr std::size_t most = 5;

private:
    void add(const path_entry &entry) { entries_[count_++] = entry; }
    void add_own_interface(const client_path &path, const mac_address &mac, std::uint16_t number);

    std::array<path_entry, most> entries_{};
    std::size_t count_ = 0;
};

}  // namespace kx

#endif
