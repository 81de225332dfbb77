// The MAC access control lists from which the controller answers. A TOML file configures them:
//
//   default = "allow"                       # for indexes without a list; default "allow"
//
//   [[list]]
//   mac_acl_index = 1                       # the VAPs' index
//   default = "deny"                        # for clients in neither list; default as above
//   allow = ["02:00:00:00:20:01"]           # optional
//   deny = ["02:00:00:00:20:02"]            # optional; no client may be in both
#ifndef CONTROLLER_MAC_ACL_H
#define CONTROLLER_MAC_ACL_H

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "common/mac_address.h"
#include "controller/store/values.h"

namespace controller {

struct mac_acl_list {
    verdict otherwise = verdict::allow;
    std::map<kx::mac_address, verdict> clients;
};

class mac_acl {
public:
    verdict decide(std::uint32_t index, const kx::mac_address &client) const;

    // An index without a list gets one whose default is the present verdict.
    void set(std::uint32_t index, const kx::mac_address &client, verdict decision);
    void set_default(std::uint32_t index, verdict decision);
    // Removes the client, so that the list's default applies. False when it was not in the list.
    bool remove(std::uint32_t index, const kx::mac_address &client);

    // As by default.
    bool is_empty() const { return otherwise_ == verdict::allow && lists_.empty(); }
    verdict otherwise() const { return otherwise_; }
    const std::map<std::uint32_t, mac_acl_list> &lists() const { return lists_; }

    // What makes these lists of none, in order.
    std::vector<change> as_changes() const;
    static mac_acl of(const contents &stored);

    // Throws kx::config_error (common/toml_table.h).
    static mac_acl load(const std::string &file);

private:
    mac_acl_list &list(std::uint32_t index);

    verdict otherwise_ = verdict::allow;
    std::map<std::uint32_t, mac_acl_list> lists_;
};

}  // namespace controller

#endif
