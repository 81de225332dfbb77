// The events that result from exchanges between stations and access points.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "common/ipv4.h"
#include "lab/radio/association_tracker.h"
#include "lab/radio/capture_source.h"
#include "lab/radio/radio_stack.h"
#include "lab/radio/vap_list.h"
#include "tests/unit/radio_frames.h"

namespace {

using namespace radio_frames;
using radio::air;

std::string describe(const radio::air_event &event) {
    const std::string who = kx::format_mac(event.client) + ' ' + kx::format_mac(event.bssid);
    switch (event.what) {
        case air::association:
            return "association " + who;
        case air::reassociation:
            return "reassociation " + who + " from " + kx::format_mac(event.last_bssid);
        case air::refusal:
            return "refusal " + who + " status " + std::to_string(event.code);
        case air::departure:
            return "departure " + who + (event.by_station ? " by station " : " by ap ") + std::to_string(event.code);
        case air::address:
            return "address " + who + ' ' + kx::format_ipv4(event.ip);
        default:
            return "unexpected";
    }
}

class radio_tracker : public testing::Test {
protected:
    std::vector<std::string> play(const std::vector<raw> &frames) {
        std::vector<std::string> seen;
        for (const raw &each : frames) {
            std::vector<radio::air_event> events;
            EXPECT_FALSE(tracker_.receive(each, false, events));
            for (const radio::air_event &event : events) {
                seen.push_back(describe(event));
            }
        }
        return seen;
    }

