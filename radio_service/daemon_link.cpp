#include "radio_service/daemon_link.h"

#include <algorithm>
#include <utility>

#include "common/paths.h"
#include "wire/local_messages.h"

namespace kx {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t daemon_vaps_max = 16;  // size of the daemon's table; it requests no more addresses
constexpr auto full_pause = 1ms;             // poll() does not report room in a datagram peer's queue
constexpr auto absent_pause = 20ms;
constexpr auto unready_pause = 500ms;  // address_requested() ends it

}  // namespace

daemon_link::daemon_link(event_base *base, const settings &how)
    : how_(how),
      requested_(std::min(how.vaps, daemon_vaps_max)),
      again_(base, -1, 0, [this] { flush(); }),
      patience_(base, -1, 0, [this] { give_up(); }) {}

std::optional<daemon_link::endpoint_id> daemon_link::current_endpoint() {
    struct stat status {};
    if (stat(place(endpoint_client_mgr).c_str(), &status) != 0) {
        return std::nullopt;
    }
    return endpoint_id{.device = status.st_dev,
                       .inode = status.st_ino,
                       .made_s = status.st_mtim.tv_sec,
                       .made_ns = status.st_mtim.tv_nsec};
}

bool daemon_link::is_ready() const {
    if (!how_.wait_ready || requested_.empty()) {
        return true;
    }
    const std::optional<endpoint_id> current = current_endpoint();
    return current && loaded_by_ == current;
}

void daemon_link::request_loads() {
    requests_loads_ = true;
    flush();
}

void daemon_link::clear() {
    queue_.clear();
    patience_.stop();
}

void daemon_link::address_requested(std::size_t vap) {
    const std::optional<endpoint_id> daemon = current_endpoint();
    if (vap >= requested_.size() || !daemon) {
        return;
    }
    if (requested_by_ != daemon) {
        requested_by_ = daemon;
        requested_.assign(requested_.size(), false);
    }
    requested_[vap] = true;
    if (std::ranges::find(requested_, false) != requested_.end()) {
        return;
    }
    requested_.assign(requested_.size(), false);
    loaded_by_ = daemon;
    if (on_loaded) {
        on_loaded();
    }
    flush();
}

void daemon_link::send(notification message) {
    if (queue_.empty()) {
        start_waiting();
    }
    queue_.push_back(std::move(message));
    if (queue_.size() > how_.waiting_max) {
        queue_.pop_front();
    }
    if (queue_.size() == 1) {
        flush();
    }
}

void daemon_link::start_waiting() {
    if (how_.patience > 0s) {
        patience_.start(how_.patience);
    }
}

void daemon_link::request_load() {
    const std::optional<endpoint_id> daemon = current_endpoint();
    if (daemon && load_requested_of_ != daemon &&
        socket_.send(endpoint_client_mgr, KX_MSG_ID_VAP_INIT, ipc_flag_notification, {}) == ipc_result::sent) {
        load_requested_of_ = daemon;
    }
}

void daemon_link::flush() {
    if (!is_ready()) {
        if (requests_loads_) {
            request_load();
        }
        return again_.start(unready_pause);
    }
    auto result = ipc_result::sent;
    bool progress = false;
    while (!queue_.empty()) {
        const notification &next = queue_.front();
        result = socket_.send(endpoint_client_mgr, next.id, ipc_flag_notification, next.payload);
        if (result != ipc_result::sent) {
            break;
        }
        queue_.pop_front();
        progress = true;
    }
    if (queue_.empty()) {
        patience_.stop();
        again_.stop();
        if (on_change) {
            on_change();
        }
        return;
    }
    if (progress) {
        start_waiting();
    }
    again_.start(result == ipc_result::full ? full_pause : absent_pause);
}

void daemon_link::give_up() {
    if (!on_lost) {
        return;
    }
    if (!is_ready()) {
        return on_lost("the daemon did not request the addresses of all VAPs within " +
                       std::to_string(how_.patience.count()) +
                       " s: is client_mgr running, and does apd have its channel to the controller?");
    }
    on_lost("the daemon has read no messages for " + std::to_string(how_.patience.count()) + " s");
}

}  // namespace kx
