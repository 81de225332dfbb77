#include "radiod/admission.h"

#include <algorithm>

namespace radiod {

void admission::asked(std::uint32_t question, const mac_address &station, const vap_rules &vap, time_point now) {
    const auto place = open_.insert_or_assign(
        key{station, vap.bssid},
        open_question{
            .id = question, .has_verdict = false, .fetches_pmk = vap.fetches_pmk, .deadline = now + how_.hold});
    if (vap.has_acl) {
        act_.ask_verdict(station, vap.bssid);
    } else {
        allow(place.first);
    }
}

bool admission::verdict(const mac_address &station, const mac_address &bssid, bool allowed) {
    const auto question = open_.find({station, bssid});
    if (question == open_.end() || question->second.has_verdict) {
        return false;
    }
    if (allowed) {
        allow(question);
    } else {
        close(question, false);
    }
    return true;
}

void admission::pmk_installed(const mac_address &station, const mac_address &bssid) {
    const auto question = open_.find({station, bssid});
    if (question != open_.end() && question->second.has_verdict) {
        close(question, true);
    }
}

void admission::allow(std::map<key, open_question>::iterator question) {
    question->second.has_verdict = true;
    const auto [station, bssid] = question->first;
    if (!question->second.fetches_pmk || !act_.get_pmk(station, bssid)) {
        close(question, true);
    }
}

void admission::close(std::map<key, open_question>::iterator question, bool allowed) {
    const auto [station, bssid] = question->first;
    const std::uint32_t id = question->second.id;
    open_.erase(question);
    act_.answer(id, station, bssid, allowed);
}

std::optional<admission::time_point> admission::next_deadline() const {
    const auto first = std::ranges::min_element(open_, {}, [](const auto &each) { return each.second.deadline; });
    return first == open_.end() ? std::nullopt : std::optional(first->second.deadline);
}

void admission::expire(time_point now) {
    for (auto each = open_.begin(); each != open_.end();) {
        const auto question = each++;
        if (question->second.deadline <= now) {
            close(question, question->second.has_verdict || how_.allows_without_verdict);
        }
    }
}

}  // namespace radiod
