// apctl check: what is wrong with this access point, and what to do about it.
#ifndef APCTL_CHECK_H
#define APCTL_CHECK_H

#include <string>
#include <vector>

#include "common/ap_config.h"

namespace apctl {

struct finding {
    std::string subject;   // "configuration", "permissions", "certificate", "hostapd", "daemon", "tunnel"
    std::string text;      // with the remedy, without control characters
    bool is_fault = true;  // false: it could not be checked
};

// Root checks with the rights of the daemons' user what that user must be able to read.
std::vector<finding> check_access_point(const std::string &config_file);

}  // namespace apctl

#endif
