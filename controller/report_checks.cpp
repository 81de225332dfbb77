#include "controller/report_checks.h"

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
// Expired notices are deleted this often.
constexpr unsigned ticks_to_delete = 16;

}  // namespace

void report_checks::restart() {
    *this = {};
    requested_ = true;
}

bool report_checks::has_expired(const sent_notice &one) const { return now_ - one.sent > ticks_to_take_effect; }

const report_checks::sent_notice *report_checks::find_notice(const mac_address &station) const {
    const auto found = notices_.find(station);
    return found == notices_.end() || has_expired(found->second) ? nullptr : &found->second;
}

void report_checks::add_notice(const mac_address &station, notice kind) {
    const sent_notice *last = find_notice(station);
    const bool after_answer =
        last != nullptr && kind == notice::removal && (last->kind == notice::answer || last->after_answer);
    notices_[station] = {.kind = kind, .after_answer = after_answer, .requests = requests_, .sent = now_};
}

std::optional<notice> report_checks::last_notice(const mac_address &station) const {
    const sent_notice *last = find_notice(station);
    return last == nullptr ? std::nullopt : std::optional(last->kind);
}

void report_checks::schedule(check &one, unsigned ticks) {
    one.due = now_ + ticks;
    one.requests = requests_;
    earliest_due_ = std::min(earliest_due_, one.due);
}

void report_checks::defer(const mac_address &station, const record &one, bool joined) {
    check &open = checks_[station];
    if (open.deferred.empty()) {
        const sent_notice *last = find_notice(station);
        open.maybe_stale = last != nullptr && last->after_answer && one.type() == record_type::foreign_client_assoc;
    }
    if (joined) {
        schedule(open, 0);
        open.absences = 0;
    }
    open.deferred.push_back(one);
}

bool report_checks::has_deferred(const mac_address &station) const {
    const auto found = checks_.find(station);
    return found != checks_.end() && !found->second.deferred.empty();
}

void report_checks::confirm(const mac_address &station) {
    check &open = checks_[station] = {};
    schedule(open, ticks_to_confirm);
}

void report_checks::add_absence(const mac_address &station) {
    check &open = checks_[station] = {.absences = 1};
    schedule(open, 1);
}

void report_checks::drop(const mac_address &station) {
    checks_.erase(station);
    corrections_.erase(station);
}

void report_checks::tick() {
    now_++;
    if (now_ % ticks_to_delete == 0) {
        std::erase_if(notices_, [this](const auto &each) { return has_expired(each.second); });
    }
}

bool report_checks::is_due() {
    if (earliest_due_ <= now_) {  // of a check that may have been dropped since
        earliest_due_ = never;
        for (const auto &[station, open] : checks_) {
            earliest_due_ = std::min(earliest_due_, open.due);
        }
    }
    return earliest_due_ <= now_;
}

bool report_checks::begin_report() {
    if (requested_) {
        const bool again = now_ - requested_at_ >= ticks_to_repeat;
        requested_at_ = again ? now_ : requested_at_;
        return again;
    }
    if (!is_due()) {
        return false;
    }
    requested_ = true;
    requested_at_ = now_;
    requests_++;
    return true;
}

std::vector<report_checks::result> report_checks::settle(const std::function<presence(const mac_address &)> &look_up) {
    std::vector<result> settled;
    requested_ = false;
    std::erase_if(notices_, [this](const auto &each) { return each.second.requests < requests_; });
    for (auto at = checks_.begin(); at != checks_.end();) {
        auto &[station, open] = *at;
        const bool covered = open.requests < requests_;
        const presence found = covered ? look_up(station) : presence::unclear;
        if (found == presence::absent && ++open.absences < absences_that_count) {
            schedule(open, 1);
            ++at;
        } else if (!covered) {
            ++at;
        } else {
            settled.push_back({station, found != presence::absent, std::move(open.deferred), open.maybe_stale});
            at = checks_.erase(at);
        }
    }
    return settled;
}

std::vector<mac_address> report_checks::stations() const {
    std::vector<mac_address> found;
    for (const auto &[station, open] : checks_) {
        found.push_back(station);
    }
    for (const auto &[station, old] : corrections_) {
        found.push_back(station);
    }
    return found;
}

}  // namespace controller
