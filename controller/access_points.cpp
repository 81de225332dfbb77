#include "controller/access_points.h"

#include <algorithm>
#include <utility>

namespace controller {

access_point_link access_points::remove(tunnel_id id) { return std::move(links_.extract(id).mapped()); }

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

std::optional<tunnel_id> access_points::tunnel_of(const mac_address &ap) const {
    const auto found = std::ranges::find_if(links_, [&](const auto &each) { return each.second.ap == ap; });
    return found == links_.end() ? std::nullopt : std::optional(found->first);
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
