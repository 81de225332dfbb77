// What has changed between two answers of the daemons.
#ifndef APCTL_CHANGES_H
#define APCTL_CHANGES_H

#include <string>
#include <vector>

#include "apctl/output.h"
#include "apctl/view_reader.h"

namespace apctl {

struct change {
    json row;
    std::string text;
};

// Of client_mgr: clients that joined, left, moved to another VAP, or have another address or state; VAPs that came and
// went.
std::vector<change> changes_of_clients(const shown &before, const shown &now);
// Of apd: the tunnel, and whether client_mgr answers.
std::vector<change> changes_of_tunnel(const shown &before, const shown &now);

}  // namespace apctl

#endif
