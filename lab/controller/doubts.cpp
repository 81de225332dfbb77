#include "lab/controller/doubts.h"

#include <algorithm>

namespace controller {

namespace {

// A daemon that is not ready yet drops the request.
constexpr unsigned ticks_to_ask_again = 3;
constexpr unsigned absences_that_count = 2;
// A message that was not taken by then went into a tunnel that is dead.
constexpr unsigned ticks_to_cross = 20;
// A station is rarely gone when the answer to its access point's question comes: one report serves many of those.
constexpr unsigned ticks_for_associations = 5;

}  // namespace

void doubts::restart() {
    *this = {};
    asked_ = true;
}

void doubts::told_about(const kx::mac_address &station, told what) { notices_[station] = {.what = what}; }

doubts::check doubts::check_after(told what) {
    return {.what = what, .wait = what == told::association ? ticks_for_associations : 0};
}

void doubts::associated(const kx::mac_address &station) {
    if (const auto crossed = notices_.extract(station)) {
        checks_[station] = check_after(crossed.mapped().what);
    } else if (const auto open = checks_.find(station); open != checks_.end()) {
        open->second = check_after(open->second.what);
    }
}

void doubts::missed(const kx::mac_address &station) {
    checks_[station] = {.what = told::removal, .wait = 0, .absences = 1};
}

bool doubts::tick() {
    grow_older();
    if (asked_) {
        ticks_ = (ticks_ + 1) % ticks_to_ask_again;
        return ticks_ == 0;
    }
    if (std::ranges::none_of(checks_, [](const auto &each) { return each.second.wait == 0; })) {
        return false;
    }
    ask();
    return true;
}

void doubts::grow_older() {
    for (auto &[station, sent] : notices_) {
        sent.age++;
    }
    std::erase_if(notices_, [](const auto &each) { return each.second.age > ticks_to_cross; });
    for (auto &[station, open] : checks_) {
        open.wait -= open.wait > 0 ? 1 : 0;
    }
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
