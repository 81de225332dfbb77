// The clients of this access point and their paths. What the daemon, apd and radiod say about a client is kept here,
// and the kernel is made to agree with it.
#ifndef PLATFORM_LINUX_CLIENT_PATHS_CLIENT_PATHS_H
#define PLATFORM_LINUX_CLIENT_PATHS_CLIENT_PATHS_H

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/linux/bridge_ports.h"
#include "platform/linux/client_paths/client_path.h"
#include "platform/linux/client_paths/path_entries.h"
#include "wire/client_tunnels.h"
#include "wire/mac_address.h"

namespace kx {

struct path_change {
    bool adds = false;
    path_entry entry;
};

// The kernel and the driver, as far as paths need them.
class path_kernel {
public:
    path_kernel(const path_kernel &) = delete;
    path_kernel &operator=(const path_kernel &) = delete;

    virtual bridge_port find_port(const char *ifname) = 0;
    // The bridge that filters the VLANs of this access point, 0 when there is none.
    virtual int home_bridge() = 0;
    // Carries out the changes in order. An entry to be removed may be missing. Returns 0 or the errno of the first that
    // failed; the others are carried out all the same.
    virtual int apply(std::span<const path_change> changes) = 0;
    // Disassociates the client.
    virtual void refuse(const mac_address &client, const char *ifname) = 0;
    // A path of an interface cannot be made.
    virtual void report(const char *ifname, int error) = 0;

protected:
    path_kernel() = default;
    ~path_kernel() = default;
};

// The memory of client_paths, all zero at the start.
struct client_paths_room {
    static constexpr std::size_t most = 2048;

    struct client {
        mac_address mac{};
        bool waits = false;
        bool peer_is_new = false, interface_is_new = false;  // stated since the last begin
        std::uint32_t waits_since_ms = 0;
        client_account account;
        client_path path;  // that the kernel has
    };

    // Numbers of clients: of those in use, in the order of their addresses, and then of those that are free. All zero
    // until the first client.
    std::array<std::uint16_t, most> order{};
    std::array<client, most> clients{};
};

class client_paths {
public:
    static constexpr std::size_t most = client_paths_room::most;
    static constexpr std::uint32_t patience_ms = 3000;  // how long a tunnelled client may be without a path

    // Both outlive this. Nobody else makes or removes entries of this kind.
    constexpr client_paths(path_kernel &kernel, client_paths_room &room) : kernel_(kernel), room_(room) {}

    // Clients that roam to another VLAN are carried from now on, or refused when they cannot be.
    void carry_roamed_clients(bool is_possible);
    // The kernel's links are others than before: what follows from that is done.
    void links_changed(std::uint32_t now_ms);
    // The kernel has no tunnels any more. Until carry_roamed_clients() and links_changed() there is no path that needs
    // one.
    void tunnel_lost();

    // The daemon's calls. Return 0, or -1 when the kernel refused, the client must be refused, or there is no room.
    int called(const mac_address &mac, const bridge_call &call, std::uint32_t now_ms);
    int call_taken_back(const mac_address &mac);

    // A statement that has been checked. False when there is no room for its client.
    bool stated(const client_tunnel_statement &statement, std::uint32_t now_ms);

    bool has_waiting() const { return waiting_ > 0; }
    // Refuses the clients that have waited for a path in vain, and again as long as they stay.
    void refuse_waiting(std::uint32_t now_ms);

    // Removes all paths and forgets the clients.
    void clear();

private:
    using client = client_paths_room::client;

    std::uint16_t *position(const mac_address &mac);
    client *find(const mac_address &mac);
    client *find_or_add(const mac_address &mac);
    void forget_if_silent(client &subject);
    void begin_again(bool client::*is_new);
    void end_again(client_tunnel_kind withdrawal, bool client::*is_new, std::uint32_t now_ms);

    enum class cause : std::uint8_t { call, statement, links };
    decision look(const client &subject);
    int settle(client &subject, cause why, std::uint32_t now_ms);
    int install(client &subject, const client_path &path, bool renews);
    bool others_have(const path_entry &entry, const client &but) const;
    void wait(client &subject, std::uint32_t now_ms);
    void stop_waiting(client &subject);
    std::uint16_t number_of(const client &subject) const {
        return static_cast<std::uint16_t>(&subject - room_.clients.data());
    }

    path_kernel &kernel_;
    client_paths_room &room_;
    bool carries_ = false, possible_ = false;
    std::size_t count_ = 0;
    std::size_t waiting_ = 0;
};

}  // namespace kx

#endif
