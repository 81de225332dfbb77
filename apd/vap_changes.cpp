#include "apd/vap_changes.h"

#include <algorithm>

namespace apd {

vap_changes find_vap_changes(const std::vector<kx::vap_config> &before, const std::vector<kx::vap_config> &after) {
    vap_changes changes;
    for (const kx::vap_config &vap : after) {
        if (std::find(before.begin(), before.end(), vap) == before.end()) {
            changes.updated.push_back(vap.ifname);
        }
    }
    changes.reload = changes.updated.empty() && before != after;
    return changes;
}

}  // namespace apd
