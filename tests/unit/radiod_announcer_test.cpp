// What the daemon is told of stations, and what outlives the process. The daemon is the test's.
#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "private_root.h"
#include "radiod/announcer.h"
#include "radiod/station_journal.h"
#include "wire/local_messages.h"

namespace {

using namespace radiod;
using namespace std::chrono_literals;
using ids = std::vector<std::uint32_t>;

const mac_address ann{{2, 0xaa, 0, 0, 0, 1}}, ben{{2, 0xaa, 0, 0, 0, 2}};
const announcer::place office{"wlan0", {{2, 0, 0, 0, 0x10, 1}}}, lobby{"wlan1", {{2, 0, 0, 0, 0x10, 2}}};
const mac_address elsewhere{{2, 0, 0, 0, 0x20, 1}};

class announcements : public testing::Test {
protected:
    ids take() {
        ids seen;
        for (const kx::notification &each : sent) {
            seen.push_back(each.id);
        }
        sent.clear();
        return seen;
    }
    void confirm_all(const announcer::place &at) {
        for (const mac_address &station : those.ask_unconfirmed(at, 100)) {
            those.confirmed(at, station);
        }
    }

    announcer::time_point now{1000s};
    std::vector<kx::notification> sent;
    int held = 0;
    announcer those = make(false);

