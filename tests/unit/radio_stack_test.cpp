// The radio's notifications to the daemon and its answers to driver requests.
#include "lab/radio/radio_stack.h"

#include <gtest/gtest.h>
#include <linux/sockios.h>

#include <cerrno>
#include <cstring>

#include "tests/unit/radio_frames.h"
#include "wire/driver_records.h"

namespace {

using namespace radio_frames;
using namespace std::chrono_literals;
using radio::air;
using radio::air_event;

constexpr kx::mac_address elsewhere = {0x02, 0x00, 0x00, 0x00, 0x20, 0x01};

kx::vap_config make_vap(const char *ifname, const kx::mac_address &bssid, std::uint32_t mac_acl_index) {
    kx::vap_config vap;
    vap.ifname = ifname;
    vap.ssid = ifname;
    vap.mac_acl_index = mac_acl_index;
    vap.bssid = bssid;
    return vap;
}

// In the host's byte order, as in the daemon's ioctl.
raw mlme(const kx::mac_address &client, std::uint8_t operation = 2) {
    const std::uint16_t reason = 1;
    raw body = {operation, 0, 0, 0};
    std::memcpy(body.data() + 2, &reason, sizeof reason);
    return body + as_bytes(client) + raw(32);
}

raw verdict(std::uint32_t value, const raw &data) {
    const auto length = static_cast<std::uint32_t>(data.size());
    raw body(136);
    std::memcpy(body.data(), &value, sizeof value);
    std::memcpy(body.data() + 4, &length, sizeof length);
    std::ranges::copy(data, body.begin() + 8);
    return body;
}

class radio_stack_test : public testing::Test {
protected:
    radio_stack_test() {
        stack_.on_report = [this](const radio::report &what) { reports_.push_back(what); };
    }

    void play(air what, const kx::mac_address &client, const kx::mac_address &bssid) {
        stack_.handle({.what = what, .client = client, .bssid = bssid, .last_bssid = elsewhere, .ip = 0x0a000a15},
                      now_);
    }

    // The names of the events that were reported since the last call.
    std::vector<std::string> reported() {
        std::vector<std::string> names;
        for (const radio::report &each : reports_) {
            names.push_back(each.event);
        }
        messages_.clear();
        for (const radio::report &each : reports_) {
            if (each.message) {
                messages_.push_back(*each.message);
            }
        }
        reports_.clear();
        return names;
    }

    int serve(unsigned long request, const raw &data, std::size_t vap = 0) {
        return stack_.serve(vap, static_cast<std::uint32_t>(request), data, now_).error;
    }

