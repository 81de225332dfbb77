#include "controller/access_points.h"

#include <utility>

namespace controller {

void access_points::add(tunnel_id id, const peer &other) {
    links_[id].other = other;
    tunnels_[other.mac] = id;
}

access_point_link access_points::remove(tunnel_id id) {
    access_point_link gone = std::move(links_.extract(id).mapped());
    if (const auto latest = tunnels_.find(gone.other.mac); latest != tunnels_.end() && latest->second == id) {
        tunnels_.erase(latest);
    }
    return gone;
}

access_points::claim access_points::identify(tunnel_id id, const mac_address &ap) {
    access_point_link &link = links_.at(id);
    if (link.other.mac != ap) {
        return claim::foreign;
    }
    if (link.ap) {
        return claim::known;
    }
    link.ap = ap;
    return claim::bound;
}

const ap_losses *access_points::losses_of(const mac_address &ap) const {
    const auto found = losses_.find(ap);
    return found == losses_.end() ? nullptr : &found->second;
}

void access_points::add_losses(const mac_address &ap, const ap_losses &more) {
    ap_losses &to = losses_[ap];
    to.malformed += more.malformed;
    to.frames_ignored += more.frames_ignored;
    to.messages_unsent += more.messages_unsent;
}

std::optional<tunnel_id> access_points::tunnel_of(const mac_address &ap) const {
    const auto found = tunnels_.find(ap);
    return found == tunnels_.end() || !links_.at(found->second).ap ? std::nullopt : std::optional(found->second);
}

const access_point_link *access_points::find(const mac_address &ap) const {
    const auto found = tunnels_.find(ap);
    return found == tunnels_.end() ? nullptr : &links_.at(found->second);
}

std::vector<tunnel_id> access_points::unidentified() const {
    std::vector<tunnel_id> found;
    for (const auto &[id, link] : links_) {
        if (!link.ap) {
            found.push_back(id);
        }
    }
    return found;
}

}  // namespace controller
