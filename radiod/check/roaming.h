// What must hold so that stations can keep a home on another VLAN.
#ifndef RADIOD_CHECK_ROAMING_H
#define RADIOD_CHECK_ROAMING_H

#include <string>
#include <vector>

#include "radiod/check/rules.h"

namespace radiod {

// What the kernel has, or can load.
struct kernel_view {
    bool is_known = false;             // whether modules can be looked up
    std::vector<std::string> missing;  // modules
};

kernel_view look_at_kernel(const std::string &proc, const std::string &modules);

void check_roaming(const std::vector<vap_view> &vaps, const kernel_view &kernel, check_result &result);

}  // namespace radiod

#endif
