// The access points behind the tunnels. An access point can be sent messages when the first message from it has
// arrived.
#ifndef CONTROLLER_ACCESS_POINTS_H
#define CONTROLLER_ACCESS_POINTS_H

#include <map>
#include <optional>
#include <vector>

#include "controller/message.h"
#include "controller/tunnels.h"

namespace controller {

// Of one access point, since the start.
struct ap_losses {
    std::uint64_t malformed = 0;        // records
    std::uint64_t frames_ignored = 0;   // for another destination
    std::uint64_t messages_unsent = 0;  // the tunnel was full or ended before
};

struct access_point_link {
    peer other;
    std::optional<mac_address> ap;  // none before its first message
    std::uint64_t records = 0;      // received, including malformed ones
    std::uint32_t carrier = 0;      // its address for other access points; 0: it carries no clients between VLANs
};

class access_points {
public:
    void add(tunnel_id id, const peer &other);
    // Returns the removed entry.
    access_point_link remove(tunnel_id id);

    // The result of checking a message's MAC address against its tunnel.
    enum class claim {
        known,    // not the first message
        bound,    // the first message
        foreign,  // the tunnel's certificate has another MAC address
    };
    claim identify(tunnel_id id, const mac_address &ap);

    void count_records(tunnel_id id, std::size_t number) { links_.at(id).records += number; }

    // Null when nothing was lost.
    const ap_losses *losses_of(const mac_address &ap) const;
    void add_losses(const mac_address &ap, const ap_losses &more);

    access_point_link &link(tunnel_id id) { return links_.at(id); }
    // Of an access point that can be sent messages.
    std::optional<tunnel_id> tunnel_of(const mac_address &ap) const;
    // With and without a message; null when there is no tunnel.
    const access_point_link *find(const mac_address &ap) const;
    std::vector<tunnel_id> unidentified() const;
    const std::map<tunnel_id, access_point_link> &links() const { return links_; }
    const std::map<mac_address, tunnel_id> &by_mac() const { return tunnels_; }

private:
    std::map<tunnel_id, access_point_link> links_;
    std::map<mac_address, tunnel_id> tunnels_;  // the latest of each access point
    std::map<mac_address, ap_losses> losses_;
};

}  // namespace controller

#endif
