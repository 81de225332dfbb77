// The radio as a process. The test takes the daemon's place.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <csignal>
#include <cstring>
#include <filesystem>

#include "common/paths.h"
#include "lab/radio/radio_control.h"
#include "tests/unit/private_root.h"
#include "tests/unit/radio_rig.h"
#include "wire/driver_records.h"

namespace {

using strings = std::vector<std::string>;

const std::string one_ap = R"([[ap]]
name = "ap1"
mac = "02:a0:00:00:01:00"
vaps = [{ifname = "wlan0", ssid = "office", vlan = 10, bssid = "02:a0:00:00:01:01"},
        {ifname = "wlan1", ssid = "restricted", vlan = 40, bssid = "02:a0:00:00:01:02", mac_acl_index = 1}]
)";

std::string station(unsigned number, const std::string &events) {
    char text[64];
    std::snprintf(text, sizeof text, "[[station]]\nmac = \"02:57:00:00:%02x:%02x\"\n", number >> 8U, number & 0xffU);
    return text + ("events = [" + events + "]\n");
}

class radio_process_test : public private_root {
protected:
    void SetUp() override { kx::make_private_directories(kx::place("/kx/ipc")); }

    strings scenario_command(const std::string &scenario, const strings &more = {}) {
        strings command = {RADIO_PROGRAM, "--scenario", write_file("s.toml", scenario), "--ap", "ap1", "--json"};
        command.insert(command.end(), more.begin(), more.end());
        return command;
    }

    strings capture_command() {
        const std::string config =
            "[ap]\nmac = \"02:00:00:00:10:00\"\n[controller]\naddress = \"localhost\"\n"
            "port = 1\nca = \"a\"\ncertificate = \"b\"\nkey = \"c\"\n";
        write_file("ap.toml", config + read_file(RADIO_BUILTIN_VAPS));
        return {RADIO_PROGRAM, RADIO_BUILTIN_CAPTURE};
    }

    static bool owns(const std::string &ifname) {
        return eventually([&] { return std::filesystem::exists(kx::place("/kx/driver/" + ifname)); });
    }

    static void load_vaps() {
        for (const char *ifname : {"wlan0", "wlan1"}) {
            ASSERT_TRUE(owns(ifname));
            EXPECT_EQ(ask_driver(ifname, SIOCGIFHWADDR).data.size(), 6U);
        }
    }

    // The id and the low byte of the client's address of each of the next `count` messages.
    static strings receive(kx::ipc_socket &daemon, std::size_t count) {
        strings got;
        while (got.size() < count) {
            const auto message = next_message(daemon);
            if (!message) {
                got.emplace_back("nothing");
                return got;
            }
            const std::size_t client = message->id == 161 || message->id == 195 ? 0 : 16;
            got.push_back(std::to_string(message->id) + " " + std::to_string(message->payload.at(client + 4)) + ":" +
                          std::to_string(message->payload.at(client + 5)));
        }
        return got;
    }

    // One association and one address for each of `stations` stations.
    static std::string crowd(unsigned stations) {
        std::string text = one_ap;
        for (unsigned i = 0; i < stations; ++i) {
            std::string events;
            for (const char *action : {"associate = \"ap1/wlan0\"", "address = \"10.0.10.5\""}) {
                events.append("{at = ").append(std::to_string(i)).append(", ").append(action).append("},");
            }
            text += station(i, events);
        }
        return text;
    }
    static strings crowd_messages(unsigned first, unsigned end) {
        strings expected;
        for (unsigned i = first; i < end; ++i) {
            const std::string who = std::to_string(i >> 8U) + ":" + std::to_string(i & 0xffU);
            expected.push_back("63 " + who);
            expected.push_back("161 " + who);
        }
        return expected;
    }
};

