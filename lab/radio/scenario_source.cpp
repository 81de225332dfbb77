#include "lab/radio/scenario_source.h"

#include <algorithm>
#include <chrono>

namespace radio {

using namespace std::chrono_literals;

scenario_source::scenario_source(const scenario &all, const scenario_ap &ap) : come_back_(all.come_back) {
    for (const timed_event &each : all.events) {
        add_condition(each);
        if (std::ranges::find(ap.vaps, each.event.bssid, &kx::vap_config::bssid) != ap.vaps.end()) {
            own_.push_back(each);
        }
    }
}

void scenario_source::add_condition(const timed_event &each) {
    std::vector<condition> &history = conditions_[each.event.client];
    condition next = history.empty() ? condition{} : history.back();
    next.since = each.at;
    switch (each.event.what) {
        case air::association:
            next = {.since = each.at, .bssid = each.event.bssid};
            break;
        case air::reassociation:
            next.bssid = each.event.bssid;
            break;
        case air::departure:
            next = {.since = each.at};
            break;
        case air::address:
            next.ip = each.event.ip;
            break;
        case air::pmk_add:
            next.key = each.event.key;
            break;
        default:
            return;
    }
    history.push_back(next);
}

const scenario_source::condition *scenario_source::condition_at(const mac_address &client, lab_time now) const {
    const auto found = conditions_.find(client);
    if (found == conditions_.end()) {
        return nullptr;
    }
    const auto after = std::ranges::upper_bound(found->second, now, {}, &condition::since);
    return after == found->second.begin() ? nullptr : &*std::prev(after);
}

bool scenario_source::is_here(const mac_address &client, const mac_address &bssid, lab_time now) const {
    const condition *current = condition_at(client, now);
    return current != nullptr && current->bssid == bssid;
}

std::vector<timed_event> scenario_source::when_sent_away(const mac_address &client, const mac_address &bssid,
                                                         lab_time now) const {
    if (!come_back_ || !is_here(client, bssid, now)) {
        return {};
    }
    const condition &had = *condition_at(client, now);
    const air_event back{.what = air::association, .client = client, .bssid = bssid};
    std::vector<timed_event> result{{.at = now + *come_back_, .event = back}};
    if (had.key) {
        result.push_back({.at = result.back().at + 10ms, .event = back});
        result.back().event.what = air::pmk_add;
        result.back().event.key = *had.key;
    }
    if (had.ip != 0) {
        result.push_back({.at = result.back().at + 10ms, .event = back});
        result.back().event.what = air::address;
        result.back().event.ip = had.ip;
    }
    return result;
}

event_source::step scenario_source::next(timed_event &event) {
    if (played_ == own_.size()) {
        return step::end;
    }
    event = own_[played_++];
    return step::event;
}

}  // namespace radio
