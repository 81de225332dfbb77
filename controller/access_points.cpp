#include "controller/access_points.h"

#include <utility>

namespace controller {

access_point_link access_points::remove(tunnel_id id) { return std::move(links_.extract(id).mapped()); }

access_points::claim access_points::identify(tunnel_id id, const mac_address &ap) {
    access_point_link &link = links_.at(id);
    if (link.ap) {
        return *link.ap == ap ? claim::known : claim::foreign;
    }
    const auto holder = tunnel_of(ap);
    if (holder && links_.at(*holder).other.name != link.other.name) {
        return claim::held;
    }
    link.ap = ap;
    return claim::bound;
}

std::optional<tunnel_id> access_points::tunnel_of(const mac_address &ap) const {
    std::optional<tunnel_id> newest;
    for (const auto &[id, link] : links_) {
        if (link.ap == ap) {
            newest = id;
        }
    }
    return newest;
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