TEST_F(radio_process_test, plays_when_the_daemon_has_asked_for_every_vap) {
    kx::ipc_socket daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
    child_process radio(capture_command());
    ASSERT_TRUE(owns("wlan1"));
    EXPECT_EQ(ask_driver("wlan0", SIOCGIFHWADDR).data, (std::vector<std::uint8_t>{2, 0, 0, 0, 0x10, 1}));
    EXPECT_FALSE(daemon.receive());
    EXPECT_EQ(ask_driver("wlan1", SIOCGIFHWADDR).data, (std::vector<std::uint8_t>{2, 0, 0, 0, 0x10, 2}));
    EXPECT_EQ(receive(daemon, 7),
              (strings{"63 10:1", "161 10:1", "63 11:2", "63 12:3", "161 12:3", "63 10:1", "65 12:3"}));
    EXPECT_EQ(radio.wait(), 0);
    EXPECT_NE(radio.output().find("02:00:00:00:0b:02  wlan0 (02:00:00:00:10:01)  refused, status 17"),
              std::string::npos);
    EXPECT_NE(radio.output().find("associations 4"), std::string::npos);
    EXPECT_FALSE(std::filesystem::exists(kx::place("/kx/driver/wlan0")));
}

TEST_F(radio_process_test, waits_for_a_daemon_that_is_not_there_yet) {
    child_process radio(capture_command());
    load_vaps();
    kx::ipc_socket daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
    load_vaps();
    EXPECT_EQ(receive(daemon, 7).size(), 7U);
    EXPECT_EQ(radio.wait(), 0);
}

TEST_F(radio_process_test, loses_nothing_when_the_daemon_is_slow) {
    kx::ipc_socket daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
    child_process radio(scenario_command(crowd(700)));
    load_vaps();
    // The queue is full when the radio reports nothing for longer than its pause between two attempts.
    std::size_t reported = 0;
    ASSERT_TRUE(eventually([&] { return reported == std::exchange(reported, radio.output().size()) && reported > 0; }));
    EXPECT_EQ(receive(daemon, 1400), crowd_messages(0, 700));
    EXPECT_EQ(radio.wait(), 0);
}

TEST_F(radio_process_test, holds_events_back_until_a_restarted_daemon_is_ready) {
    constexpr unsigned stations = 2000;
    auto daemon = std::make_unique<kx::ipc_socket>(kx::ipc_socket::open(kx::endpoint_client_mgr));
    child_process radio(scenario_command(crowd(stations)));
    load_vaps();
    EXPECT_EQ(receive(*daemon, 4), crowd_messages(0, 2));
    daemon.reset();
    daemon = std::make_unique<kx::ipc_socket>(kx::ipc_socket::open(kx::endpoint_client_mgr));
    kx::ipc_socket observer = kx::ipc_socket::anonymous();
    EXPECT_EQ(ask_driver("wlan0", SIOCGIFHWADDR).error, 0);
    EXPECT_EQ(ask_stations(observer)["state"], "playing");
    EXPECT_FALSE(daemon->receive());
    EXPECT_EQ(ask_driver("wlan1", SIOCGIFHWADDR).error, 0);
    // The first daemon's queue is lost with it. All later messages arrive in order.
    strings got = receive(*daemon, 1);
    const auto all = crowd_messages(0, stations);
    const auto first = std::ranges::find(all, got.at(0));
    ASSERT_NE(first, all.end());
    EXPECT_EQ(receive(*daemon, static_cast<std::size_t>(all.end() - first) - 1), strings(first + 1, all.end()));
    EXPECT_EQ(radio.wait(), 0);
}

TEST_F(radio_process_test, gives_up_when_its_patience_ends) {
    strings command = capture_command();
    command.insert(command.end(), {"--patience", "1"});
    child_process radio(command);
    EXPECT_EQ(radio.wait(), 1);
    EXPECT_NE(radio.output().find("radio: the daemon did not request the addresses of all VAPs within 1 s"),
              std::string::npos);
}