    radio::association_tracker tracker_;
};

using lines = std::vector<std::string>;

const std::string anna_at_office = "02:00:00:00:0a:01 02:00:00:00:10:01";

TEST_F(radio_tracker, tells_an_association_when_it_is_granted) {
    EXPECT_EQ(play({association_request(anna, office, 1, "office")}), lines{});
    EXPECT_EQ(play({association_response(anna, office, 9, 0)}), lines{"association " + anna_at_office});
}

TEST_F(radio_tracker, takes_a_grant_whose_request_was_not_heard) {
    EXPECT_EQ(play({association_response(anna, office, 9, 0)}), lines{"association " + anna_at_office});
}

TEST_F(radio_tracker, tells_a_refusal_and_no_association) {
    EXPECT_EQ(play({association_request(anna, office, 1, "office"), association_response(anna, office, 9, 17)}),
              lines{"refusal " + anna_at_office + " status 17"});
}

TEST_F(radio_tracker, tells_a_repeated_grant_once) {
    EXPECT_EQ(play({association_request(anna, office, 1, "office"), association_response(anna, office, 9, 0),
                    association_response(anna, office, 9, 0, retry), association_response(anna, office, 9, 0)}),
              lines{"association " + anna_at_office});
    EXPECT_EQ(tracker_.duplicates(), 2U);
}

TEST_F(radio_tracker, takes_a_repetition_whose_original_was_not_heard) {
    EXPECT_EQ(play({association_response(anna, office, 9, 0, retry)}), lines{"association " + anna_at_office});
}

// A response to another station in between does not separate two frames of an exchange.
TEST_F(radio_tracker, knows_retransmissions_per_receiver) {
    EXPECT_EQ(play({association_response(anna, office, 9, 0), association_response(ben, office, 10, 0),
                    association_response(anna, office, 9, 0, retry)}),
              (lines{"association " + anna_at_office, "association 02:00:00:00:0b:02 02:00:00:00:10:01"}));
}

TEST_F(radio_tracker, tells_every_exchange_that_was_granted) {
    EXPECT_EQ(play({association_request(anna, office, 1, "office"), association_response(anna, office, 9, 0),
                    association_request(anna, office, 4, "office"), association_response(anna, office, 12, 0)}),
              (lines{"association " + anna_at_office, "association " + anna_at_office}));
}

TEST_F(radio_tracker, tells_a_new_exchange_even_with_the_old_sequence_number) {
    EXPECT_EQ(play({association_request(anna, office, 1, "office"), association_response(anna, office, 9, 0),
                    association_request(anna, office, 2, "office"), association_response(anna, office, 9, 0)}),
              (lines{"association " + anna_at_office, "association " + anna_at_office}));
}

TEST_F(radio_tracker, tells_where_a_reassociating_station_came_from) {
    EXPECT_EQ(play({reassociation_request(anna, office, 1, guest), reassociation_response(anna, office, 9, 0)}),
              lines{"reassociation " + anna_at_office + " from 02:00:00:00:10:02"});
}

TEST_F(radio_tracker, remembers_where_a_station_was_when_its_request_was_not_heard) {
    EXPECT_EQ(play({association_response(anna, guest, 9, 0), reassociation_response(anna, office, 9, 0)}).back(),
              "reassociation " + anna_at_office + " from 02:00:00:00:10:02");
    EXPECT_EQ(play({reassociation_response(ben, office, 10, 0)}),
              lines{"reassociation 02:00:00:00:0b:02 02:00:00:00:10:01 from 00:00:00:00:00:00"});
}

TEST_F(radio_tracker, tells_who_ended_an_association_and_why) {
    EXPECT_EQ(play({departure(0xa0, office, anna, office, 1, 8), departure(0xc0, anna, office, office, 2, 3),
                    departure(0xc0, radio::broadcast, office, office, 3, 1)}),
              (lines{"departure " + anna_at_office + " by station 8", "departure " + anna_at_office + " by ap 3",
                     "departure ff:ff:ff:ff:ff:ff 02:00:00:00:10:01 by ap 1"}));
}

TEST_F(radio_tracker, does_not_read_a_protected_reason) {
    raw hidden = departure(0xc0, anna, office, office, 2, 3);
    hidden[1] |= 0x40U;
    EXPECT_EQ(play({hidden}), lines{"departure " + anna_at_office + " by ap 0"});
}

TEST_F(radio_tracker, ignores_departures_without_access_point) {
    EXPECT_EQ(play({departure(0xc0, anna, ben, office, 2, 3)}), lines{});
}

TEST_F(radio_tracker, counts_answers_that_are_no_access_points) {
    std::vector<radio::air_event> events;
    raw forged = association_response(anna, office, 9, 0);
    forged[21] = 0x99;  // of the BSSID
    EXPECT_EQ(tracker_.receive(forged, false, events), radio::skip::malformed);
    EXPECT_EQ(tracker_.receive(association_response(radio::broadcast, office, 9, 0), false, events),
              radio::skip::malformed);
    EXPECT_TRUE(events.empty());
}

TEST_F(radio_tracker, learns_addresses_from_arp_and_dhcp) {
    EXPECT_EQ(play({arp(anna, office, anna, {10, 0, 10, 21})}), lines{"address " + anna_at_office + " 10.0.10.21"});
    EXPECT_EQ(play({dhcp(anna, office, 5, {10, 0, 10, 22})}), lines{"address " + anna_at_office + " 10.0.10.22"});
}

TEST_F(radio_tracker, learns_no_address_that_is_not_the_stations) {
    raw hidden = arp(anna, office, anna, {10, 0, 10, 21});
    hidden[1] |= 0x40U;
    raw fragment = arp(anna, office, anna, {10, 0, 10, 21});
    fragment[22] |= 1U;
    EXPECT_EQ(play({
                  hidden, fragment, arp(anna, office, ben, {10, 0, 10, 21}),  // about another station
                  arp(anna, office, anna, {0, 0, 0, 0}),                      // a probe
                  dhcp(anna, office, 2, {10, 0, 10, 22}),                     // an offer
                  dhcp(anna, office, 5, {0, 0, 0, 0}),                        // answers an inform
              }),
              lines{});
}

TEST_F(radio_tracker, prefers_the_name_that_the_access_point_announces) {
    play({association_request(anna, office, 1, "asked"), association_request(anna, guest, 2, "lobby")});
    EXPECT_EQ(tracker_.ssid(office), "asked");
    play({beacon(office, "office"), beacon(guest, "")});
    EXPECT_EQ(tracker_.ssid(office), "office");
    EXPECT_EQ(tracker_.ssid(guest), "lobby");
    EXPECT_EQ(tracker_.access_points(), (std::vector<kx::mac_address>{office, guest}));
}

struct played_capture {
    lines events;
    radio::capture_counters counters;
    std::vector<kx::vap_config> vaps;
};

played_capture play(const std::string &file) {
    played_capture result;
    radio::capture_source source(file);
    radio::timed_event event;
    for (auto step = source.next(event); step != radio::event_source::step::end; step = source.next(event)) {
        if (step == radio::event_source::step::event) {
            result.events.push_back(describe(event.event));
        }
    }
    result.counters = source.counters();
    radio::capture_source again(file);
    result.vaps = radio::discover_vaps(again);
    return result;
}

TEST(radio_capture, plays_the_built_in_capture) {
    const played_capture played = play(RADIO_BUILTIN_CAPTURE);
    EXPECT_EQ(played.events, (lines{
                                 "association 02:00:00:00:0a:01 02:00:00:00:10:01",  // granted twice, with retry
                                 "address 02:00:00:00:0a:01 02:00:00:00:10:01 10.0.10.21",
                                 "refusal 02:00:00:00:0b:02 02:00:00:00:10:01 status 17",
                                 "association 02:00:00:00:0b:02 02:00:00:00:10:02",
                                 "association 02:00:00:00:0c:03 02:00:00:00:10:01",
                                 "address 02:00:00:00:0c:03 02:00:00:00:10:01 10.0.10.23",
                                 "association 02:00:00:00:0a:01 02:00:00:00:10:01",
                                 "departure 02:00:00:00:0c:03 02:00:00:00:10:01 by station 8",
                             }));
    ASSERT_EQ(played.vaps.size(), 2U);
    EXPECT_EQ(played.vaps[1].ssid, "guest");
}

TEST(radio_capture, names_what_is_wrong_with_a_file) {
    EXPECT_THROW(radio::capture_source("/nonexistent.pcap"), std::runtime_error);
    EXPECT_THROW(radio::capture_source(RADIO_SOURCE_DIR "/README.md"), std::runtime_error);
}

// Captures from outside the repository. The lists were made frame by frame with another program.
class radio_shared_captures : public testing::Test {
protected:
    void SetUp() override {
        if (!std::filesystem::exists(directory_)) {
            GTEST_SKIP() << directory_ << " is not there";
        }
    }
    played_capture play_shared(const std::string &name) { return play(directory_ + name); }

private:
    std::string directory_ = RADIO_SOURCE_DIR "/../shared/captures/";
};

TEST_F(radio_shared_captures, induction) {
    const played_capture played = play_shared("wpa-Induction.pcap");
    EXPECT_EQ(played.events, (lines{
                                 // Frames 78 to 84: authentication, request, response of status 0.
                                 "association 00:0d:93:82:36:3a 00:0c:41:82:b2:55",
                                 // Frame 1050: disassociation by the station. Its IP addresses are encrypted.
                                 "departure 00:0d:93:82:36:3a 00:0c:41:82:b2:55 by station 8",
                             }));
    EXPECT_EQ(played.counters.frames, 1093U);
    ASSERT_EQ(played.vaps.size(), 1U);
    EXPECT_EQ(played.vaps[0].ssid, "Coherer");
}

TEST_F(radio_shared_captures, fast_transition) {
    const played_capture played = play_shared("wpa2-ft-psk.pcapng");
    EXPECT_EQ(played.events,
              (lines{
                  "association 02:00:00:00:02:00 02:00:00:00:00:00",  // frames 5 to 8
                  // Frames 24 to 27; the request's current AP field.
                  "reassociation 02:00:00:00:02:00 02:00:00:00:01:00 from 02:00:00:00:00:00",
              }));
    ASSERT_EQ(played.vaps.size(), 2U);
    EXPECT_EQ(played.vaps[0].ssid, "wireshark-ft-psk");  // from the requests; there is no beacon
    EXPECT_EQ(played.vaps[0].vlan, played.vaps[1].vlan);
}

TEST_F(radio_shared_captures, linksys) {
    const played_capture played = play_shared("wpa2-psk-linksys.cap");
    EXPECT_EQ(played.events, (lines{
                                 // Frames 12, 13, 20: deauthentications of a station from before the capture began.
                                 "departure 00:13:ce:55:98:ef 00:0b:86:c2:a4:85 by ap 2",
                                 "departure 00:13:ce:55:98:ef 00:0b:86:c2:a4:85 by station 2",
                                 "departure 00:13:ce:55:98:ef 00:0b:86:c2:a4:85 by ap 6",
                                 "association 00:13:ce:55:98:ef 00:0b:86:c2:a4:85",        // frame 48
                                 "association 00:13:ce:55:98:ef 00:0b:86:c2:a4:85",        // frame 88
                                 "refusal 00:13:ce:55:98:ef 00:0b:86:c2:a4:85 status 10",  // frame 309
                                 "association 00:13:ce:55:98:ef 00:0b:86:c2:a4:85",        // frame 338
                             }));
    ASSERT_EQ(played.vaps.size(), 1U);
    EXPECT_EQ(played.vaps[0].ssid, "linksys");
}

}  // namespace
