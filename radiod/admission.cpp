#include "radiod/admission.h"

#include <algorithm>

namespace radiod {

void admission::asked(std::uint32_t question, const mac_address &station, const vap_rules &vap, time_point now) {
    const auto place = open_.insert_or_assign(
        key{station, vap.bssid},
        open_question{
            .id = question, .asks_home = vap.asks_home, .fetches_pmk = vap.fetches_pmk, .deadline = now + how_.hold});
    if (vap.has_acl) {
        act_.ask_verdict(station, vap.bssid);
    } else {
        allow(place.first);
    }
}

void admission::ask_again() const {
    for (const auto &[who, question] : open_) {
        if (question.waits_for == stage::verdict) {
            act_.ask_verdict(who.first, who.second);
        }
    }
}

bool admission::verdict(const mac_address &station, const mac_address &bssid, bool allowed) {
    const auto question = open_.find({station, bssid});
    if (question == open_.end() || (question->second.waits_for != stage::verdict && allowed)) {
        return false;
    }
    if (allowed) {
        allow(question);
    } else {
        close(question, false);
    }
    return true;
}

bool admission::waits_for_pmk(const mac_address &station, const mac_address &bssid) const {
    const auto question = open_.find({station, bssid});
    return question != open_.end() && question->second.waits_for == stage::pmk;
}

void admission::pmk_settled(const mac_address &station, const mac_address &bssid) {
    if (waits_for_pmk(station, bssid)) {
        close(open_.find({station, bssid}), true);
    }
}

void admission::allow(std::map<key, open_question>::iterator question) {
    if (!question->second.asks_home) {
        get_pmk(question);
        return;
    }
    question->second.waits_for = stage::home;
    const auto [station, bssid] = question->first;
    act_.ask_home(station, bssid);
}

bool admission::home_found(const mac_address &station, const mac_address &bssid) {
    const auto question = open_.find({station, bssid});
    if (question == open_.end() || question->second.waits_for != stage::home) {
        return false;
    }
    get_pmk(question);
    return true;
}

void admission::get_pmk(std::map<key, open_question>::iterator question) {
    question->second.waits_for = stage::pmk;
    const auto [station, bssid] = question->first;
    if (!question->second.fetches_pmk || !act_.get_pmk(station, bssid)) {
        close(question, true);
    }
}

void admission::close(std::map<key, open_question>::iterator question, bool allowed, bool by_verdict) {
    const auto [station, bssid] = question->first;
    const std::uint32_t id = question->second.id;
    open_.erase(question);
    act_.answer(id, station, bssid, allowed, by_verdict);
}

std::optional<admission::time_point> admission::next_deadline() const {
    const auto first = std::ranges::min_element(open_, {}, [](const auto &each) { return each.second.deadline; });
    return first == open_.end() ? std::nullopt : std::optional(first->second.deadline);
}

void admission::expire(time_point now) {
    for (auto each = open_.begin(); each != open_.end();) {
        const auto question = each++;
        if (question->second.deadline <= now) {
            const bool has_verdict = question->second.waits_for != stage::verdict;
            close(question, has_verdict || how_.allows_without_verdict, has_verdict);
        }
    }
}

}  // namespace radiod
