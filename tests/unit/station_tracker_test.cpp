#include "radiod/stations/station_tracker.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "common/mac_address.h"
#include "tests/unit/radio_frames.h"

namespace {

using namespace radio_frames;
using namespace std::chrono_literals;
using radiod::akm;
using radiod::frame_kind;
using radiod::station_tracker;

using lines = std::vector<std::string>;

constexpr mac_address elsewhere = {0x02, 0x00, 0x00, 0x00, 0x20, 0x01};

// One VAP, whose reports the test makes.
struct vap {
    explicit vap(const mac_address &own) : bssid(own), tracker(own) {
        tracker.on_arrival = [this](const radiod::arrival &event) {
            reports.push_back("arrival " + kx::format_mac(event.station) +
                              (event.previous_bssid ? " from " + kx::format_mac(*event.previous_bssid) : ""));
            suite = event.suite;
        };
        tracker.on_departure = [this](const radiod::departure &event) {
            reports.push_back((event.roamed_in ? "foreign departure " : "departure ") + kx::format_mac(event.station));
        };
    }

    void request(frame_kind kind, const mac_address &station, const mac_address &current = {}, akm key = akm::psk,
                 std::vector<radiod::pmkid> pmkids = {}) {
        radiod::management_frame frame;
        frame.pmkids = std::move(pmkids);
        frame.kind = kind;
        frame.station = station;
        frame.bssid = bssid;
        frame.current_ap = current;
        frame.suite = key;
        tracker.handle(radiod::frame_received{frame}, now);
    }
    void auth(const mac_address &station, std::uint16_t algorithm = radiod::auth_open) {
        radiod::management_frame frame;
        frame.kind = frame_kind::auth;
        frame.station = station;
        frame.bssid = bssid;
        frame.auth_algorithm = algorithm;
        tracker.handle(radiod::frame_received{frame}, now);
    }
    void reassoc_by_pmkid(const mac_address &station, const mac_address &current, akm key = akm::sae) {
        request(frame_kind::reassoc_request, station, current, key, {radiod::pmkid{}});
    }
    void assoc(const mac_address &station) { request(frame_kind::assoc_request, station); }
    void reassoc(const mac_address &station, const mac_address &current) {
        request(frame_kind::reassoc_request, station, current);
    }
    void connected(const mac_address &station) { tracker.handle(radiod::station_connected{station}, now); }
    void disconnected(const mac_address &station) { tracker.handle(radiod::station_disconnected{station}, now); }
    void handshake(const mac_address &station) { tracker.handle(radiod::handshake_completed{station}, now); }
    void resync(const std::vector<mac_address> &stations) { tracker.resync(stations, now); }
    void wait(std::chrono::milliseconds time) {
        now += time;
        tracker.expire(now);
    }
    // The reports since the last call.
    lines taken() { return std::exchange(reports, {}); }

    mac_address bssid;
    station_tracker tracker;
    station_tracker::time now{1000s};
    lines reports;
    akm suite = akm::none;
};

class station_tracking : public testing::Test {
protected:
    vap vap_{office};
};

const std::string anna_arrives = "arrival 02:00:00:00:0a:01";
const std::string anna_roams_in = "arrival 02:00:00:00:0a:01 from 02:00:00:00:20:01";
const std::string anna_departs = "departure 02:00:00:00:0a:01";

TEST_F(station_tracking, reports_a_first_association) {
    vap_.auth(anna);
    vap_.request(frame_kind::assoc_request, anna, {}, akm::owe);
    EXPECT_EQ(vap_.taken(), lines{});
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_arrives});
    EXPECT_EQ(vap_.suite, akm::owe);
    vap_.disconnected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_departs});
}

TEST_F(station_tracking, reports_where_a_station_came_from) {
    vap_.reassoc(anna, elsewhere);
    vap_.connected(anna);
    vap_.disconnected(anna);
    EXPECT_EQ(vap_.taken(), (lines{anna_roams_in, "foreign " + anna_departs}));
    // What was said of one association does not hold for the next.
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.disconnected(anna);
    EXPECT_EQ(vap_.taken(), (lines{anna_arrives, anna_departs}));
}

// FT: no handshake. Back at the same access point the current AP is its own BSSID.
TEST_F(station_tracking, takes_its_own_bssid_for_no_roam) {
    vap_.reassoc(anna, office);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_arrives});
}

TEST_F(station_tracking, takes_no_address_for_no_roam) {
    vap_.reassoc(anna, {});
    vap_.connected(anna);
    vap_.reassoc(ben, radio::broadcast);
    vap_.connected(ben);
    EXPECT_EQ(vap_.taken(), (lines{anna_arrives, "arrival 02:00:00:00:0b:02"}));
}