    announcer make(bool holds) {
        announcer made([this](kx::notification message) { sent.push_back(std::move(message)); }, holds);
        made.on_held = [this] { held++; };
        return made;
    }
};

TEST_F(announcements, a_station_comes_gets_an_address_and_goes) {
    those.arrived(office, ann, std::nullopt, now);
    those.has_address(office, ann, 0x0a000005, ann, now);
    those.departed(office, ann, now);
    EXPECT_EQ(take(), (ids{KX_MSG_ID_CLIENT_ASSOCIATION, KX_MSG_ID_CLIENT_IP, KX_MSG_ID_CLIENT_DISASSOCIATION}));
}

TEST_F(announcements, a_station_gives_no_address_to_another) {
    const mac_address server{{2, 0, 0, 0, 0x0a, 1}};
    those.arrived(office, ann, std::nullopt, now);
    those.arrived(lobby, ben, std::nullopt, now);
    take();
    those.has_address(office, ann, 0x0a000066, ben, now);
    EXPECT_EQ(take(), ids{});
    those.has_address(office, ann, 0x0a000005, server, now);
    EXPECT_EQ(take(), ids{KX_MSG_ID_CLIENT_IP});
    // Nor one that it announces when it comes again.
    those.has_address(office, ann, 0x0a000066, ben, now);
    those.departed(office, ann, now);
    those.arrived(office, ann, std::nullopt, now);
    ASSERT_EQ(sent.size(), 3U);
    EXPECT_EQ(sent.back().payload, kx::address_notification(ann, 0x0a000005, "wlan0").payload);
}

TEST_F(announcements, a_roamed_station_comes_and_goes_as_a_foreign_one) {
    those.arrived(office, ann, elsewhere, now);
    those.departed(office, ann, now);
    EXPECT_EQ(take(), (ids{KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION, KX_MSG_ID_FOREIGN_CLIENT_DISASSOCIATION}));
}

TEST_F(announcements, an_address_is_repeated_after_each_association_of_a_station_that_stays) {
    those.arrived(office, ann, std::nullopt, now);
    those.has_address(office, ann, 0x0a000005, ann, now);
    take();
    those.arrived(office, ann, std::nullopt, now + 10h);
    EXPECT_EQ(take(), (ids{KX_MSG_ID_CLIENT_ASSOCIATION, KX_MSG_ID_CLIENT_IP}));
    those.arrived(lobby, ben, std::nullopt, now + 11h);
    those.all_again();
    take();
    confirm_all(office);
    EXPECT_EQ(take(), (ids{KX_MSG_ID_CLIENT_ASSOCIATION, KX_MSG_ID_CLIENT_IP}));
}

TEST_F(announcements, an_address_is_kept_for_five_minutes_while_its_station_is_away) {
    those.arrived(office, ann, std::nullopt, now);
    those.has_address(office, ann, 0x0a000005, ann, now);
    const auto leaves = now + 10h;
    those.departed(office, ann, leaves);
    take();
    those.arrived(lobby, ann, std::nullopt, leaves + 299s);
    EXPECT_EQ(take(), (ids{KX_MSG_ID_CLIENT_ASSOCIATION, KX_MSG_ID_CLIENT_IP}));
    those.sent_away(lobby, ann, leaves + 299s);
    those.arrived(lobby, ann, std::nullopt, leaves + 599s);
    EXPECT_EQ(take(), ids{KX_MSG_ID_CLIENT_ASSOCIATION});
}

TEST_F(announcements, an_address_that_an_earlier_process_announced_is_announced_with_the_arrival) {
    std::vector<std::uint32_t> announced;
    those.on_address = [&](const mac_address &station, std::uint32_t ip) {
        EXPECT_EQ(station, ann);
        announced.push_back(ip);
    };
    those.remember_address(ann, 0x0a000005, now);
    those.arrived(office, ann, std::nullopt, now);
    those.has_address(office, ann, 0x0a000006, ann, now);
    EXPECT_EQ(announced, (std::vector<std::uint32_t>{0x0a000005, 0x0a000006}));
    EXPECT_EQ(take(), (ids{KX_MSG_ID_CLIENT_ASSOCIATION, KX_MSG_ID_CLIENT_IP, KX_MSG_ID_CLIENT_IP}));
}

TEST_F(announcements, an_address_seen_before_the_association_is_reported_with_it) {
    those.has_address(office, ann, 0x0a000005, ann, now);
    EXPECT_EQ(take(), ids{});
    those.arrived(office, ann, std::nullopt, now);
    EXPECT_EQ(take(), (ids{KX_MSG_ID_CLIENT_ASSOCIATION, KX_MSG_ID_CLIENT_IP}));
}

TEST_F(announcements, the_same_address_again_is_no_news) {
    those.arrived(office, ann, std::nullopt, now);
    those.has_address(office, ann, 0x0a000005, ann, now);
    take();
    those.has_address(office, ann, 0x0a000005, ann, now);
    EXPECT_EQ(take(), ids{});
    those.has_address(office, ann, 0x0a000006, ann, now);
    EXPECT_EQ(take(), ids{KX_MSG_ID_CLIENT_IP});
}

TEST_F(announcements, an_address_at_a_vap_where_the_station_is_not_is_not_reported) {
    those.arrived(lobby, ann, std::nullopt, now);
    take();
    those.has_address(office, ann, 0x0a000005, ann, now);
    EXPECT_EQ(take(), ids{});
}

TEST_F(announcements, an_address_that_another_vap_of_the_bridge_saw_first_is_reported) {
    those.arrived(office, ann, std::nullopt, now);
    take();
    those.has_address(lobby, ann, 0x0a000005, ann, now);
    EXPECT_EQ(take(), ids{});
    those.has_address(office, ann, 0x0a000005, ann, now);
    EXPECT_EQ(take(), ids{KX_MSG_ID_CLIENT_IP});
}

TEST_F(announcements, hosts_behind_the_bridge_do_not_hide_a_stations_address) {
    for (unsigned i = 0; i < announcer::addresses_max + 10; i++) {
        const mac_address host{{4, 0, 0, 0, static_cast<uint8_t>(i >> 8), static_cast<uint8_t>(i)}};
        those.has_address(office, host, i + 1, host, now);
    }
    those.arrived(office, ann, std::nullopt, now);
    take();
    those.has_address(office, ann, 0x0a000005, ann, now);
    EXPECT_EQ(take(), ids{KX_MSG_ID_CLIENT_IP});
}

TEST_F(announcements, a_departure_at_the_daemons_order_is_not_reported) {
    those.arrived(office, ann, std::nullopt, now);
    take();
    those.sent_away(office, ann, now);
    those.departed(office, ann, now);
    those.all_again();
    confirm_all(office);
    EXPECT_EQ(take(), ids{});
}

TEST_F(announcements, departures_are_repeated_once_and_stations_when_they_have_answered) {
    those.arrived(office, ben, elsewhere, now);
    those.arrived(office, ann, std::nullopt, now);
    those.arrived(lobby, ann, std::nullopt, now);
    those.departed(office, ann, now);
    take();
    those.all_again();
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].payload, kx::departure_notification(ann, office.bssid, false).payload);
    EXPECT_EQ(those.ask_unconfirmed(office, 10), std::vector{ben});
    EXPECT_EQ(those.ask_unconfirmed(lobby, 10), std::vector{ann});
    sent.clear();
    those.confirmed(office, ben);
    those.confirmed(office, ben);
    ASSERT_EQ(sent.size(), 1u);
    EXPECT_EQ(sent[0].payload, kx::reassociation_notification(ben, office.bssid, elsewhere).payload);
    EXPECT_TRUE(those.ask_unconfirmed(office, 10).empty());
    sent.clear();
    those.all_again();
    EXPECT_EQ(take(), ids{}) << "a departure is repeated once";
}