    static constexpr std::size_t acl_vap = 1;
    radio::radio_stack stack_{{make_vap("wlan0", office, 0), make_vap("wlan1", guest, 7)}};
    radio::clock::time_point now_{1h};
    std::vector<radio::report> reports_;
    std::vector<kx::notification> messages_;
};

using names = std::vector<std::string>;

TEST_F(radio_stack_test, reports_an_association_byte_for_byte) {
    play(air::association, anna, office);
    EXPECT_EQ(reported(), names{"association"});
    ASSERT_EQ(messages_.size(), 1U);
    EXPECT_EQ(messages_[0].id, 63U);
    EXPECT_EQ(messages_[0].payload, raw(16) + as_bytes(anna) + as_bytes(office) + raw(4));
}

TEST_F(radio_stack_test, reports_a_reassociation_with_the_last_bssid) {
    play(air::reassociation, anna, office);
    EXPECT_EQ(reported(), names{"reassociation"});
    EXPECT_EQ(messages_.at(0).id, 64U);
    EXPECT_EQ(messages_.at(0).payload, raw(16) + as_bytes(anna) + as_bytes(office) + as_bytes(elsewhere) + raw(4));
}

TEST_F(radio_stack_test, reports_nothing_of_other_access_points) {
    play(air::association, anna, elsewhere);
    EXPECT_EQ(reported(), names{});
    EXPECT_EQ(stack_.counters().elsewhere, 1U);
}

TEST_F(radio_stack_test, keeps_a_station_that_is_heard_to_join_elsewhere) {
    play(air::association, anna, office);
    play(air::reassociation, anna, elsewhere);
    EXPECT_EQ(stack_.stations().all().size(), 1U);
}

TEST_F(radio_stack_test, reports_the_departure_of_an_associated_and_of_a_roamed_in_station) {
    play(air::association, anna, office);
    play(air::reassociation, ben, office);
    reported();
    play(air::departure, anna, office);
    play(air::departure, ben, office);
    EXPECT_EQ(reported(), (names{"disassociation", "disassociation"}));
    EXPECT_EQ(messages_.at(0).id, 65U);
    EXPECT_EQ(messages_.at(0).payload, raw(16) + as_bytes(anna) + as_bytes(office) + raw(4));
    EXPECT_EQ(messages_.at(1).id, 66U);
    EXPECT_EQ(messages_.at(1).payload, raw(16) + as_bytes(ben) + as_bytes(office) + raw(4));
    EXPECT_TRUE(stack_.stations().all().empty());
}

TEST_F(radio_stack_test, reports_no_departure_of_a_station_that_is_not_there) {
    play(air::association, anna, office);
    reported();
    play(air::departure, ben, office);
    play(air::departure, anna, guest);
    EXPECT_EQ(reported(), names{});
    EXPECT_EQ(stack_.stations().all().size(), 1U);
}

TEST_F(radio_stack_test, a_broadcast_departure_is_that_of_every_station_of_the_bssid) {
    play(air::association, anna, office);
    play(air::association, ben, office);
    reported();
    play(air::departure, radio::broadcast, guest);
    EXPECT_EQ(reported(), names{});
    play(air::departure, radio::broadcast, office);
    EXPECT_EQ(reported(), (names{"disassociation", "disassociation"}));
}

TEST_F(radio_stack_test, reports_an_address_once_and_with_the_interface) {
    play(air::address, anna, office);
    EXPECT_EQ(reported(), names{});
    play(air::association, anna, office);
    reported();
    play(air::address, anna, office);
    play(air::address, anna, office);
    EXPECT_EQ(reported(), names{"address"});
    EXPECT_EQ(messages_.at(0).id, 161U);
    EXPECT_EQ(messages_.at(0).payload, (as_bytes(anna) + raw{0, 0, 10, 0, 10, 0x15, 'w', 'l', 'a', 'n', '0', 0}));
}

TEST_F(radio_stack_test, reports_keys_of_its_stations) {
    radio::air_event add{.what = air::pmk_add, .client = anna, .bssid = office};
    for (std::size_t i = 0; i < add.key.size(); ++i) {
        add.key[i] = static_cast<std::uint8_t>(0xa0 + i);
    }
    stack_.handle(add, now_);
    EXPECT_EQ(reported(), names{});
    play(air::association, anna, office);
    reported();
    stack_.handle(add, now_);
    play(air::pmk_fetch, anna, office);
    EXPECT_EQ(reported(), (names{"pmk_add", "pmk_fetch"}));
    EXPECT_EQ(messages_.at(0).id, 150U);
    EXPECT_EQ(messages_.at(0).payload,
              (raw{0, 0, 0, 2} + as_bytes(office) + raw(6) + as_bytes(anna) + raw(add.key.begin(), add.key.end())));
    EXPECT_EQ(messages_.at(1).payload,
              (raw{0, 0, 0, 1} + as_bytes(office) + as_bytes(elsewhere) + as_bytes(anna) + raw(32)));
}

TEST_F(radio_stack_test, installs_keys_of_its_stations) {
    const raw message = raw{0, 0, 0, 129} + as_bytes(office) + raw(6) + as_bytes(anna) + raw(32);
    stack_.install_pmk(message);
    play(air::association, anna, office);
    EXPECT_FALSE(stack_.stations().all().at(anna).pmk_installed);
    stack_.install_pmk(message);
    EXPECT_TRUE(stack_.stations().all().at(anna).pmk_installed);
    stack_.install_pmk(raw(53));
    raw add = message;
    add[3] = 2;
    stack_.install_pmk(add);
    EXPECT_EQ(stack_.counters().pmks_installed, 1U);
    EXPECT_EQ(stack_.counters().pmks_ignored, 3U);
}

TEST_F(radio_stack_test, answers_with_the_address_of_the_vap) {
    EXPECT_EQ(stack_.serve(1, SIOCGIFHWADDR, {}, now_).data, as_bytes(guest));
}

TEST_F(radio_stack_test, forgets_a_station_by_order_and_reports_nothing) {
    play(air::association, anna, office);
    reported();
    EXPECT_EQ(serve(DRIVER_STATION_REQUEST, mlme(anna)), 0);
    EXPECT_EQ(reported(), names{"ordered_off"});
    EXPECT_TRUE(messages_.empty());
    EXPECT_TRUE(stack_.stations().all().empty());
    EXPECT_EQ(serve(DRIVER_STATION_REQUEST, mlme(anna)), ENOENT);
}

TEST_F(radio_stack_test, refuses_orders_that_it_does_not_know) {
    play(air::association, anna, office);
    EXPECT_EQ(serve(DRIVER_STATION_REQUEST, mlme(anna), acl_vap), ENOENT);
    EXPECT_EQ(serve(DRIVER_STATION_REQUEST, mlme(anna, 3)), EINVAL);
    EXPECT_EQ(serve(DRIVER_STATION_REQUEST, raw(41)), EINVAL);
    EXPECT_EQ(serve(DRIVER_STATION_REQUEST, {}), EINVAL);
    EXPECT_EQ(serve(SIOCGIFFLAGS, {}), EOPNOTSUPP);
    EXPECT_EQ(stack_.stations().all().size(), 1U);
}

TEST_F(radio_stack_test, lists_the_stations_of_the_vap) {
    play(air::association, anna, office);
    now_ += 75s;
    play(air::association, ben, office);
    const raw list = stack_.serve(0, DRIVER_STATION_LIST, {}, now_).data;
    ASSERT_EQ(list.size(), 2 * sizeof(driver_station));
    driver_station first{};
    std::memcpy(&first, list.data(), sizeof first);
    EXPECT_EQ(first.length, 156);
    EXPECT_EQ(first.mac, anna);
    EXPECT_EQ(first.inactivity, 75);
    EXPECT_TRUE(stack_.serve(1, DRIVER_STATION_LIST, {}, now_).data.empty());
}

TEST_F(radio_stack_test, lists_as_many_stations_as_an_answer_holds) {
    for (std::uint8_t i = 0; i < 200; ++i) {
        play(air::association, {0x02, 0, 0, 0, 0x30, i}, office);
    }
    EXPECT_EQ(stack_.serve(0, DRIVER_STATION_LIST, {}, now_).data.size(), 105U * 156U);
}

class radio_acl : public radio_stack_test {
protected:
    // The opaque data of the last question.
    raw question() {
        EXPECT_EQ(reported().back(), "acl_question");
        const kx::notification &asked = messages_.back();
        EXPECT_EQ(asked.id, 195U);
        EXPECT_EQ(raw(asked.payload.begin(), asked.payload.begin() + 16),
                  as_bytes(anna) + as_bytes(guest) + raw({0, 0, 0, 4}));
        return {asked.payload.begin() + 16, asked.payload.end()};
    }
};

TEST_F(radio_acl, a_station_waits_until_it_is_let_in) {
    play(air::association, anna, guest);
    const raw asked = question();
    EXPECT_TRUE(stack_.stations().all().empty());
    EXPECT_EQ(serve(DRIVER_ACL_VERDICT, verdict(1, asked), acl_vap), 0);
    EXPECT_EQ(reported(), (names{"acl_verdict", "association"}));
    EXPECT_FALSE(stack_.next_deadline());
}

TEST_F(radio_acl, any_other_verdict_keeps_it_out) {
    for (const std::uint32_t value : {0U, 2U, 7U}) {
        play(air::association, anna, guest);
        EXPECT_EQ(serve(DRIVER_ACL_VERDICT, verdict(value, question()), acl_vap), 0);
        EXPECT_EQ(reported(), names{"acl_verdict"});
    }
    EXPECT_EQ(stack_.counters().acl_refused, 3U);
}

TEST_F(radio_acl, no_verdict_within_five_seconds_keeps_it_out) {
    play(air::association, anna, guest);
    const raw asked = question();
    EXPECT_EQ(stack_.next_deadline(), now_ + 5s);
    stack_.expire(now_ + 5s - 1us);
    EXPECT_EQ(reported(), names{});
    stack_.expire(now_ + 5s);
    EXPECT_EQ(reported(), names{"acl_verdict"});
    EXPECT_EQ(serve(DRIVER_ACL_VERDICT, verdict(1, asked), acl_vap), ENOENT);
}

TEST_F(radio_acl, a_verdict_has_to_fit_a_question) {
    play(air::association, anna, guest);
    const raw asked = question();
    EXPECT_EQ(serve(DRIVER_ACL_VERDICT, verdict(1, {9, 9, 9, 9}), acl_vap), ENOENT);
    EXPECT_EQ(serve(DRIVER_ACL_VERDICT, verdict(1, asked), 0), ENOENT);
    EXPECT_EQ(serve(DRIVER_ACL_VERDICT, verdict(1, asked + raw{0}), acl_vap), EINVAL);
    EXPECT_EQ(serve(DRIVER_ACL_VERDICT, raw(135), acl_vap), EINVAL);
    EXPECT_TRUE(stack_.next_deadline());
}

TEST_F(radio_acl, what_happens_to_a_waiting_station_happens_afterwards_in_order) {
    play(air::association, anna, guest);
    play(air::address, anna, guest);
    play(air::departure, radio::broadcast, guest);
    play(air::association, anna, guest);
    play(air::address, anna, guest);
    const raw first = question();
    serve(DRIVER_ACL_VERDICT, verdict(1, first), acl_vap);
    EXPECT_EQ(reports_.size(), 5U);
    const raw second = question();
    EXPECT_NE(first, second);
    serve(DRIVER_ACL_VERDICT, verdict(1, second), acl_vap);
    EXPECT_EQ(reported(), (names{"acl_verdict", "association", "address"}));
}

TEST_F(radio_acl, other_stations_do_not_wait) {
    play(air::association, anna, guest);
    play(air::association, ben, office);
    EXPECT_EQ(reported(), (names{"acl_question", "association"}));
}

}  // namespace