TEST_F(station_tracking, reports_an_association_whose_request_it_did_not_see) {
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_arrives});
    EXPECT_EQ(vap_.suite, akm::other);
}

TEST_F(station_tracking, reports_once_what_is_said_twice) {
    vap_.reassoc(anna, elsewhere);
    vap_.reassoc(anna, elsewhere);
    vap_.handshake(anna);
    vap_.connected(anna);
    vap_.connected(anna);
    vap_.tracker.kernel_station(anna, true, vap_.now);
    EXPECT_EQ(vap_.taken(), lines{anna_roams_in});
    vap_.handshake(anna);  // of a new key
    EXPECT_EQ(vap_.taken(), lines{});
    vap_.disconnected(anna);
    vap_.disconnected(anna);
    EXPECT_EQ(vap_.taken(), lines{"foreign " + anna_departs});
}

TEST_F(station_tracking, ignores_frames_to_another_bss) {
    radiod::management_frame frame;
    frame.kind = frame_kind::reassoc_request;
    frame.station = anna;
    frame.bssid = guest;
    frame.current_ap = elsewhere;
    vap_.tracker.handle(radiod::frame_received{frame}, vap_.now);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_arrives});
}

TEST_F(station_tracking, reports_an_open_station_that_comes_back) {
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.auth(anna);
    vap_.disconnected(anna);  // by the authentication
    vap_.reassoc(anna, elsewhere);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), (lines{anna_arrives, anna_departs, anna_roams_in}));
}

TEST_F(station_tracking, keeps_a_request_over_the_end_of_the_earlier_association) {
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.reassoc(anna, elsewhere);
    vap_.disconnected(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), (lines{anna_arrives, anna_departs, anna_roams_in}));
}

// With PMF hostapd still lists a station that comes back, and reports neither its departure nor its return.
TEST_F(station_tracking, reports_the_return_of_a_pmf_station_by_its_handshake) {
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.taken();
    vap_.reassoc(anna, elsewhere);
    vap_.wait(1s);  // SA Query
    vap_.reassoc(anna, elsewhere);
    vap_.tracker.kernel_gone(anna, vap_.now);
    vap_.tracker.kernel_station(anna, false, vap_.now);
    EXPECT_EQ(vap_.taken(), lines{});
    vap_.handshake(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_roams_in});
    vap_.wait(station_tracker::gone_limit + 1s);
    EXPECT_EQ(vap_.taken(), lines{});
    vap_.disconnected(anna);
    EXPECT_EQ(vap_.taken(), lines{"foreign " + anna_departs});
}

// With FT there is no handshake, and after a reload hostapd reports none.
TEST_F(station_tracking, reports_the_return_of_a_pmf_station_by_the_kernels_flag) {
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.taken();
    vap_.reassoc(anna, elsewhere);
    EXPECT_FALSE(vap_.tracker.has_open_return());
    vap_.tracker.kernel_gone(anna, vap_.now);
    vap_.tracker.kernel_station(anna, false, vap_.now);
    EXPECT_TRUE(vap_.tracker.has_open_return());
    vap_.tracker.kernel_station(anna, true, vap_.now);
    EXPECT_EQ(vap_.taken(), lines{anna_roams_in});
    EXPECT_FALSE(vap_.tracker.has_open_return());
}

// SA Query protects a station from such a request. Its entry in the kernel stays authorized.
TEST_F(station_tracking, believes_no_forged_request_of_a_present_station) {
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.taken();
    vap_.reassoc(anna, elsewhere);
    vap_.tracker.kernel_station(anna, true, vap_.now);
    vap_.handshake(anna);  // of a new key
    EXPECT_EQ(vap_.taken(), lines{});
    vap_.wait(station_tracker::request_life + 1s);
    vap_.handshake(anna);
    EXPECT_EQ(vap_.taken(), lines{});
}

// The kernel's events and hostapd's come by two sockets.
TEST_F(station_tracking, reports_a_return_whose_handshake_is_seen_before_the_kernels_events) {
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.taken();
    vap_.reassoc(anna, elsewhere);
    vap_.handshake(anna);
    vap_.tracker.kernel_gone(anna, vap_.now);
    vap_.tracker.kernel_station(anna, true, vap_.now);
    EXPECT_EQ(vap_.taken(), lines{anna_roams_in});
}