TEST_F(announcements, a_departure_is_not_repeated_when_the_station_is_back) {
    those.arrived(office, ann, std::nullopt, now);
    those.departed(office, ann, now);
    those.arrived(office, ann, std::nullopt, now);
    take();
    those.all_again();
    EXPECT_EQ(take(), ids{});
}

TEST_F(announcements, a_station_that_was_not_announced_for_repetition_is_not_repeated) {
    those.arrived(office, ann, std::nullopt, now);
    take();
    those.confirmed(office, ann);
    EXPECT_EQ(take(), ids{});
}

TEST_F(announcements, a_station_that_does_not_answer_is_announced_when_it_is_heard) {
    those.arrived(office, ann, std::nullopt, now);
    those.arrived(office, ben, std::nullopt, now);
    those.arrived(lobby, ann, std::nullopt, now);
    take();
    those.all_again();
    for (unsigned poll = 0; poll < announcer::polls_max; poll++) {
        EXPECT_TRUE(those.silent(office).empty());
        EXPECT_EQ(those.ask_unconfirmed(office, 10).size(), poll == 0 ? 2u : 1u);
        those.confirmed(office, ben);
    }
    EXPECT_EQ(those.silent(office), std::vector{ann});
    EXPECT_EQ(those.silent(office), std::vector{ann}) << "still";
    EXPECT_TRUE(those.silent(lobby).empty()) << "was not asked";
    EXPECT_TRUE(those.ask_unconfirmed(office, 10).empty());
    take();
    those.confirmed(office, ann);
    EXPECT_EQ(take(), ids{KX_MSG_ID_CLIENT_ASSOCIATION});
    EXPECT_TRUE(those.silent(office).empty());
    those.all_again();
    EXPECT_TRUE(those.silent(office).empty()) << "is asked anew";
}

TEST_F(announcements, silent_stations_do_not_keep_others_from_being_asked) {
    those.arrived(office, ann, std::nullopt, now);
    those.arrived(office, ben, std::nullopt, now);
    those.all_again();
    for (unsigned poll = 0; poll < announcer::polls_max; poll++) {
        EXPECT_EQ(those.ask_unconfirmed(office, 1), std::vector{ann});
    }
    EXPECT_EQ(those.ask_unconfirmed(office, 1), std::vector{ben});
}

TEST_F(announcements, a_roam_between_two_vaps_has_no_departure) {
    announcer two = make(true);
    two.arrived(office, ann, std::nullopt, now);
    take();
    two.departed(office, ann, now);
    EXPECT_EQ(held, 1);
    EXPECT_EQ(two.next_deadline(), now + 300ms);
    two.arrived(lobby, ann, office.bssid, now + 299ms);
    two.expire(now + 1s);
    EXPECT_EQ(take(), ids{KX_MSG_ID_FOREIGN_CLIENT_ASSOCIATION});
    EXPECT_FALSE(two.next_deadline());
}

TEST_F(announcements, a_held_departure_is_sent_in_time) {
    announcer two = make(true);
    two.arrived(office, ann, std::nullopt, now);
    two.departed(office, ann, now);
    take();
    two.expire(now + 299ms);
    EXPECT_EQ(take(), ids{});
    two.expire(now + 300ms);
    EXPECT_EQ(take(), ids{KX_MSG_ID_CLIENT_DISASSOCIATION});
}

// The process may end while a departure is held.
class journalled : public private_root {
protected:
    using stations = station_journal::stations;

    journalled() {
        those.on_held = [] {};
        those.on_settled = [this](const announcer::place &from, const mac_address &station, bool announced) {
            journal.departed(from.ifname, station);
            announced_ = announced;
        };
    }
    void comes(const announcer::place &at) {
        journal.arrived(at.ifname, ann, std::nullopt);
        those.arrived(at, ann, std::nullopt, now);
    }
    stations after_a_restart() const { return station_journal(root() + "/stations").present(); }

    const announcer::time_point now{1000s};
    station_journal journal{root() + "/stations"};
    announcer those{[](const kx::notification &) {}, true};
    bool announced_ = false;
};

TEST_F(journalled, a_held_departure_outlives_the_process) {
    comes(office);
    those.departed(office, ann, now);
    EXPECT_EQ(after_a_restart(), (stations{{{"wlan0", ann}, std::nullopt}}));
}

TEST_F(journalled, an_announced_departure_is_over) {
    comes(office);
    those.departed(office, ann, now);
    those.expire(now + announcer::roam_time);
    EXPECT_TRUE(announced_);
    EXPECT_EQ(after_a_restart(), stations{});
}

