// Scenarios: parsing of the file, one access point's part of it, and generation from a seed.
#include <gtest/gtest.h>

#include <algorithm>

#include "lab/radio/scenario.h"
#include "lab/radio/scenario_maker.h"
#include "lab/radio/scenario_source.h"
#include "lab/radio/vap_list.h"
#include "tests/unit/private_root.h"

namespace {

using namespace std::chrono_literals;
using radio::air;

const std::string two_aps = R"(come_back_ms = 200
[[ap]]
name = "ap1"
mac = "02:a0:00:00:01:00"
vaps = [{ifname = "wlan0", ssid = "office", vlan = 10, bssid = "02:a0:00:00:01:01", mac_acl_index = 3}]
[[ap]]
name = "ap2"
mac = "02:a0:00:00:02:00"
vaps = [{ifname = "wlan0", ssid = "office", vlan = 20, guest = true, bssid = "02:a0:00:00:02:01"}]
[[station]]
mac = "02:57:00:00:00:01"
)";  // of 11 lines

constexpr kx::mac_address client = {0x02, 0x57, 0, 0, 0, 1};
constexpr kx::mac_address first = {0x02, 0xa0, 0, 0, 1, 1};
constexpr kx::mac_address second = {0x02, 0xa0, 0, 0, 2, 1};

class radio_scenario : public private_root {
protected:
    radio::scenario load(const std::string &text) { return radio::load_scenario(write_file("s.toml", text)); }

    // The error without the file's directory.
    std::string error_of(const std::string &text) {
        try {
            load(text);
        } catch (const kx::config_error &error) {
            const std::string what = error.what();
            return what.substr(root().size() + 1);
        }
        return "no error";
    }
    std::string error_of_events(const std::string &events) { return error_of(two_aps + "events = [" + events + "]"); }
};

TEST_F(radio_scenario, reads_every_action) {
    const std::string key = "000102030405060708090a0b0c0d0e0f101112131415161718191a1b1c1d1eff";
    const radio::scenario all = load(two_aps + R"(events = [
        {at = 0.5, associate = "ap1/wlan0"}, {at = 1, pmk = ")" +
                                     key + R"("}, {at = 1.5, address = "10.0.10.5"},
        {at = 2, reassociate = "ap2/wlan0"}, {at = 2, fetch_pmk = true}, {at = 3, pass_portal = true},
        {at = 4, leave = 8}, {at = 5, associate = "ap1/wlan0"}, {at = 6.25, dropped = 4}])");
    ASSERT_EQ(all.events.size(), 9U);
    const std::vector<air> what = {air::association,   air::pmk_add,     air::address,
                                   air::reassociation, air::pmk_fetch,   air::portal,
                                   air::departure,     air::association, air::departure};
    for (std::size_t i = 0; i < what.size(); ++i) {
        EXPECT_EQ(all.events[i].event.what, what[i]);
        EXPECT_EQ(all.events[i].event.client, client);
    }
    EXPECT_EQ(all.events[0].at, 500ms);
    EXPECT_EQ(all.events[1].event.key[30], 0x1e);
    EXPECT_EQ(all.events[1].event.key[31], 0xff);
    EXPECT_EQ(all.events[2].event.ip, 0x0a000a05U);
    EXPECT_EQ(all.events[3].event.last_bssid, first);
    EXPECT_EQ(all.events[3].event.bssid, second);
    EXPECT_EQ(all.events[5].event.bssid, second);
    EXPECT_TRUE(all.events[6].event.by_station);
    EXPECT_EQ(all.events[6].event.code, 8);
    EXPECT_FALSE(all.events[8].event.by_station);
    EXPECT_EQ(all.events[8].at, 6250ms);
    ASSERT_EQ(all.aps.size(), 2U);
    EXPECT_EQ(all.aps[0].vaps[0].mac_acl_index, 3U);
    EXPECT_EQ(all.aps[1].vaps[0].vap_attr, 1U);
}

