// The messages to the client manager that a change of the VAPs' configuration requires.
#ifndef APD_VAP_CHANGES_H
#define APD_VAP_CHANGES_H

#include <string>
#include <vector>

#include "common/ap_config.h"

namespace apd {

struct vap_changes {
    std::vector<std::string> updated;  // interfaces of new and changed VAPs, in the new order
    bool reload = false;               // `updated` is empty, but VAPs were removed or reordered

    bool operator==(const vap_changes &) const = default;
};

vap_changes find_vap_changes(const std::vector<kx::vap_config> &before, const std::vector<kx::vap_config> &after);

}  // namespace apd

#endif
