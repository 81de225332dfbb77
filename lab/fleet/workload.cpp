#include "lab/fleet/workload.h"

#include <algorithm>
#include <cmath>

namespace fleet {

namespace {

using namespace std::chrono_literals;
using radio::air;
using radio::lab_time;

constexpr std::uint8_t office_prefix = 0x57;
constexpr std::uint8_t restricted_prefix = 0xac;  // of the addresses that an access list can name
constexpr unsigned vlans[] = {10, 30, 40};
constexpr unsigned second_office_vlan = 20;
constexpr const char *ssids[] = {"office", "guest", "restricted"};

constexpr auto key_after = 10ms;
constexpr auto address_after = 500ms;
constexpr auto stays_for = 1s;  // between two events, when there are enough stations for the rate
constexpr auto silence_after = 2s;
constexpr auto come_back_after = 200ms;
constexpr auto rest = 1s;  // between the last arrival and the first event

mac_address ap_mac(unsigned ap, unsigned interface) {
    return {0x02,
            0xa0,
            0x00,
            static_cast<std::uint8_t>((ap + 1) >> 8U),
            static_cast<std::uint8_t>(ap + 1),
            static_cast<std::uint8_t>(interface)};
}

lab_time after_seconds(double seconds) { return std::chrono::round<lab_time>(std::chrono::duration<double>(seconds)); }

}  // namespace

workload::workload(const workload_plan &plan) : plan_(plan), random_(plan.seed), stations_(plan.stations) {
    for (station &each : stations_) {
        const unsigned share = below(100);
        if (share < plan.guests) {
            each.on = network::guest;
        } else if (share < plan.guests + plan.restricted) {
            each.on = network::restricted;
        }
    }
    end_ = after_seconds(plan.stations / plan.arrivals + plan.seconds) + rest;
}

std::vector<radio::scenario_ap> workload::access_points(const workload_plan &plan) {
    std::vector<radio::scenario_ap> made(plan.access_points);
    for (unsigned ap = 0; ap < plan.access_points; ap++) {
        made[ap].name = "ap" + std::to_string(ap + 1);
        made[ap].mac = ap_mac(ap, 0);
        for (unsigned i = 0; i < std::size(ssids); i++) {
            kx::vap_config vap;
            vap.ifname = "wlan" + std::to_string(i);
            vap.ssid = ssids[i];
            vap.vlan = static_cast<std::uint16_t>(vlans[i]);
            vap.bssid = ap_mac(ap, i + 1);
            made[ap].vaps.push_back(vap);
        }
        kx::vap_config &office = made[ap].vaps[static_cast<std::size_t>(network::office)];
        office.vlan = ap < (plan.access_points + 1) / 2 ? office.vlan : second_office_vlan;
        made[ap].vaps[static_cast<std::size_t>(network::guest)].vap_attr = 1;
        made[ap].vaps[static_cast<std::size_t>(network::restricted)].mac_acl_index = 1;
    }
    return made;
}

mac_address workload::mac_of(std::uint32_t number) const {
    const bool restricted = stations_[number].on == network::restricted;
    return {0x02,
            restricted ? restricted_prefix : office_prefix,
            static_cast<std::uint8_t>(number >> 24U),
            static_cast<std::uint8_t>(number >> 16U),
            static_cast<std::uint8_t>(number >> 8U),
            static_cast<std::uint8_t>(number)};
}

std::uint32_t workload::number_of(const mac_address &client) const {
    return static_cast<std::uint32_t>(client[2]) << 24U | static_cast<std::uint32_t>(client[3]) << 16U |
           static_cast<std::uint32_t>(client[4]) << 8U | client[5];
}

mac_address workload::bssid_of(unsigned ap, const station &of) {
    return ap == nowhere ? mac_address{} : ap_mac(ap, static_cast<unsigned>(of.on) + 1);
}

radio::pmk workload::key_of(std::uint32_t number, const station &of) const {
    std::mt19937_64 bytes(plan_.seed ^ (std::uint64_t{number} << 32U | of.keys));
    radio::pmk key;
    std::ranges::generate(key, [&bytes] { return static_cast<std::uint8_t>(bytes()); });
    return key;
}

radio::air_event workload::make(std::uint32_t number, air what) const {
    radio::air_event event;
    event.what = what;
    event.client = mac_of(number);
    event.bssid = bssid_of(number);
    return event;
}

// The times between events are distributed exponentially, as those of many independent stations are.
void workload::plan_next_action() {
    if (arrived_ < stations_.size()) {
        action_at_ = after_seconds(arrived_ / plan_.arrivals);
        return;
    }
    if (arrived_ == stations_.size()) {
        arrived_++;  // only once
        action_at_ += rest;
    }
    const double uniform = (static_cast<double>(random_() >> 11U) + 1) * 0x1p-53;
    action_at_ += after_seconds(-std::log(uniform) / plan_.rate);
}

bool workload::applies(const pending &next) const {
    const station &of = stations_[next.station];
    return next.what == follow_up::silence ? of.ap != next.ap : of.moves == next.moves;
}

radio::air_event workload::take(const pending &next) {
    constexpr std::uint16_t inactivity = 4;  // IEEE 802.11-2020, 9.4.1.7
    station &of = stations_[next.station];
    radio::air_event event = make(next.station, air::address);
    switch (next.what) {
        case follow_up::key:
            of.keys++;
            event.what = air::pmk_add;
            event.key = key_of(next.station, of);
            break;
        case follow_up::key_request:
            event.what = air::pmk_fetch;
            event.last_bssid = event.bssid;
            break;
        case follow_up::address:
            event.ip = of.ip;
            break;
        case follow_up::silence:
            event.what = air::departure;
            event.bssid = bssid_of(next.ap, of);
            event.code = inactivity;
            break;
    }
    return event;
}

radio::event_source::step workload::next(radio::timed_event &event) {
    for (;;) {
        const bool acts = !stations_.empty() && action_at_ < end_;
        if (!pending_.empty() && (!acts || pending_.top().at <= action_at_)) {
            const pending follows = pending_.top();
            pending_.pop();
            if (applies(follows)) {
                event = {.at = follows.at, .event = take(follows)};
                return step::event;
            }
        } else if (acts) {
            event.at = action_at_;
            event.event = act();
            plan_next_action();
            return step::event;
        } else {
            return step::end;
        }
    }
}

std::uint32_t workload::draw_station() {
    constexpr int draws_max = 20;
    std::uint32_t drawn = below(plan_.stations);
    for (int draws = 1; draws < draws_max && action_at_ - stations_[drawn].since < stays_for; draws++) {
        drawn = below(plan_.stations);
    }
    return drawn;
}

radio::air_event workload::act() {
    if (arrived_ < stations_.size()) {
        return arrive(arrived_++, below(plan_.access_points));
    }
    const std::uint32_t number = draw_station();
    if (stations_[number].ap == nowhere) {
        return arrive(number, below(plan_.access_points));
    }
    const unsigned choice = below(100);
    if (choice < 66 && plan_.access_points > 1) {
        return roam(number);
    }
    if (choice < 84) {
        return leave(number);
    }
    station &same = stations_[number];
    same.since = action_at_;
    if (choice < 90 && same.on == network::office) {
        same.keys++;
        radio::air_event event = make(number, air::pmk_add);
        event.key = key_of(number, same);
        return event;
    }
    same.ip ^= 0x00800000;  // 10.0.0.1 and 10.128.0.1
    radio::air_event event = make(number, air::address);
    event.ip = same.ip;
    return event;
}

void workload::follow(std::uint32_t number, follow_up what, std::chrono::milliseconds after) {
    pending_.push({.at = action_at_ + after,
                   .station = number,
                   .moves = stations_[number].moves,
                   .what = what,
                   .ap = stations_[number].ap});
}

radio::air_event workload::arrive(std::uint32_t number, unsigned ap) {
    station &arriving = stations_[number];
    arriving.ap = ap;
    arriving.moves++;
    arriving.since = action_at_;
    arriving.ip = 0x0a000001U + number;
    if (arriving.on == network::office) {
        follow(number, follow_up::key, key_after);
    }
    follow(number, follow_up::address, address_after);
    return make(number, air::association);
}

radio::air_event workload::roam(std::uint32_t number) {
    station &roaming = stations_[number];
    const mac_address last = bssid_of(number);
    follow(number, follow_up::silence, silence_after);
    const unsigned steps = below(2) == 0 ? 1 : plan_.access_points - 1;
    roaming.ap = (roaming.ap + steps) % plan_.access_points;
    roaming.moves++;
    roaming.since = action_at_;
    if (roaming.on == network::office) {
        follow(number, follow_up::key_request, key_after);
    }
    follow(number, follow_up::address, address_after);
    radio::air_event event = make(number, air::reassociation);
    event.last_bssid = last;
    return event;
}

radio::air_event workload::leave(std::uint32_t number) {
    constexpr std::uint16_t leaving = 8;  // IEEE 802.11-2020, 9.4.1.7
    radio::air_event event = make(number, air::departure);
    event.by_station = true;
    event.code = leaving;
    stations_[number].ap = nowhere;
    stations_[number].moves++;
    stations_[number].since = action_at_;
    return event;
}

bool workload::is_here(const mac_address &client, const mac_address &bssid, lab_time) const {
    const std::uint32_t number = number_of(client);
    return number < stations_.size() && bssid_of(number) == bssid;
}

std::vector<radio::timed_event> workload::when_sent_away(const mac_address &client, const mac_address &bssid,
                                                         lab_time now) const {
    if (!is_here(client, bssid, now)) {
        return {};
    }
    const std::uint32_t number = number_of(client);
    const station &back = stations_[number];
    std::vector<radio::timed_event> events{{.at = now + come_back_after, .event = make(number, air::association)}};
    if (back.keys > 0) {
        events.push_back({.at = events.back().at + key_after, .event = make(number, air::pmk_add)});
        events.back().event.key = key_of(number, back);
    }
    events.push_back({.at = events.back().at + address_after, .event = make(number, air::address)});
    events.back().event.ip = back.ip;
    return events;
}

}  // namespace fleet
