// The radio's side of the daemon. The test takes the daemon's place.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <future>

#include "common/paths.h"
#include "radio_service/daemon_link.h"
#include "radio_service/driver_server.h"
#include "radio_service/hostapd_endpoint.h"
#include "tests/unit/event_rig.h"
#include "tests/unit/private_root.h"
#include "tests/unit/radio_rig.h"
#include "wire/hostapd_endpoint.h"
#include "wire/local_messages.h"

namespace {

using octets = std::vector<std::uint8_t>;

constexpr mac_address client{2, 0, 0, 0, 0xc, 1};
constexpr mac_address bssid{2, 0, 0, 0, 0xb, 1};
constexpr mac_address old_bssid{2, 0, 0, 0, 0xb, 2};

class radio_service_test : public private_root, protected event_rig {};

class daemon_link_test : public radio_service_test {
protected:
    void SetUp() override { kx::make_private_directories(kx::place("/kx/ipc")); }

    static std::optional<kx::ipc_socket> start_daemon() { return kx::ipc_socket::open(kx::endpoint_client_mgr); }

    kx::daemon_link make_link(std::size_t waiting_max = SIZE_MAX) {
        return kx::daemon_link(base.get(),
                               {.vaps = 2, .patience = std::chrono::seconds(0), .waiting_max = waiting_max});
    }
    static void load_vaps(kx::daemon_link &link) {
        link.address_requested(0);
        link.address_requested(1);
    }
    static void send_address(kx::daemon_link &link, std::uint32_t ip) {
        link.send(kx::address_notification(client, ip, "wlan0"));
    }
    // The last byte of the address of each waiting message, or the id of any other.
    static std::vector<unsigned> received(kx::ipc_socket &daemon) {
        std::vector<unsigned> got;
        while (const auto message = daemon.receive()) {
            got.push_back(message->id == KX_MSG_ID_CLIENT_IP ? message->payload.at(11) : message->id);
        }
        return got;
    }
};

TEST_F(daemon_link_test, announces_in_every_load_what_the_daemon_may_have_dropped) {
    auto daemon = start_daemon();
    kx::daemon_link link = make_link();
    link.on_loaded = [&] {
        link.clear();
        send_address(link, 7);
    };
    send_address(link, 1);
    link.address_requested(1);
    EXPECT_FALSE(link.is_ready());
    EXPECT_TRUE(received(*daemon).empty());
    link.address_requested(0);
    EXPECT_TRUE(link.is_ready());
    EXPECT_EQ(received(*daemon), std::vector<unsigned>{7});
    send_address(link, 2);
    EXPECT_EQ(received(*daemon), std::vector<unsigned>{2});
    load_vaps(link);
    EXPECT_EQ(received(*daemon), std::vector<unsigned>{7});
}

TEST_F(daemon_link_test, the_requests_of_two_daemons_are_no_load) {
    auto daemon = start_daemon();
    kx::daemon_link link = make_link();
    link.address_requested(0);
    daemon.reset();
    link.address_requested(0);
    daemon = start_daemon();
    link.address_requested(1);
    EXPECT_FALSE(link.is_ready());
    link.address_requested(0);
    EXPECT_TRUE(link.is_ready());
}

TEST_F(daemon_link_test, asks_each_daemon_once_to_load_its_vaps) {
    auto daemon = start_daemon();
    kx::daemon_link link = make_link();
    link.request_loads();
    send_address(link, 1);
    send_address(link, 2);
    EXPECT_EQ(received(*daemon), std::vector<unsigned>{KX_MSG_ID_VAP_INIT});
    load_vaps(link);
    EXPECT_EQ(received(*daemon), (std::vector<unsigned>{1, 2}));
    daemon.reset();
    send_address(link, 3);
    daemon = start_daemon();
    std::vector<unsigned> got;
    ASSERT_TRUE(run_until([&] {
        got = received(*daemon);
        return !got.empty();
    }));
    EXPECT_EQ(got, std::vector<unsigned>{KX_MSG_ID_VAP_INIT});
    load_vaps(link);
    EXPECT_EQ(received(*daemon), std::vector<unsigned>{3});
}

TEST_F(daemon_link_test, asks_a_loaded_daemon_once_more_before_it_sends_the_rest) {
    auto daemon = start_daemon();
    kx::daemon_link link = make_link();
    link.request_loads();
    load_vaps(link);
    EXPECT_EQ(received(*daemon), std::vector<unsigned>{KX_MSG_ID_VAP_INIT});
    link.request_load_again();
    send_address(link, 1);
    EXPECT_EQ(received(*daemon), (std::vector<unsigned>{KX_MSG_ID_VAP_INIT, 1}));
    send_address(link, 2);
    EXPECT_EQ(received(*daemon), std::vector<unsigned>{2});
}

TEST_F(daemon_link_test, asks_once_more_a_daemon_that_is_not_ready) {
    auto daemon = start_daemon();
    kx::daemon_link link = make_link();
    link.request_loads();
    link.request_load_again();
    EXPECT_EQ(received(*daemon), (std::vector<unsigned>{KX_MSG_ID_VAP_INIT, KX_MSG_ID_VAP_INIT}));
    daemon.reset();
    link.request_load_again();
    daemon = start_daemon();
    std::vector<unsigned> got;
    ASSERT_TRUE(run_until([&] {
        got = received(*daemon);
        return !got.empty();
    }));
    EXPECT_EQ(got, std::vector<unsigned>{KX_MSG_ID_VAP_INIT});
}

TEST_F(daemon_link_test, asks_once_more_when_the_daemon_has_room_again) {
    auto daemon = start_daemon();
    kx::daemon_link link = make_link();
    link.request_loads();
    load_vaps(link);
    auto other = kx::ipc_socket::anonymous();
    while (other.send(kx::endpoint_client_mgr, 1, kx::ipc_flag_notification, {}) == kx::ipc_result::sent) {
    }
    link.request_load_again();
    std::vector<unsigned> got;
    ASSERT_TRUE(run_until([&] {
        for (const unsigned each : received(*daemon)) {
            got.push_back(each);
        }
        return std::ranges::count(got, KX_MSG_ID_VAP_INIT) == 2;
    }));
}

// A stream socket in the daemon's place fails every datagram with EPROTOTYPE.
TEST_F(daemon_link_test, reports_an_unexpected_error_once_and_tries_again) {
    const std::string path = kx::place(kx::endpoint_client_mgr);
    const int wrong = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_un name{.sun_family = AF_UNIX, .sun_path = {}};
    ASSERT_LT(path.size(), sizeof name.sun_path);
    path.copy(name.sun_path, path.size());
    ASSERT_EQ(bind(wrong, reinterpret_cast<const sockaddr *>(&name), sizeof name), 0);

    kx::daemon_link link(base.get(), {.wait_ready = false});
    testing::internal::CaptureStderr();
    link.request_loads();
    link.request_load_again();
    send_address(link, 1);
    settle();
    const std::string log = testing::internal::GetCapturedStderr();
    const std::size_t first = log.find("client_mgr cannot be reached: ");
    EXPECT_NE(first, std::string::npos) << log;
    EXPECT_EQ(log.find("client_mgr cannot be reached: ", first + 1), std::string::npos) << log;

    close(wrong);
    std::filesystem::remove(path);
    auto daemon = start_daemon();
    std::vector<unsigned> got;
    ASSERT_TRUE(run_until([&] {
        for (const unsigned each : received(*daemon)) {
            got.push_back(each);
        }
        return got.size() == 2;
    }));
    EXPECT_EQ(got, (std::vector<unsigned>{KX_MSG_ID_VAP_INIT, 1}));
}

TEST_F(daemon_link_test, drops_the_oldest_when_too_many_wait) {
    auto daemon = start_daemon();
    kx::daemon_link link = make_link(3);
    for (std::uint32_t ip = 1; ip <= 5; ip++) {
        send_address(link, ip);
    }
    load_vaps(link);
    EXPECT_EQ(received(*daemon), (std::vector<unsigned>{3, 4, 5}));
}

class driver_server_test : public radio_service_test {
protected:
    static kx::driver_answer echo(std::size_t vap, std::uint32_t request, std::span<const std::uint8_t> data) {
        if (request != SIOCGIFHWADDR) {
            return {.error = EOPNOTSUPP};
        }
        octets answer(data.begin(), data.end());
        answer.push_back(static_cast<std::uint8_t>(vap));
        return {.data = answer};
    }
    driver_reply ask(const driver_connection &connection, unsigned long request, const octets &data = {}) {
        auto reply = std::async(std::launch::async, [&] { return connection.ask(request, data); });
        run_until([&] { return reply.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
        return reply.get();
    }
};

TEST_F(driver_server_test, serves_each_interface_on_its_socket) {
    kx::driver_server server(base.get(), {"wlan0", "wlan1"}, echo);
    const driver_connection first("wlan0");
    const driver_connection second("wlan1");
    EXPECT_EQ(ask(second, SIOCGIFHWADDR, {9}).data, (octets{9, 1}));
    EXPECT_EQ(ask(first, SIOCGIFHWADDR).data, octets{0});
    EXPECT_EQ(ask(first, 1).error, EOPNOTSUPP);
    EXPECT_EQ(mode_of(kx::place("/kx/driver")), 0700U);
}

TEST_F(driver_server_test, closes_a_connection_that_is_idle) {
    kx::driver_server server(base.get(), {"wlan0"}, echo, std::chrono::milliseconds(50));
    const driver_connection idle("wlan0");
    EXPECT_EQ(ask(idle, SIOCGIFHWADDR).error, 0);
    auto closed = std::async(std::launch::async, [&] { return idle.is_closed(); });
    run_until([&] { return closed.wait_for(std::chrono::seconds(0)) == std::future_status::ready; });
    EXPECT_TRUE(closed.get());
}

TEST_F(driver_server_test, closes_the_least_recently_used_connection_for_a_new_one) {
    kx::driver_server server(base.get(), {"wlan0"}, echo);
    std::vector<std::unique_ptr<driver_connection>> clients;
    for (int i = 0; i < 64; i++) {
        clients.push_back(std::make_unique<driver_connection>("wlan0"));
        settle();
    }
    EXPECT_EQ(ask(*clients[0], SIOCGIFHWADDR).error, 0);
    const driver_connection late("wlan0");
    EXPECT_EQ(ask(late, SIOCGIFHWADDR).error, 0);
    EXPECT_TRUE(clients[1]->is_closed());
    EXPECT_EQ(ask(*clients[0], SIOCGIFHWADDR).error, 0);
    EXPECT_EQ(ask(*clients[2], SIOCGIFHWADDR).error, 0);
}

TEST_F(driver_server_test, leaves_an_interface_to_the_server_that_has_it) {
    const std::string path = kx::place("/kx/driver/wlan0");
    {
        kx::driver_server server(base.get(), {"wlan0"}, echo);
        EXPECT_THROW(kx::driver_server(base.get(), {"wlan1", "wlan0"}, echo), std::runtime_error);
        EXPECT_TRUE(std::filesystem::exists(path));
        EXPECT_FALSE(std::filesystem::exists(kx::place("/kx/driver/wlan1")));
    }
    EXPECT_FALSE(std::filesystem::exists(path));
}

TEST(driver_requests, are_read_at_their_one_length) {
    driver_station_op order{};
    order.op = DRIVER_OP_DISASSOC;
    order.reason = 5;
    order.station = client;
    octets data(sizeof order + 1);
    std::memcpy(data.data(), &order, sizeof order);
    for (std::size_t size = 0; size <= data.size(); size++) {
        const auto parsed = kx::parse_station_request(std::span(data).first(size));
        ASSERT_EQ(parsed.has_value(), size == sizeof order);
        EXPECT_TRUE(!parsed || (parsed->station == client && parsed->reason == 5));
    }
    data[0] = DRIVER_OP_DISASSOC + 1;
    EXPECT_FALSE(kx::parse_station_request(std::span(data).first(sizeof order)));
}

TEST(driver_requests, contain_the_verdict_on_a_question) {
    const kx::notification question = kx::acl_question(client, bssid, 0x01020304);
    driver_acl_verdict record{};
    record.verdict = DRIVER_ACL_ALLOWED;
    record.data_len = 4;
    std::memcpy(record.data, question.payload.data() + sizeof(acl_auth_request), 4);
    const auto parse = [&] {
        octets data(sizeof record);
        std::memcpy(data.data(), &record, sizeof record);
        return kx::parse_acl_verdict(data);
    };
    ASSERT_TRUE(parse());
    EXPECT_EQ(parse()->question, 0x01020304U);
    EXPECT_TRUE(parse()->allowed);
    record.verdict = 2;
    EXPECT_FALSE(parse()->allowed);
    record.data_len = 5;
    EXPECT_FALSE(parse());
    EXPECT_FALSE(kx::parse_acl_verdict(octets(sizeof record - 1)));
}

TEST(driver_requests, list_as_many_stations_as_fit) {
    const std::vector<kx::listed_station> stations(200, {.mac = client, .silence = std::chrono::hours(24)});
    const octets list = kx::make_station_list(stations);
    ASSERT_EQ(list.size(), 105 * sizeof(driver_station));
    driver_station last{};
    std::memcpy(&last, list.data() + 104 * sizeof last, sizeof last);
    EXPECT_EQ(last.length, sizeof last);
    EXPECT_EQ(last.mac, client);
    EXPECT_EQ(last.inactivity, 65535);
    EXPECT_TRUE(kx::make_station_list({}).empty());
}

class hostapd_endpoint_test : public radio_service_test {
protected:
    static octets command() {
        ::hostapd_command command{};
        command.code = 9;
        command.info.sub_type = HOSTAPD_PMK_FETCH_RESP;
        command.info.bssid = bssid;
        command.info.prev_bssid = old_bssid;
        command.info.client = client;
        std::memset(command.info.pmk, 0x5a, sizeof command.info.pmk);
        octets payload(sizeof command);
        std::memcpy(payload.data(), &command, sizeof command);
        return payload;
    }
};

TEST_F(hostapd_endpoint_test, receives_the_daemons_pmks) {
    kx::hostapd_endpoint endpoint(base.get());
    std::vector<kx::pmk_answer> pmks;
    std::vector<std::string> faults;
    endpoint.on_pmk = [&](const kx::pmk_answer &pmk) { pmks.push_back(pmk); };
    endpoint.on_malformed = [&](const std::string &fault) { faults.push_back(fault); };
    auto daemon = kx::ipc_socket::anonymous();
    const auto send = [&](const octets &payload) {
        return daemon.send(kx::endpoint_hostapd, kx::hostapd_command_message_id, kx::ipc_flag_notification, payload);
    };
    EXPECT_EQ(send(octets(1095)), kx::ipc_result::sent);
    EXPECT_EQ(send(command()), kx::ipc_result::sent);
    ASSERT_TRUE(run_until([&] { return pmks.size() == 1; }));
    EXPECT_EQ(faults, std::vector<std::string>{"command length 1095, expected 1096"});
    EXPECT_EQ(pmks[0].client, client);
    EXPECT_EQ(pmks[0].bssid, bssid);
    EXPECT_EQ(pmks[0].previous_bssid, old_bssid);
    EXPECT_EQ(pmks[0].pmk[31], 0x5a);

    std::filesystem::remove(kx::place(kx::endpoint_hostapd));
    EXPECT_EQ(send(command()), kx::ipc_result::absent);
    endpoint.restore();
    EXPECT_EQ(send(command()), kx::ipc_result::sent);
    EXPECT_TRUE(run_until([&] { return pmks.size() == 2; }));
}

}  // namespace