TEST_F(radio_scenario, names_file_line_and_key_of_an_error) {
    EXPECT_EQ(error_of("x = 1"), "s.toml:1: x: unknown key; expected one of come_back_ms, ap, station");
    EXPECT_EQ(error_of("\n[[ap]\n").substr(0, 20), "s.toml:2: not TOML: ");
    EXPECT_EQ(error_of("[[ap]]\nname = \"a/b\"\n"), "s.toml:2: ap.name: expected a name of 1 to 64 bytes without /");
    EXPECT_EQ(error_of("[[ap]]\nname = \"a\"\nmac = \"02:00\"\n"),
              "s.toml:3: ap.mac: expected a MAC address such as \"02:00:00:00:10:00\"");
    EXPECT_EQ(error_of("[[ap]]\nname = \"a\"\nmac = \"03:00:00:00:00:01\"\n"),
              "s.toml:3: ap.mac: expected an individual address, not a group address");
    EXPECT_EQ(error_of("[[ap]]\nname = \"a\"\nmac = \"02:00:00:00:00:01\"\n"),
              "s.toml:1: ap.vaps: expected 1 to 16 VAPs");
    for (const char *const bssid : {"", ", bssid = \"03:00:00:00:00:02\""}) {
        EXPECT_EQ(error_of(std::string("[[ap]]\nname = \"a\"\nmac = \"02:00:00:00:00:01\"\n"
                                       "vaps = [{ifname = \"wlan0\", ssid = \"office\", vlan = 10") +
                           bssid + "}]"),
                  "s.toml:4: ap.vaps: expected a bssid for wlan0, an individual address");
    }
    EXPECT_EQ(error_of(two_aps + two_aps.substr(two_aps.find("[[station]]"))),
              "s.toml:13: station.mac: another station or VAP has this address");
}

TEST_F(radio_scenario, names_what_is_wrong_with_an_event) {
    EXPECT_EQ(error_of_events("{at = 1}"), "s.toml:12: events: an event without an action");
    EXPECT_EQ(error_of_events("{associate = \"ap1/wlan0\"}"),
              "s.toml:12: events.at: missing; expected a number from 0 to 10000000");
    EXPECT_EQ(error_of_events("{at = 1, associate = \"ap3/wlan0\"}"),
              "s.toml:12: events.associate: no such VAP; expected an access point's name, / and an interface name");
    EXPECT_EQ(error_of_events("{at = 1, associate = \"ap1/wlan0\", leave = 3}"),
              "s.toml:12: events.leave: an event has one action, and this one already has associate");
    EXPECT_EQ(error_of_events("{at = 1, reassociate = \"ap1/wlan0\"}"),
              "s.toml:12: events.reassociate: the station is on no access point at that time");
    EXPECT_EQ(error_of_events("{at = 2, associate = \"ap1/wlan0\"},\n{at = 1, leave = 3}"),
              "s.toml:13: events.at: earlier than the station's previous event");
    EXPECT_EQ(error_of_events("{at = 2, associate = \"ap1/wlan0\"},\n{at = 3, leave = 3},\n{at = 4, leave = 3}"),
              "s.toml:14: events.leave: the station is on no access point at that time");
    EXPECT_EQ(error_of_events("{at = 2, associate = \"ap1/wlan0\"}, {at = 3, address = \"10.0.0\"}"),
              "s.toml:12: events.address: expected an IPv4 address such as \"10.0.10.5\"");
    EXPECT_EQ(error_of_events("{at = 2, associate = \"ap1/wlan0\"}, {at = 3, pmk = \"00\"}"),
              "s.toml:12: events.pmk: expected 64 hexadecimal digits");
    EXPECT_EQ(error_of_events("{at = 2, associate = \"ap1/wlan0\"}, {at = 3, dropped = 65536}"),
              "s.toml:12: events.dropped: expected an integer from 1 to 65535");
    EXPECT_EQ(error_of_events("{at = -1, associate = \"ap1/wlan0\"}"),
              "s.toml:12: events.at: expected a number from 0 to 10000000");
    EXPECT_EQ(error_of_events("{at = nan, associate = \"ap1/wlan0\"}"),
              "s.toml:12: events.at: expected a number from 0 to 10000000");
    EXPECT_EQ(error_of_events("3"), "s.toml:12: station.events: expected a table");
}

TEST_F(radio_scenario, names_a_file_that_is_not_there) {
    EXPECT_THROW(radio::load_scenario(root() + "/none.toml"), kx::config_error);
}

std::vector<radio::timed_event> all_of(radio::scenario_source &source) {
    std::vector<radio::timed_event> events;
    radio::timed_event event;
    while (source.next(event) == radio::event_source::step::event) {
        events.push_back(event);
    }
    return events;
}

