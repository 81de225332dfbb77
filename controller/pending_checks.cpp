#include "controller/pending_checks.h"

#include <algorithm>

namespace controller {

namespace {

// An access point that is not ready drops the request.
constexpr unsigned ticks_to_repeat = 3;
constexpr unsigned absences_that_count = 2;
// A message that has no effect within this time was sent into a dead tunnel.
constexpr unsigned ticks_to_take_effect = 20;
// Most stations are where they should be, so one report confirms many of them.
constexpr unsigned ticks_to_confirm = 5;

}  // namespace

void pending_checks::restart() {
    *this = {};
    requested_ = true;
}

void pending_checks::add_notice(const mac_address &station, notice kind) {
    sent_notice &last = notices_[station];
    const bool after_answer = kind == notice::removal && (last.kind == notice::answer || last.after_answer);
    last = {.kind = kind, .after_answer = after_answer};
}

std::optional<notice> pending_checks::last_notice(const mac_address &station) const {
    const auto found = notices_.find(station);
    return found == notices_.end() ? std::nullopt : std::optional(found->second.kind);
}

void pending_checks::defer(const mac_address &station, const record &one, bool joined) {
    check &open = checks_[station];
    if (open.deferred.empty()) {
        const auto last = notices_.find(station);
        open.maybe_stale =
            last != notices_.end() && last->second.after_answer && one.type() == record_type::foreign_client_assoc;
    }
    if (joined) {
        open.wait = 0;
        open.requested = false;
        open.absences = 0;
    }
    open.deferred.push_back(one);
}

bool pending_checks::has_deferred(const mac_address &station) const {
    const auto found = checks_.find(station);
    return found != checks_.end() && !found->second.deferred.empty();
}

void pending_checks::confirm(const mac_address &station) { checks_[station] = {.wait = ticks_to_confirm}; }

void pending_checks::add_absence(const mac_address &station) { checks_[station] = {.wait = 1, .absences = 1}; }

void pending_checks::drop(const mac_address &station) {
    checks_.erase(station);
    corrections_.erase(station);
}

void pending_checks::tick() {
    ticks_++;
    for (auto &[station, sent] : notices_) {
        sent.age++;
    }
    std::erase_if(notices_, [](const auto &each) { return each.second.age > ticks_to_take_effect; });
    for (auto &[station, open] : checks_) {
        open.wait -= open.wait > 0 ? 1 : 0;
    }
}

bool pending_checks::begin_report() {
    if (requested_) {
        const bool again = ticks_ >= ticks_to_repeat;
        ticks_ = again ? 0 : ticks_;
        return again;
    }
    if (std::ranges::none_of(checks_, [](const auto &each) { return each.second.wait == 0; })) {
        return false;
    }
    requested_ = true;
    ticks_ = 0;
    for (auto &[station, sent] : notices_) {
        sent.before_request = true;
    }
    for (auto &[station, open] : checks_) {
        open.requested = true;
    }
    return true;
}

std::vector<pending_checks::result> pending_checks::settle(
    const std::function<presence(const mac_address &)> &look_up) {
    std::vector<result> settled;
    requested_ = false;
    std::erase_if(notices_, [](const auto &each) { return each.second.before_request; });
    for (auto at = checks_.begin(); at != checks_.end();) {
        auto &[station, open] = *at;
        const presence found = open.requested ? look_up(station) : presence::unclear;
        if (found == presence::absent && ++open.absences < absences_that_count) {
            open.requested = false;
            open.wait = 1;
        }
        if (!open.requested) {
            ++at;
            continue;
        }
        settled.push_back({station, found != presence::absent, std::move(open.deferred), open.maybe_stale});
        at = checks_.erase(at);
    }
    return settled;
}

}  // namespace controller