TEST_F(station_tracking, takes_a_station_that_gave_up_for_no_arrival) {
    vap_.auth(anna);
    vap_.tracker.kernel_station(anna, false, vap_.now);
    vap_.assoc(ben);
    vap_.tracker.kernel_station(ben, false, vap_.now);
    vap_.tracker.kernel_gone(ben, vap_.now);
    EXPECT_FALSE(vap_.tracker.has_open_return());
    vap_.wait(station_tracker::gone_limit + 1s);
    EXPECT_EQ(vap_.taken(), lines{});
}

TEST_F(station_tracking, takes_the_kernel_alone_for_no_arrival) {
    vap_.tracker.kernel_station(anna, true, vap_.now);
    EXPECT_EQ(vap_.taken(), lines{});
}

TEST_F(station_tracking, reports_a_station_that_the_kernel_lost) {
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.taken();
    vap_.tracker.kernel_gone(anna, vap_.now);
    EXPECT_FALSE(vap_.tracker.has_open_return());
    vap_.wait(station_tracker::gone_limit);
    EXPECT_EQ(vap_.taken(), lines{});
    vap_.tracker.kernel_gone(anna, vap_.now);  // a dump
    vap_.wait(1s);
    EXPECT_EQ(vap_.taken(), lines{anna_departs});
}

TEST_F(station_tracking, keeps_a_station_that_the_kernel_has_again) {
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.taken();
    vap_.tracker.kernel_gone(anna, vap_.now);
    vap_.tracker.kernel_station(anna, false, vap_.now);
    vap_.wait(station_tracker::gone_limit + 1s);
    EXPECT_EQ(vap_.taken(), lines{});
}

// SAE with a cached PMK that the access point does not have.
TEST_F(station_tracking, remembers_where_a_refused_station_came_from) {
    vap_.reassoc_by_pmkid(anna, elsewhere);
    vap_.auth(anna, radiod::auth_sae);
    vap_.wait(1s);
    vap_.assoc(anna);
    vap_.assoc(anna);  // repeated
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_roams_in});
}

TEST_F(station_tracking, forgets_a_refused_station_after_a_while) {
    vap_.reassoc_by_pmkid(anna, elsewhere);
    vap_.auth(anna, radiod::auth_sae);
    vap_.wait(station_tracker::refused_life + 1s);
    vap_.assoc(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_arrives});
}

TEST_F(station_tracking, remembers_no_refusal_after_the_station_was_let_in) {
    vap_.reassoc_by_pmkid(anna, elsewhere);
    vap_.connected(anna);
    vap_.disconnected(anna);
    vap_.auth(anna, radiod::auth_sae);
    vap_.assoc(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken().back(), anna_arrives);
}

// What others may send with the station's address, and what hostapd refuses for other reasons.
TEST_F(station_tracking, takes_no_other_request_for_one_that_was_refused) {
    vap_.reassoc(anna, elsewhere);  // without a PMKID
    vap_.auth(anna, radiod::auth_sae);
    vap_.assoc(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_arrives});
    vap_.disconnected(anna);

    vap_.reassoc_by_pmkid(anna, elsewhere, akm::psk);
    vap_.auth(anna, radiod::auth_sae);
    vap_.assoc(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken().back(), anna_arrives);
    vap_.disconnected(anna);

    vap_.reassoc_by_pmkid(anna, elsewhere);
    vap_.auth(anna, radiod::auth_open);  // no SAE after the refusal
    vap_.assoc(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken().back(), anna_arrives);
    vap_.disconnected(anna);

    vap_.auth(anna, radiod::auth_sae);
    vap_.reassoc_by_pmkid(anna, elsewhere);  // after SAE
    vap_.assoc(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken().back(), anna_arrives);
    vap_.disconnected(anna);

    vap_.reassoc_by_pmkid(ben, elsewhere);
    vap_.auth(anna, radiod::auth_sae);
    vap_.assoc(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken().back(), anna_arrives);
}

TEST_F(station_tracking, remembers_a_request_while_eap_waits_for_a_user) {
    vap_.reassoc(anna, elsewhere);
    vap_.wait(station_tracker::request_life);
    vap_.connected(anna);
    vap_.reassoc(ben, elsewhere);
    vap_.wait(station_tracker::request_life + 1s);
    EXPECT_EQ(vap_.tracker.size(), 1U);
    vap_.connected(ben);
    EXPECT_EQ(vap_.taken(), (lines{anna_roams_in, "arrival 02:00:00:00:0b:02"}));
    // Also before the request is removed from memory.
    vap_.reassoc(ben, elsewhere);
    vap_.now += station_tracker::request_life + 1s;
    vap_.handshake(ben);
    EXPECT_EQ(vap_.taken(), lines{});
}

