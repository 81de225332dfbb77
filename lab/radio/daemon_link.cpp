#include "lab/radio/daemon_link.h"

#include <algorithm>
#include <utility>

#include "common/paths.h"

namespace radio {
namespace {

using namespace std::chrono_literals;

constexpr std::uint32_t notification_flags = 1;
constexpr std::size_t daemon_vaps_max = 16;  // size of the daemon's table; it requests no more addresses
constexpr auto full_pause = 1ms;             // poll() does not report room in a datagram peer's queue
constexpr auto absent_pause = 20ms;

}  // namespace

daemon_link::daemon_link(loop &on, const settings &how)
    : how_(how),
      requested_by_(std::min(how.vaps, daemon_vaps_max)),
      again_(make_timer(on, [this] { flush(); })),
      patience_(make_timer(on, [this] { give_up(); })) {}

std::optional<daemon_link::endpoint_id> daemon_link::current_endpoint() {
    struct stat status {};
    if (stat(kx::place(kx::endpoint_client_mgr).c_str(), &status) != 0) {
        return std::nullopt;
    }
    return endpoint_id{.device = status.st_dev,
                       .inode = status.st_ino,
                       .made_s = status.st_mtim.tv_sec,
                       .made_ns = status.st_mtim.tv_nsec};
}

bool daemon_link::is_ready() const {
    if (!how_.wait_ready || requested_by_.empty()) {
        return true;
    }
    const std::optional<endpoint_id> current = current_endpoint();
    return current && std::ranges::all_of(requested_by_, [&](const auto &by) { return by == current; });
}

void daemon_link::address_requested(std::size_t vap) {
    if (vap >= requested_by_.size()) {
        return;
    }
    requested_by_[vap] = current_endpoint();
    if (is_ready()) {
        flush();
    }
}

void daemon_link::send(notification message) {
    if (queue_.empty()) {
        start_waiting();
    }
    queue_.push_back(std::move(message));
    if (queue_.size() == 1) {
        flush();
    }
}

void daemon_link::start_waiting() {
    if (how_.patience > 0s) {
        patience_->add(how_.patience);
    }
}

void daemon_link::flush() {
    const bool ready = is_ready();
    auto result = kx::ipc_result::absent;
    bool progress = false;
    while (ready && !queue_.empty()) {
        const notification &next = queue_.front();
        result = socket_.send(kx::endpoint_client_mgr, next.id, notification_flags, next.payload);
        if (result != kx::ipc_result::sent) {
            break;
        }
        queue_.pop_front();
        progress = true;
    }
    if (queue_.empty() && ready) {
        patience_->remove();
        again_->remove();
        return on_change();
    }
    if (progress) {
        start_waiting();
    }
    again_->add(result == kx::ipc_result::full ? full_pause : absent_pause);
}

void daemon_link::give_up() {
    if (!is_ready()) {
        return on_lost("the daemon did not request the addresses of all VAPs within " +
                       std::to_string(how_.patience.count()) +
                       " s: is client_mgr running, and does apd have its channel to the controller?");
    }
    on_lost("the daemon has read no messages for " + std::to_string(how_.patience.count()) + " s");
}

}  // namespace radio