TEST_F(radio_process_test, asks_and_lets_in_or_keeps_out) {
    kx::ipc_socket daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
    child_process radio(scenario_command(one_ap + station(1, "{at = 0, associate = \"ap1/wlan1\"}") +
                                         station(2, "{at = 0, associate = \"ap1/wlan1\"}")));
    load_vaps();
    for (const std::uint32_t verdict : {0U, 1U}) {
        const auto question = next_message(daemon);
        ASSERT_TRUE(question && question->id == 195 && question->payload.size() == 20);
        std::vector<std::uint8_t> record(136);
        const std::uint32_t length = 4;
        std::memcpy(record.data(), &verdict, 4);
        std::memcpy(record.data() + 4, &length, 4);
        std::memcpy(record.data() + 8, question->payload.data() + 16, 4);
        EXPECT_EQ(ask_driver("wlan0", DRIVER_ACL_VERDICT, record).error, ENOENT);
        EXPECT_EQ(ask_driver("wlan1", DRIVER_ACL_VERDICT, record).error, 0);
    }
    EXPECT_EQ(receive(daemon, 1), strings{"63 0:2"});
    EXPECT_EQ(radio.wait(), 0);
}

TEST_F(radio_process_test, a_station_that_is_sent_away_comes_back) {
    kx::ipc_socket daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
    child_process radio(
        scenario_command("come_back_ms = 100\n" + one_ap + station(1, "{at = 0, associate = \"ap1/wlan0\"}"),
                         {"--stay", "--speed", "10"}));
    load_vaps();
    EXPECT_EQ(receive(daemon, 1), strings{"63 0:1"});
    std::vector<std::uint8_t> order = {2, 0, 1, 0, 0x02, 0x57, 0, 0, 0, 1};
    order.resize(42);
    EXPECT_EQ(ask_driver("wlan0", DRIVER_STATION_REQUEST, order).error, 0);
    EXPECT_EQ(receive(daemon, 1), strings{"63 0:1"});
    radio.signal(SIGTERM);
    EXPECT_EQ(radio.wait(), 0);
}

TEST_F(radio_process_test, tells_its_stations_page_by_page) {
    kx::ipc_socket daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
    child_process radio(scenario_command(crowd(300), {"--stay"}));
    load_vaps();
    receive(daemon, 600);
    kx::ipc_socket observer = kx::ipc_socket::anonymous();
    ASSERT_TRUE(eventually([&] { return ask_stations(observer)["state"] == "played"; }));
    const nlohmann::json all = ask_stations(observer);
    ASSERT_EQ(all["stations"].size(), 300U);
    const nlohmann::json &last = all["stations"][299];
    EXPECT_EQ(last["client"], "02:57:00:00:01:2b");
    EXPECT_EQ(last["bssid"], "02:a0:00:00:01:01");
    EXPECT_EQ(last["ip"], "10.0.10.5");
    EXPECT_EQ(last["here"], true);
    EXPECT_EQ(last["pmk"], false);

    std::vector<std::uint8_t> key = {0, 0, 0, 129, 0x02, 0xa0, 0, 0, 1, 1, 0, 0, 0, 0, 0, 0, 0x02, 0x57, 0, 0, 1, 0x2b};
    key.resize(54);
    observer.send(radio::endpoint_radio, radio::RADIO_MSG_INSTALL_PMK, 1, key);
    EXPECT_EQ(ask_stations(observer)["stations"][299]["pmk"], true);
    radio.signal(SIGTERM);
    EXPECT_EQ(radio.wait(), 0);
}

TEST_F(radio_process_test, a_connection_carries_many_requests) {
    kx::ipc_socket daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
    strings command = capture_command();
    command.emplace_back("--stay");
    child_process radio(command);
    ASSERT_TRUE(owns("wlan1"));
    const driver_connection driver("wlan1");
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(driver.ask(SIOCGIFHWADDR).data.size(), 6U);
        EXPECT_EQ(driver.ask(0xdeadbeef).error, EOPNOTSUPP);
    }
    EXPECT_EQ(ask_driver("wlan1", SIOCGIFHWADDR).error, 0);
    radio.signal(SIGTERM);
    radio.wait();
}

