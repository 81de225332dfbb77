// The fleet's stations, and what it counts. Its access points are compared with real ones by tests/e2e/test_fleet.py.
#include <gtest/gtest.h>

#include <cstring>
#include <map>

#include "lab/fleet/traffic.h"
#include "lab/fleet/workload.h"
#include "wire/ctrlr_messages.h"

namespace {

using namespace std::chrono_literals;
using radio::air;
using radio::timed_event;

std::vector<timed_event> all_events(const fleet::workload_plan &plan) {
    fleet::workload source(plan);
    std::vector<timed_event> events;
    for (timed_event next; source.next(next) == radio::event_source::step::event;) {
        events.push_back(next);
    }
    return events;
}

bool equal(const timed_event &one, const timed_event &other) {
    return one.at == other.at && one.event.what == other.event.what && one.event.client == other.event.client &&
           one.event.bssid == other.event.bssid && one.event.last_bssid == other.event.last_bssid &&
           one.event.ip == other.event.ip && one.event.key == other.event.key;
}

TEST(fleet_workload, same_seed_gives_the_same_events) {
    const fleet::workload_plan plan{.stations = 200, .rate = 100, .seconds = 10, .seed = 3};
    const auto events = all_events(plan);
    EXPECT_GT(events.size(), 1000U);
    EXPECT_TRUE(std::ranges::equal(events, all_events(plan), equal));
    fleet::workload_plan other = plan;
    other.seed = 4;
    EXPECT_FALSE(std::ranges::equal(events, all_events(other), equal));
}

TEST(fleet_workload, events_are_in_order_and_fit_the_stations_places) {
    const auto events = all_events({.stations = 100, .rate = 200, .seconds = 20});
    std::map<kx::mac_address, kx::mac_address> places;
    std::map<air, unsigned> numbers;
    radio::lab_time last{};
    for (const auto &[at, event] : events) {
        EXPECT_GE(at, last);
        last = at;
        numbers[event.what]++;
        kx::mac_address &place = places[event.client];
        switch (event.what) {
            case air::association:
                EXPECT_EQ(place, kx::mac_address{});
                place = event.bssid;
                break;
            case air::reassociation:
                EXPECT_EQ(place, event.last_bssid);
                EXPECT_NE(place, event.bssid);
                place = event.bssid;
                break;
            case air::departure:
                if (event.by_station) {
                    EXPECT_EQ(place, event.bssid);
                    place = {};
                } else {
                    EXPECT_NE(place, event.bssid);  // where the station has been
                }
                break;
            default:
                EXPECT_EQ(place, event.bssid);
        }
    }
    // 4,000 events, of which two thirds are roams while the station is there.
    EXPECT_NEAR(numbers[air::reassociation], 2200, 250);
    for (const air each : {air::association, air::departure, air::address, air::pmk_add, air::pmk_fetch}) {
        EXPECT_GT(numbers[each], 100U);
    }
}

TEST(fleet_workload, all_stations_arrive_at_the_rate_that_was_asked_for) {
    const auto events = all_events({.access_points = 1, .stations = 50, .arrivals = 100, .seconds = 0});
    unsigned arrived = 0;
    for (const timed_event &each : events) {
        if (each.event.what == air::association) {
            EXPECT_EQ(each.at, arrived * 10ms);
            arrived++;
        }
    }
    EXPECT_EQ(arrived, 50U);
}

TEST(fleet_workload, station_that_was_sent_away_comes_back_with_key_and_address) {
    fleet::workload source({.access_points = 1, .stations = 1, .guests = 0, .restricted = 0, .seconds = 0});
    timed_event next;
    while (source.next(next) == radio::event_source::step::event) {
    }
    const auto back = source.when_sent_away(next.event.client, next.event.bssid, 10s);
    ASSERT_EQ(back.size(), 3U);
    EXPECT_EQ(back[0].at, 10s + 200ms);
    EXPECT_EQ(back[0].event.what, air::association);
    EXPECT_EQ(back[1].event.what, air::pmk_add);
    EXPECT_EQ(back[2].event.what, air::address);
    EXPECT_EQ(back[2].event.ip, next.event.ip);
    EXPECT_TRUE(source.when_sent_away(next.event.client, {2, 0, 0, 0, 0, 1}, 10s).empty());
}

template <typename Body>
std::vector<std::uint8_t> message(std::uint8_t type, const Body &body) {
    struct __attribute__((packed)) {
        ctrlr_msg_hdr header;
        ctrlr_rec_hdr record;
        Body body;
    } whole{};
    whole.header.recs = 1;
    whole.record.rec_type = type;
    whole.body = body;
    std::vector<std::uint8_t> bytes(sizeof(whole));
    std::memcpy(bytes.data(), &whole, sizeof(whole));
    return bytes;
}

TEST(fleet_traffic, measures_from_the_report_of_a_roam_to_its_notice) {
    const kx::mac_address station = {2, 0x57, 0, 0, 0, 1};
    const fleet::traffic::clock::time_point start{};
    fleet::traffic counted;
    reassociation roam{.client = station, .bssid = {2, 0, 0, 0, 0, 1}, .last_bssid = {2, 0, 0, 0, 0, 2}, .ip = {}};
    counted.sent(message(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, roam), start);
    const move_notify_body notice{.kind = 1, .client = station};
    counted.received(message(CLIENT_MGR_CLIENT_MOVE_NOTIFY, notice), start + 3ms);
    counted.received(message(CLIENT_MGR_CLIENT_MOVE_NOTIFY, notice), start + 9ms);
    EXPECT_EQ(counted.move_notices().count(), 1U);
    EXPECT_GE(counted.move_notices().quantile(0.99), 3000);
    EXPECT_LE(counted.move_notices().quantile(0.99), 3060);
    EXPECT_EQ(counted.records_sent(), 1U);
    EXPECT_EQ(counted.messages(), 3U);
    // A repeated association on the same VAP is no roam.
    roam.last_bssid = roam.bssid;
    counted.sent(message(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, roam), start);
    counted.received(message(CLIENT_MGR_CLIENT_MOVE_NOTIFY, notice), start + 9ms);
    EXPECT_EQ(counted.move_notices().count(), 1U);
}

TEST(fleet_traffic, short_messages_are_counted_without_a_type) {
    fleet::traffic counted;
    counted.received({}, {});
    counted.sent(std::vector<std::uint8_t>(14), {});
    counted.sent(message(CLIENT_MGR_FOREIGN_CLIENT_ASSOC, be32{}), {});
    EXPECT_EQ(counted.messages(), 3U);
    EXPECT_EQ(counted.records_sent(), 1U);
}

TEST(fleet_latency, quantiles_are_at_most_two_per_cent_too_high) {
    fleet::latency times;
    EXPECT_EQ(times.quantile(0.5), 0);
    for (int us = 1; us <= 1000; us++) {
        times.add(std::chrono::microseconds(us));
    }
    EXPECT_GE(times.quantile(0.5), 500);
    EXPECT_LE(times.quantile(0.5), 510);
    EXPECT_GE(times.quantile(1), 1000);
    EXPECT_LE(times.quantile(1), 1020);
    times.add(24h * 365);
    EXPECT_GE(times.quantile(1), 1e12);
}

}  // namespace