TEST_F(journalled, a_departure_is_over_when_the_station_is_at_another_vap) {
    comes(office);
    those.departed(office, ann, now);
    comes(lobby);
    EXPECT_FALSE(announced_);
    EXPECT_EQ(after_a_restart(), (stations{{{"wlan1", ann}, std::nullopt}}));
}

TEST_F(journalled, a_station_that_is_back_at_once_has_not_departed) {
    comes(office);
    those.departed(office, ann, now);
    comes(office);
    those.expire(now + announcer::roam_time);
    EXPECT_FALSE(announced_);
    EXPECT_EQ(after_a_restart(), (stations{{{"wlan0", ann}, std::nullopt}}));
}

TEST_F(journalled, a_station_that_the_daemon_sent_away_is_gone) {
    comes(office);
    those.sent_away(office, ann, now);
    EXPECT_EQ(after_a_restart(), stations{});
}

class journal : public private_root {
protected:
    std::string path = root() + "/stations";
    std::string text() const { return read_file(path); }
};

TEST_F(journal, keeps_who_is_there_and_where_roamed_stations_came_from) {
    {
        station_journal before(path);
        before.arrived("wlan0", ann, std::nullopt);
        before.arrived("wlan0", ben, elsewhere);
        before.arrived("wlan1", ann, elsewhere);
        before.departed("wlan1", ann);
    }
    const station_journal after(path);
    EXPECT_EQ(after.present(),
              (station_journal::stations{{{"wlan0", ann}, std::nullopt}, {{"wlan0", ben}, elsewhere}}));
}

TEST_F(journal, starts_with_the_lines_that_still_count) {
    {
        station_journal before(path);
        before.arrived("wlan0", ann, std::nullopt);
        before.departed("wlan0", ann);
        before.arrived("wlan0", ben, elsewhere);
    }
    const station_journal after(path);
    EXPECT_EQ(text(), "+ wlan0 02:aa:00:00:00:02 02:00:00:00:20:01\n");
}

TEST_F(journal, keeps_the_addresses_of_those_who_are_there) {
    {
        station_journal before(path);
        before.arrived("wlan0", ann, std::nullopt);
        before.has_address(ann, 0x0a000005);
        before.arrived("wlan0", ben, elsewhere);
        before.has_address(ben, 0x0a000006);
        before.has_address(ben, 0x0a000006);
        before.departed("wlan0", ann);
        before.has_address(ann, 0x0a000005);
    }
    EXPECT_EQ(text(),
              "+ wlan0 02:aa:00:00:00:01\n= 02:aa:00:00:00:01 10.0.0.5\n+ wlan0 02:aa:00:00:00:02 02:00:00:00:20:01\n"
              "= 02:aa:00:00:00:02 10.0.0.6\n- wlan0 02:aa:00:00:00:01\n");
    EXPECT_EQ(station_journal(path).known_addresses(), (station_journal::addresses{{ben, 0x0a000006}}));
    EXPECT_EQ(text(), "+ wlan0 02:aa:00:00:00:02 02:00:00:00:20:01\n= 02:aa:00:00:00:02 10.0.0.6\n");
}

TEST_F(journal, does_not_grow_for_ever) {
    station_journal those(path);
    for (int i = 0; i < 10'000; ++i) {
        those.arrived("wlan0", ann, elsewhere);
        those.departed("wlan0", ann);
    }
    EXPECT_LT(text().size(), 400'000u);
}

TEST_F(journal, skips_damaged_lines) {
    std::ofstream(path) << "+ wlan0 02:aa:00:00:00:01\n+ wlan0 02:aa:0\n? wlan0 02:aa:00:00:00:02\n\n+\n+ wlan1 "
                           "02:aa:00\n= 02:aa:00:00:00:01 10.0.0\n"
                           "= 02:aa:00:00:00:02 10.0.0.6\n= x 10.0.0.6\n=";
    EXPECT_EQ(station_journal(path).known_addresses(), station_journal::addresses{});
    EXPECT_EQ(station_journal(path).present(), (station_journal::stations{{{"wlan0", ann}, std::nullopt}}));
}

TEST_F(journal, goes_on_without_a_file) {
    station_journal those(root() + "/missing/stations");
    those.arrived("wlan0", ann, std::nullopt);
    those.arrived("wlan0", ben, std::nullopt);
    EXPECT_EQ(those.present().size(), 2u);
    ASSERT_EQ(syslog_lines().size(), 1u);
    EXPECT_EQ(
        syslog_lines()[0],
        root() + "/missing/stations: No such file or directory; after a restart roamed stations pass for new ones");
}

}  // namespace
