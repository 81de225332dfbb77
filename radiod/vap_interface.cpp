#include "radiod/vap_interface.h"

#include <system_error>
#include <utility>

#include "common/program_log.h"

namespace radiod {

std::optional<interface> vap_interface::find() {
    std::optional<interface> found = find_interface(ifname_);
    if (std::exchange(is_missing_, !found) != is_missing_ && !found) {
        kx::report(ifname_ + ": there is no such interface");
    }
    if (found && (is_lost() || found->index != ifindex_)) {
        ifindex_ = found->index;
        watch_addresses();
    }
    return found;
}

void vap_interface::watch_addresses() {
    try {
        addresses_.emplace(base_, ifname_);
        addresses_->on_address = [this](const seen_address &seen) { on_address(seen); };
        has_failed_ = false;
    } catch (const std::system_error &error) {
        addresses_.reset();
        if (!std::exchange(has_failed_, true)) {
            kx::report(ifname_ + ": stations' addresses cannot be seen: " + error.what());
        }
    }
}

}  // namespace radiod
