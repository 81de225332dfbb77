// The driver's side of the radio stack: requests of the daemon, the MAC ACL's questions and verdicts.
#include <algorithm>
#include <cerrno>
#include <utility>

#include "lab/radio/radio_stack.h"
#include "wire/driver_records.h"

namespace radio {
kx::driver_answer radio_stack::serve(std::size_t vap, std::uint32_t request, std::span<const std::uint8_t> data,
                                     clock::time_point now) {
    switch (request) {
        case SIOCGIFHWADDR:
            return {.data = {vaps_[vap].bssid->begin(), vaps_[vap].bssid->end()}};
        case DRIVER_STATION_REQUEST:
            return disassociate(vap, data);
        case DRIVER_STATION_LIST:
            return {.data = stations_.driver_list(vap, now)};
        case DRIVER_ACL_VERDICT:
            return apply_verdict(vap, data, now);
        default:
            return {.error = EOPNOTSUPP};
    }
}

kx::driver_answer radio_stack::disassociate(std::size_t vap, std::span<const std::uint8_t> body) {
    const auto order = kx::parse_station_request(body);
    if (!order) {
        return {.error = EINVAL};
    }
    const mac_address client = order->station;
    if (!stations_.leave(client, vap)) {
        return {.error = ENOENT};
    }
    ++counters_.ordered;
    report_event("ordered_off", client, vap, "disassociated by order, reason " + std::to_string(order->reason),
                 {{"reason", order->reason}}, std::nullopt);
    if (on_ordered_off) {
        on_ordered_off(client, *vaps_[vap].bssid);
    }
    return {};
}

void radio_stack::ask(const air_event &join, std::size_t vap, clock::time_point now) {
    acl_wait &wait = waiting_[join.client];
    wait = {.join = join, .question = ++last_question_, .deadline = now + acl_patience, .behind = {}};
    ++counters_.acl_asked;
    report_event("acl_question", join.client, vap, "asks to be let in", {},
                 kx::acl_question(join.client, join.bssid, wait.question));
}

kx::driver_answer radio_stack::apply_verdict(std::size_t vap, std::span<const std::uint8_t> record,
                                             clock::time_point now) {
    const auto answer = kx::parse_acl_verdict(record);
    if (!answer) {
        return {.error = EINVAL};
    }
    const auto asked = std::ranges::find_if(waiting_, [&](const auto &each) {
        return each.second.question == answer->question && each.second.join.bssid == vaps_[vap].bssid;
    });
    if (asked == waiting_.end()) {
        return {.error = ENOENT};
    }
    decide(asked, answer->allowed, answer->allowed ? "let in by the MAC ACL" : "kept out by the MAC ACL", now);
    return {};
}

void radio_stack::decide(std::map<mac_address, acl_wait>::iterator question, bool allowed, std::string_view why,
                         clock::time_point now) {
    const auto [client, wait] = *question;
    waiting_.erase(question);
    const std::size_t vap = *find_vap(wait.join.bssid);
    if (!allowed) {
        ++counters_.acl_refused;
    }
    report_event("acl_verdict", client, vap, std::string(why), {{"allowed", allowed}}, std::nullopt);
    if (allowed) {
        join(wait.join, vap, now);
    }
    for (const air_event &event : wait.behind) {
        handle(event, now);
    }
}

std::optional<clock::time_point> radio_stack::next_deadline() const {
    std::optional<clock::time_point> earliest;
    for (const auto &[client, wait] : waiting_) {
        earliest = earliest ? std::min(*earliest, wait.deadline) : wait.deadline;
    }
    return earliest;
}

void radio_stack::expire(clock::time_point now) {
    for (;;) {
        const auto late =
            std::ranges::find_if(waiting_, [now](const auto &each) { return each.second.deadline <= now; });
        if (late == waiting_.end()) {
            return;
        }
        decide(late, false, "kept out: no verdict of the MAC ACL", now);
    }
}

}  // namespace radio