TEST_F(radio_process_test, survives_garbage_on_every_socket) {
    kx::ipc_socket daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
    strings command = capture_command();
    command.emplace_back("--stay");
    child_process radio(command);
    ASSERT_TRUE(owns("wlan1"));
    EXPECT_EQ(ask_driver("wlan0", 0xdeadbeef).error, EOPNOTSUPP);
    EXPECT_EQ(ask_driver("wlan0", DRIVER_STATION_REQUEST, std::vector<std::uint8_t>(300, 0xff)).error, EINVAL);
    EXPECT_EQ(ask_driver("wlan0", DRIVER_ACL_VERDICT, std::vector<std::uint8_t>(136, 0xff)).error, EINVAL);
    kx::ipc_socket observer = kx::ipc_socket::anonymous();
    for (const auto id :
         std::initializer_list<std::uint32_t>{0, radio::RADIO_MSG_STATIONS, radio::RADIO_MSG_INSTALL_PMK}) {
        for (const std::size_t size : {0U, 3U, 16000U}) {
            observer.send(radio::endpoint_radio, id, 1, std::vector<std::uint8_t>(size, 0xff));
        }
    }
    load_vaps();
    EXPECT_EQ(receive(daemon, 7).size(), 7U);
    EXPECT_EQ(ask_stations(observer)["total"], 2);
    radio.signal(SIGINT);
    EXPECT_EQ(radio.wait(), 0);
}

TEST_F(radio_process_test, leaves_interfaces_to_the_radio_that_has_them) {
    child_process radio(capture_command());
    ASSERT_TRUE(owns("wlan1"));
    child_process other(capture_command());
    EXPECT_EQ(other.wait(), 1);
    EXPECT_NE(other.output().find("/kx/ipc/radio is served by another process"), std::string::npos);
    radio.signal(SIGKILL);
    EXPECT_EQ(radio.wait(), 128 + SIGKILL);
    child_process heir(capture_command());
    EXPECT_TRUE(eventually([] { return ask_driver("wlan0", SIOCGIFHWADDR).error == 0; }));
}

TEST_F(radio_process_test, plays_what_it_can_of_a_damaged_capture) {
    const std::string whole = read_file(RADIO_BUILTIN_CAPTURE);
    const std::string head = whole.substr(0, whole.size() / 2);
    struct damaged {
        std::string text;
        int status;
    };
    // Cut within a frame; and, after all frames, a record that claims 4 GiB.
    for (const damaged &each : {damaged{head, 0}, damaged{whole + std::string(16, '\xff') + std::string(64, 'x'), 1}}) {
        const auto daemon = kx::ipc_socket::open(kx::endpoint_client_mgr);
        strings command = capture_command();
        command[1] = write_file("damaged.pcap", each.text);
        child_process radio(command);
        load_vaps();
        EXPECT_EQ(radio.wait(), each.status);
        EXPECT_NE(radio.output().find("radio: " + command[1] + ": "), std::string::npos);
        EXPECT_NE(radio.output().find("02:00:00:00:0a:01  wlan0 (02:00:00:00:10:01)  associated"), std::string::npos);
    }
}

TEST_F(radio_process_test, says_what_is_wrong_with_its_files) {
    write_file("empty.pcap", "");
    capture_command();
    for (const strings &arguments : {strings{"/nonexistent.pcap"}, strings{root() + "/empty.pcap"},
                                     strings{RADIO_BUILTIN_CAPTURE, "--config", root() + "/none.toml"}}) {
        strings command = {RADIO_PROGRAM};
        command.insert(command.end(), arguments.begin(), arguments.end());
        child_process radio(command);
        EXPECT_EQ(radio.wait(), 1);
        EXPECT_FALSE(radio.output().empty());
    }
}

}  // namespace
