// What the access points are told about clients that are served on another VAP's VLAN than their home VLAN: who the
// other end of the client's path is. An access point at its end of a path gets a statement as long as the other end can
// be reached. No I/O.
//
// A statement holds at the access point until it is replaced or withdrawn. A lost tunnel may have lost statements, so
// an access point gets all of them anew through each tunnel.
#ifndef CONTROLLER_ROAMING_PEERS_H
#define CONTROLLER_ROAMING_PEERS_H

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <utility>
#include <vector>

#include "common/mac_address.h"
#include "tunnel/roaming_frames.h"

namespace controller {

using kx::mac_address;

// Access points; the same one when the client is on another VAP of its home.
struct roaming_path {
    mac_address home{}, foreign{};
    std::uint16_t vlan = 0;  // the client's home VLAN
    bool operator==(const roaming_path &) const = default;
};

class roaming_peers {
public:
    // An access point whose tunnel has gone may still carry clients: apd may be restarting. It counts as reachable for
    // this long. A new tunnel waits twice as long for the other ends before the statements without them replace all.
    static constexpr unsigned grace = 10;  // ticks

    struct statement {
        mac_address ap;
        kx::roaming_peer content;
    };

    // None: the client has no path any more.
    void set_path(const mac_address &client, const std::optional<roaming_path> &path);
    void ap_up(const mac_address &ap);
    void ap_down(const mac_address &ap);
    // The access point carries clients through its present tunnel. `address` is not 0.
    void ap_carries(const mac_address &ap, std::uint32_t address);
    // Its clients are known.
    void ap_caught_up(const mac_address &ap);
    void tick();

    // It can be the other end of a path.
    bool is_reachable(const mac_address &ap) const;
    std::size_t paths() const { return paths_.size(); }

    // The statements that are due, in order.
    std::vector<statement> extract();

private:
    // An access point.
    struct end {
        std::uint32_t address = 0;  // 0: never announced
        bool up = false;
        bool carries = false;     // announced through the present tunnel
        bool caught_up = false;   // through the present tunnel
        bool stated_all = false;  // through the present tunnel
        bool was_reachable = false;
        unsigned since = 0;             // tick of the last change of `up`
        std::set<mac_address> clients;  // whose path ends here
        std::map<mac_address, kx::roaming_peer> told;
    };

    bool is_reachable(const end &one) const;
    void reachability_changed(end &one);
    void touch(const roaming_path &path, const mac_address &client);
    std::optional<kx::roaming_peer> wanted(const mac_address &ap, const mac_address &client) const;
    bool may_state_all(const mac_address &ap, const end &one) const;
    void state_all(const mac_address &ap, end &one);
    void state(const mac_address &ap, const mac_address &client);

    std::map<mac_address, end> ends_;
    std::map<mac_address, roaming_path> paths_;              // by client
    std::set<std::pair<mac_address, mac_address>> touched_;  // access point and client
    std::set<mac_address> unstated_;                         // carry clients, and have not been stated all
    std::vector<statement> due_;
    unsigned now_ = 0;  // ticks
};

}  // namespace controller

#endif
