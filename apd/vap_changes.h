// What the client manager must be told when the VAPs' configuration changes.
#ifndef APD_VAP_CHANGES_H
#define APD_VAP_CHANGES_H

#include <string>
#include <vector>

#include "common/ap_config.h"

namespace apd {

struct vap_changes {
    std::vector<std::string> updated;  // interfaces of the VAPs that are new or differ, in the new order
    bool reload = false;               // none is updated, but VAPs are gone or stand in another order

    bool operator==(const vap_changes &) const = default;
};

vap_changes find_vap_changes(const std::vector<kx::vap_config> &before, const std::vector<kx::vap_config> &after);

}  // namespace apd

#endif
