#include "lab/controller/doubts.h"

#include <algorithm>

namespace controller {

namespace {

// A daemon that is not ready yet drops the request.
constexpr unsigned ticks_to_ask_again = 3;
constexpr unsigned absences_that_count = 2;

}  // namespace

void doubts::restart() {
    *this = {};
    asked_ = true;
}

void doubts::told_about(const kx::mac_address &station, told what) { notices_[station] = {what, false}; }

void doubts::associated(const kx::mac_address &station) {
    if (const auto crossed = notices_.extract(station)) {
        checks_[station] = {crossed.mapped().what, false, 0};
    } else if (const auto open = checks_.find(station); open != checks_.end()) {
        open->second = {open->second.what, false, 0};
    }
}

void doubts::missed(const kx::mac_address &station) { checks_[station] = {told::removal, false, 1}; }

bool doubts::tick() {
    if (asked_) {
        ticks_ = (ticks_ + 1) % ticks_to_ask_again;
        return ticks_ == 0;
    }
    if (std::ranges::none_of(checks_, [](const auto &each) { return !each.second.asked; })) {
        return false;
    }
    ask();
    return true;
}

void doubts::ask() {
    asked_ = true;
    ticks_ = 0;
    for (auto &[station, sent] : notices_) {
        sent.before_request = true;
    }
    for (auto &[station, open] : checks_) {
        open.asked = true;
    }
}

std::vector<doubts::finding> doubts::settle(const std::function<presence(const kx::mac_address &)> &look_up) {
    std::vector<finding> found;
    if (!asked_) {
        return found;
    }
    asked_ = false;
    std::erase_if(notices_, [](const auto &each) { return each.second.before_request; });
    for (auto at = checks_.begin(); at != checks_.end();) {
        auto &[station, open] = *at;
        const presence where = open.asked ? look_up(station) : presence::unclear;
        if (where == presence::absent && ++open.absences < absences_that_count) {
            open.asked = false;
        }
        if (!open.asked) {
            ++at;
            continue;
        }
        found.push_back({station, open.what, where != presence::absent});
        at = checks_.erase(at);
    }
    return found;
}

}  // namespace controller
