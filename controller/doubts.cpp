#include "controller/doubts.h"

#include <algorithm>

namespace controller {

namespace {

// A daemon that is not ready yet drops the request.
constexpr unsigned ticks_to_ask_again = 3;
constexpr unsigned absences_that_count = 2;
// A message that was not taken by then went into a tunnel that is dead.
constexpr unsigned ticks_to_cross = 20;
// Stations that are believed to be there rarely are not: one report serves many of them.
constexpr unsigned ticks_to_confirm = 5;

}  // namespace

void doubts::restart() {
    *this = {};
    asked_ = true;
}

void doubts::told_about(const mac_address &station, told what) {
    notice &last = notices_[station];
    const bool over_answer = what == told::removal && (last.what == told::answer || last.over_answer);
    last = {.what = what, .over_answer = over_answer};
}

std::optional<told> doubts::told_last(const mac_address &station) const {
    const auto found = notices_.find(station);
    return found == notices_.end() ? std::nullopt : std::optional(found->second.what);
}

void doubts::hold_back(const mac_address &station, const record &said, bool come) {
    check &open = checks_[station];
    if (open.held_back.empty()) {
        const auto last = notices_.find(station);
        open.maybe_stale =
            last != notices_.end() && last->second.over_answer && said.type() == record_type::foreign_client_assoc;
    }
    if (come) {
        open.wait = 0;
        open.asked = false;
        open.absences = 0;
    }
    open.held_back.push_back(said);
}

bool doubts::holds_back(const mac_address &station) const {
    const auto found = checks_.find(station);
    return found != checks_.end() && !found->second.held_back.empty();
}

void doubts::confirm(const mac_address &station) { checks_[station] = {.wait = ticks_to_confirm}; }

void doubts::missed(const mac_address &station) { checks_[station] = {.wait = 1, .absences = 1}; }

void doubts::drop(const mac_address &station) {
    checks_.erase(station);
    to_correct_.erase(station);
}

void doubts::tick() {
    ticks_++;
    for (auto &[station, sent] : notices_) {
        sent.age++;
    }
    std::erase_if(notices_, [](const auto &each) { return each.second.age > ticks_to_cross; });
    for (auto &[station, open] : checks_) {
        open.wait -= open.wait > 0 ? 1 : 0;
    }
}

bool doubts::asks_for_report() {
    if (asked_) {
        const bool again = ticks_ >= ticks_to_ask_again;
        ticks_ = again ? 0 : ticks_;
        return again;
    }
    if (std::ranges::none_of(checks_, [](const auto &each) { return each.second.wait == 0; })) {
        return false;
    }
    asked_ = true;
    ticks_ = 0;
    for (auto &[station, sent] : notices_) {
        sent.before_request = true;
    }
    for (auto &[station, open] : checks_) {
        open.asked = true;
    }
    return true;
}

std::vector<doubts::finding> doubts::settle(const std::function<presence(const mac_address &)> &look_up) {
    std::vector<finding> found;
    asked_ = false;
    std::erase_if(notices_, [](const auto &each) { return each.second.before_request; });
    for (auto at = checks_.begin(); at != checks_.end();) {
        auto &[station, open] = *at;
        const presence where = open.asked ? look_up(station) : presence::unclear;
        if (where == presence::absent && ++open.absences < absences_that_count) {
            open.asked = false;
            open.wait = 1;
        }
        if (!open.asked) {
            ++at;
            continue;
        }
        found.push_back({station, where != presence::absent, std::move(open.held_back), open.maybe_stale});
        at = checks_.erase(at);
    }
    return found;
}

}  // namespace controller
