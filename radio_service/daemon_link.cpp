#include "radio_service/daemon_link.h"

#include <algorithm>
#include <system_error>
#include <utility>

#include "common/paths.h"
#include "common/program_log.h"
#include "wire/local_messages.h"

namespace kx {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t daemon_vaps_max = 16;  // size of the daemon's table; it requests no more addresses
constexpr auto full_pause = 1ms;             // poll() does not report room in a datagram peer's queue
constexpr auto absent_pause = 20ms;
constexpr auto error_pause = 200ms;
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

void daemon_link::request_load_again() {
    load_again_ = true;
    load_requested_of_.reset();
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

std::chrono::milliseconds daemon_link::request_load() {
    const std::optional<endpoint_id> daemon = current_endpoint();
    if (!daemon) {
        return absent_pause;
    }
    if (load_requested_of_ == daemon) {
        return 0ms;
    }
    const auto pause = send_now({.id = KX_MSG_ID_VAP_INIT, .payload = {}});
    if (pause == 0ms) {
        load_requested_of_ = daemon;
        load_again_ = false;
    }
    return pause;
}

std::chrono::milliseconds daemon_link::send_now(const notification &message) {
    try {
        const ipc_result result = socket_.send(endpoint_client_mgr, message.id, ipc_flag_notification, message.payload);
        has_failed_ = false;
        switch (result) {
            case ipc_result::sent:
                return 0ms;
            case ipc_result::full:
                return full_pause;
            default:
                return absent_pause;
        }
    } catch (const std::system_error &error) {
        if (!std::exchange(has_failed_, true)) {
            report(std::string("client_mgr cannot be reached: ") + error.what());
        }
        return error_pause;
    }
}

void daemon_link::flush() {
    auto pause = 0ms;
    if (requests_loads_ && (load_again_ || !is_ready())) {
        pause = request_load();
    }
    if (!is_ready()) {
        return again_.start(unready_pause);
    }
    bool progress = false;
    while (pause == 0ms && !queue_.empty()) {
        pause = send_now(queue_.front());
        if (pause == 0ms) {
            queue_.pop_front();
            progress = true;
        }
    }
    if (pause == 0ms) {
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
    again_.start(pause);
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
