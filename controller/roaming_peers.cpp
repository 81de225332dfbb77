#include "controller/roaming_peers.h"

#include <algorithm>
#include <utility>

namespace controller {

namespace {

kx::roaming_peer make(kx::roaming_role role, const mac_address &client, std::uint16_t vlan, std::uint32_t peer) {
    kx::roaming_peer made{};
    made.role = static_cast<std::uint8_t>(role);
    made.client = client;
    made.vlan = vlan;
    made.peer = peer;
    return made;
}

bool equal(const kx::roaming_peer &a, const kx::roaming_peer &b) {
    return a.role == b.role && a.client == b.client && a.vlan == b.vlan && a.peer == b.peer;
}

}  // namespace

void roaming_peers::set_path(const mac_address &client, const std::optional<roaming_path> &path) {
    const auto known = paths_.find(client);
    if (known == paths_.end() ? !path : path == known->second) {
        return;
    }
    if (known != paths_.end()) {
        touch(known->second, client);
        ends_[known->second.home].clients.erase(client);
        ends_[known->second.foreign].clients.erase(client);
        paths_.erase(known);
    }
    if (path) {
        paths_[client] = *path;
        ends_[path->home].clients.insert(client);
        ends_[path->foreign].clients.insert(client);
        touch(*path, client);
    }
}

void roaming_peers::touch(const roaming_path &path, const mac_address &client) {
    touched_.emplace(path.home, client);
    touched_.emplace(path.foreign, client);
}

void roaming_peers::ap_up(const mac_address &ap) {
    end &one = ends_[ap];
    one.up = true;
    one.carries = one.caught_up = one.stated_all = false;
    one.since = now_;
    one.told.clear();
    unstated_.erase(ap);
}

void roaming_peers::ap_down(const mac_address &ap) {
    end &one = ends_[ap];
    one.up = one.carries = false;
    one.since = now_;
    unstated_.erase(ap);
}

void roaming_peers::ap_carries(const mac_address &ap, std::uint32_t address) {
    end &one = ends_[ap];
    one.carries = one.up;
    one.address = address;
    if (one.carries && !one.stated_all) {
        unstated_.insert(ap);
    }
    reachability_changed(one);
}

void roaming_peers::ap_caught_up(const mac_address &ap) { ends_[ap].caught_up = true; }

void roaming_peers::tick() {
    now_++;
    for (auto &[ap, one] : ends_) {
        if (is_reachable(one) != one.was_reachable) {
            reachability_changed(one);
        }
    }
}

// Both ends: what is said to the other one depends on this, and an address may be new.
void roaming_peers::reachability_changed(end &one) {
    one.was_reachable = is_reachable(one);
    for (const mac_address &client : one.clients) {
        touch(paths_.at(client), client);
    }
}

bool roaming_peers::is_reachable(const end &one) const {
    return one.address != 0 && (one.carries || now_ - one.since < grace);
}

bool roaming_peers::is_reachable(const mac_address &ap) const {
    const auto found = ends_.find(ap);
    return found != ends_.end() && is_reachable(found->second);
}

std::optional<kx::roaming_peer> roaming_peers::wanted(const mac_address &ap, const mac_address &client) const {
    const auto found = paths_.find(client);
    if (found == paths_.end()) {
        return std::nullopt;
    }
    const auto &[home, foreign, vlan] = found->second;
    if (home == foreign) {
        return home == ap ? std::optional(make(kx::roaming_role::local, client, vlan, 0)) : std::nullopt;
    }
    if ((ap != home && ap != foreign) || !is_reachable(ap == home ? foreign : home)) {
        return std::nullopt;
    }
    return ap == home ? make(kx::roaming_role::home, client, vlan, ends_.at(foreign).address)
                      : make(kx::roaming_role::foreign, client, vlan, ends_.at(home).address);
}

bool roaming_peers::may_state_all(const mac_address &ap, const end &one) const {
    if (!one.caught_up) {
        return false;
    }
    return now_ - one.since >= 2 * grace ||
           std::ranges::all_of(one.clients, [&](const mac_address &client) { return wanted(ap, client).has_value(); });
}

void roaming_peers::state_all(const mac_address &ap, end &one) {
    one.stated_all = true;
    one.told.clear();
    due_.push_back({ap, make(kx::roaming_role::begin, {}, 0, 0)});
    for (const mac_address &client : one.clients) {
        state(ap, client);
    }
    due_.push_back({ap, make(kx::roaming_role::end, {}, 0, 0)});
}

void roaming_peers::state(const mac_address &ap, const mac_address &client) {
    end &one = ends_.at(ap);
    const auto content = wanted(ap, client);
    const auto told = one.told.find(client);
    if (content && (told == one.told.end() || !equal(*content, told->second))) {
        one.told[client] = *content;
        due_.push_back({ap, *content});
    } else if (!content && told != one.told.end()) {
        one.told.erase(told);
        due_.push_back({ap, make(kx::roaming_role::gone, client, 0, 0)});
    }
}

std::vector<roaming_peers::statement> roaming_peers::extract() {
    for (const auto &[ap, client] : std::exchange(touched_, {})) {
        if (ends_.at(ap).carries) {
            state(ap, client);
        }
    }
    std::erase_if(unstated_, [this](const mac_address &ap) {
        end &one = ends_.at(ap);
        const bool may = may_state_all(ap, one);
        if (may) {
            state_all(ap, one);
        }
        return may;
    });
    return std::exchange(due_, {});
}

}  // namespace controller