TEST_F(radio_scenario, a_radio_plays_what_happens_on_its_own_access_point) {
    const radio::scenario all = load(two_aps + R"(events = [
        {at = 1, associate = "ap1/wlan0"}, {at = 2, reassociate = "ap2/wlan0"}, {at = 3, leave = 8}])");
    radio::scenario_source one(all, all.aps[0]);
    radio::scenario_source other(all, all.aps[1]);
    EXPECT_EQ(all_of(one).size(), 1U);
    EXPECT_EQ(all_of(other).size(), 2U);
    EXPECT_FALSE(one.is_here(client, first, 999ms));
    EXPECT_TRUE(one.is_here(client, first, 1s));
    EXPECT_FALSE(one.is_here(client, first, 2s));
    EXPECT_TRUE(one.is_here(client, second, 2s));
    EXPECT_FALSE(one.is_here(client, second, 3s));
}

TEST_F(radio_scenario, a_station_that_is_sent_away_comes_back_with_what_it_had) {
    const radio::scenario all = load(two_aps + R"(events = [
        {at = 1, associate = "ap1/wlan0"}, {at = 2, address = "10.0.10.5"}, {at = 9, reassociate = "ap2/wlan0"}])");
    const radio::scenario_source source(all, all.aps[0]);
    EXPECT_EQ(source.when_sent_away(client, first, 1500ms).size(), 1U);
    const auto back = source.when_sent_away(client, first, 3s);
    ASSERT_EQ(back.size(), 2U);
    EXPECT_EQ(back[0].at, 3200ms);
    EXPECT_EQ(back[0].event.what, air::association);
    EXPECT_EQ(back[1].event.what, air::address);
    EXPECT_EQ(back[1].event.ip, 0x0a000a05U);
    EXPECT_TRUE(source.when_sent_away(client, first, 9s).empty());
}

TEST_F(radio_scenario, the_same_seed_gives_the_same_bytes) {
    const radio::site_plan plan{.access_points = 4, .stations = 30, .seconds = 60, .restricted = 10, .seed = 42};
    radio::site_plan other = plan;
    other.seed = 43;
    EXPECT_EQ(radio::make_scenario(plan), radio::make_scenario(plan));
    EXPECT_NE(radio::make_scenario(plan), radio::make_scenario(other));
}

// std::mt19937_64 gives the same numbers everywhere (the standard has its 10000th number), so the file is the same too.
TEST_F(radio_scenario, a_seed_means_the_same_on_every_machine) {
    const std::string text = radio::make_scenario({.access_points = 2, .stations = 1, .seconds = 20, .seed = 1});
    EXPECT_EQ(text.substr(text.find("[[station]]")),
              "[[station]]\n"
              "mac = \"02:57:00:00:00:00\"\n"
              "events = [\n"
              "  {at = 0.123, associate = \"ap1/wlan1\"},\n"
              "  {at = 0.323, address = \"10.30.0.2\"},\n"
              "  {at = 10.677, pass_portal = true},\n"
              "  {at = 13.994, reassociate = \"ap2/wlan1\"},\n"
              "  {at = 14.494, address = \"10.30.0.2\"},\n"
              "]\n");
}

TEST_F(radio_scenario, a_made_scenario_is_a_scenario) {
    const radio::scenario all =
        load(radio::make_scenario({.access_points = 10, .stations = 500, .seconds = 120, .restricted = 10, .seed = 5}));
    EXPECT_EQ(all.aps.size(), 10U);
    const auto count = [&](air what) {
        return std::ranges::count(all.events, what, [](const radio::timed_event &each) { return each.event.what; });
    };
    EXPECT_GE(count(air::association), 500);
    for (const air what :
         {air::reassociation, air::departure, air::address, air::pmk_add, air::pmk_fetch, air::portal}) {
        EXPECT_GT(count(what), 0);
    }
    EXPECT_LT(all.events.back().at, 116s);
}

TEST_F(radio_scenario, vap_tables_can_be_read_as_configuration) {
    const std::string head =
        "[ap]\nmac = \"02:00:00:00:10:00\"\n[controller]\naddress = \"localhost\"\nport = 1\n"
        "ca = \"a\"\ncertificate = \"b\"\nkey = \"c\"\n";
    kx::vap_config vap;
    vap.ifname = "wlan0";
    vap.ssid = "a\"\\\n\x7f\xc3\xa4\xff";  // quote, backslash, control characters, UTF-8, a byte that is not
    vap.vlan = 10;
    vap.vap_attr = 1;
    vap.captive = "Welcome";
    vap.mac_acl_index = 2;
    vap.bssid = first;
    kx::vap_config read = kx::load_ap_config(write_file("ap.toml", head + radio::to_toml({vap}))).vaps.at(0);
    EXPECT_EQ(read.ssid, "a\"\\\n\x7f\xc3\xa4");
    read.ssid = vap.ssid;
    EXPECT_EQ(read, vap);
}

}  // namespace
