#include "controller/mac_acl.h"

namespace controller {

verdict mac_acl::decide(std::uint32_t index, const kx::mac_address &client) const {
    const auto list = lists_.find(index);
    if (list == lists_.end()) {
        return otherwise_;
    }
    const auto found = list->second.clients.find(client);
    return found == list->second.clients.end() ? list->second.otherwise : found->second;
}

void mac_acl::set(std::uint32_t index, const kx::mac_address &client, verdict decision) {
    list(index).clients[client] = decision;
}

void mac_acl::set_default(std::uint32_t index, verdict decision) { list(index).otherwise = decision; }

bool mac_acl::remove(std::uint32_t index, const kx::mac_address &client) {
    const auto found = lists_.find(index);
    return found != lists_.end() && found->second.clients.erase(client) > 0;
}

std::vector<change> mac_acl::as_changes() const {
    std::vector<change> made = {acl_default{std::nullopt, otherwise_}};
    for (const auto &[index, list] : lists_) {
        made.emplace_back(acl_default{index, list.otherwise});
        for (const auto &[client, decision] : list.clients) {
            made.emplace_back(acl_entry{index, client, decision});
        }
    }
    return made;
}

mac_acl mac_acl::of(const contents &stored) {
    mac_acl made;
    for (const acl_default &each : stored.acl_defaults) {
        if (each.index) {
            made.lists_[*each.index].otherwise = each.decision;
        } else {
            made.otherwise_ = each.decision;
        }
    }
    for (const acl_entry &each : stored.acl_entries) {
        if (each.decision) {
            made.lists_[each.index].clients[each.client] = *each.decision;
        }
    }
    return made;
}

mac_acl_list &mac_acl::list(std::uint32_t index) {
    return lists_.try_emplace(index, mac_acl_list{otherwise_, {}}).first->second;
}

}  // namespace controller