// The old BSS reports the departure before the new one the arrival. The kernel lists the station at the old one for
// a while.
TEST_F(station_tracking, follows_a_roam_between_two_bsss) {
    vap other(guest);
    vap_.assoc(anna);
    vap_.connected(anna);
    vap_.taken();
    other.reassoc(anna, office);
    vap_.disconnected(anna);
    vap_.tracker.kernel_station(anna, true, vap_.now);
    other.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{anna_departs});
    EXPECT_EQ(other.taken(), lines{"arrival 02:00:00:00:0a:01 from 02:00:00:00:10:01"});
}

TEST_F(station_tracking, reports_every_departure_when_the_radio_ends) {
    vap_.connected(anna);
    vap_.connected(ben);
    vap_.taken();
    vap_.tracker.handle(radiod::ap_disabled{}, vap_.now);
    EXPECT_EQ(vap_.taken(), (lines{anna_departs, "departure 02:00:00:00:0b:02"}));
    vap_.connected(anna);
    vap_.taken();
    vap_.tracker.handle(radiod::terminating{}, vap_.now);
    EXPECT_EQ(vap_.taken(), lines{anna_departs});
}

TEST_F(station_tracking, announces_once_the_stations_that_were_there_before) {
    vap_.resync({anna, ben});
    EXPECT_EQ(vap_.taken(), (lines{anna_arrives, "arrival 02:00:00:00:0b:02"}));
    EXPECT_EQ(vap_.suite, akm::other);
    vap_.tracker.kernel_station(anna, true, vap_.now);
    vap_.connected(anna);
    EXPECT_EQ(vap_.taken(), lines{});
}

TEST_F(station_tracking, takes_up_a_hostapd_that_comes_back) {
    const mac_address carl = {2, 0, 0, 0, 0xc, 3};
    vap_.reassoc(anna, elsewhere);
    vap_.connected(anna);
    vap_.connected(ben);
    vap_.reassoc(carl, elsewhere);
    vap_.taken();
    vap_.tracker.hostapd_lost(vap_.now);
    vap_.wait(3s);
    EXPECT_EQ(vap_.taken(), lines{});
    vap_.resync({anna, carl});
    EXPECT_EQ(vap_.taken(), (lines{"departure 02:00:00:00:0b:02", anna_roams_in,
                                   "arrival 02:00:00:00:0c:03 from 02:00:00:00:20:01"}));
    vap_.wait(station_tracker::away_limit + 1s);
    EXPECT_EQ(vap_.taken(), lines{});
}

TEST_F(station_tracking, reports_every_departure_when_hostapd_stays_away) {
    vap_.connected(anna);
    vap_.taken();
    vap_.tracker.hostapd_lost(vap_.now);
    vap_.wait(station_tracker::away_limit - 1s);
    vap_.tracker.hostapd_lost(vap_.now);  // again
    vap_.wait(2s);
    EXPECT_EQ(vap_.taken(), lines{anna_departs});
    EXPECT_FALSE(vap_.tracker.is_present(anna));
}

mac_address numbered(unsigned number) {
    return {0x02, 0x01, 0, 0, static_cast<std::uint8_t>(number >> 8U), static_cast<std::uint8_t>(number)};
}

TEST_F(station_tracking, bounds_its_memory) {
    vap_.reassoc(anna, elsewhere);
    vap_.now += 1ms;
    vap_.connected(ben);
    for (unsigned number = 0; number < 3 * station_tracker::stations_max; number++) {
        vap_.now += 1ms;
        vap_.assoc(numbered(number));
        ASSERT_LE(vap_.tracker.size(), station_tracker::stations_max);
    }
    EXPECT_TRUE(vap_.tracker.is_present(ben));
    vap_.taken();
    vap_.connected(anna);  // the oldest request made room
    EXPECT_EQ(vap_.taken(), lines{anna_arrives});
    vap_.wait(station_tracker::request_life + 1s);
    EXPECT_EQ(vap_.tracker.present(), (std::vector{anna, ben}));
    EXPECT_EQ(vap_.tracker.size(), 2U);
}

TEST_F(station_tracking, lets_no_request_displace_a_station) {
    for (unsigned number = 0; number < station_tracker::stations_max; number++) {
        vap_.connected(numbered(number));
    }
    vap_.taken();
    vap_.assoc(anna);
    vap_.connected(anna);
    EXPECT_EQ(vap_.tracker.present().size(), station_tracker::stations_max);
    EXPECT_FALSE(vap_.tracker.is_present(anna));
}

}  // namespace
