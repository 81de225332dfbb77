// What apd passes on about clients on another VLAN than their home VLAN.
#include <cstring>

#include "common/paths.h"
#include "tests/unit/apd_rig.h"
#include "tunnel/roaming_frames.h"
#include "wire/apcomm_channel.h"
#include "wire/client_tunnels.h"
#include "wire/home_questions.h"
#include "wire/local_messages.h"

namespace {

using kx::roaming_role;
using statements = std::vector<std::string>;

constexpr mac_address s1 = {6, 0, 0, 0, 0, 1};
constexpr mac_address s2 = {6, 0, 0, 0, 0, 2};
constexpr mac_address bssid = {2, 0, 0, 0, 0xb, 20};
constexpr mac_address home_bssid = {2, 0, 0, 0, 0xa, 10};

class apd_roaming_test : public apd_rig {
protected:
    // Returns when the controller's end is up and the client manager has read its first messages.
    void start(const std::string &tunnel = "[tunnel]\nenabled = true\n") {
        apd.emplace(base.get(), write_file("ap.toml", config(listener.port(), tunnel)), apd::detail_log(false));
        daemon->connect();
        ASSERT_TRUE(daemon->send_packet(kx::apcomm_destination_apd, {}));
        accept_tunnel();
        for (std::uint32_t id : {KX_MSG_ID_SYSMON_HB, KX_MSG_ID_APCOMM_MSG, KX_MSG_ID_VAP_INIT}) {
            ASSERT_EQ(next_id(), id);
        }
    }
    void state(roaming_role role, const mac_address &station = {}, std::uint16_t vlan = 0, std::uint32_t peer = 0) {
        kx::roaming_peer frame{};
        frame.role = static_cast<std::uint8_t>(role);
        frame.client = station;
        frame.vlan = vlan;
        frame.peer = peer;
        ASSERT_TRUE(accepted.tunnel->send(kx::tunnel_destination_own, kx::make_roaming_frame(frame)));
    }
    // The next statements at the client manager: "2 06:00:00:00:00:01 10 a000001".
    statements next_statements(std::size_t number) {
        statements found;
        while (found.size() < number) {
            const auto message = next_message();
            if (!message) {
                break;
            }
            kx::client_tunnel_statement content{};
            if (message->id != kx::client_tunnel_message_id || message->payload.size() != sizeof(content)) {
                found.push_back("message " + std::to_string(message->id));
                continue;
            }
            std::memcpy(&content, message->payload.data(), sizeof(content));
            char text[64];
            std::snprintf(text, sizeof(text), "%u %s %u %x", unsigned(content.kind), mac_text(content.client).text,
                          unsigned(content.vlan), unsigned(content.peer));
            found.emplace_back(text);
        }
        return found;
    }
    void register_again() {
        daemon.reset();
        ASSERT_TRUE(run_until([&] { return accepted.downs == 1; }));
        accepted = {};
        daemon.emplace();
        daemon->connect();
        ASSERT_TRUE(daemon->send_packet(kx::apcomm_destination_apd, {}));
    }
    std::optional<kx::roaming_carrier> carrier() {
        settle();
        for (const received_message &each : accepted.messages) {
            if (const auto frame = kx::read_roaming_frame<kx::roaming_carrier>(each.bytes);
                frame && each.destination == kx::tunnel_destination_own) {
                return frame;
            }
        }
        return std::nullopt;
    }
};

const std::string no_client = "00:00:00:00:00:00 0 0";
const std::string s1_foreign = "2 06:00:00:00:00:01 10 a000001";
const std::string s2_home = "1 06:00:00:00:00:02 20 a000002";

TEST_F(apd_roaming_test, announces_that_it_carries_clients) {
    start();
    ASSERT_TRUE(run_until([&] { return !accepted.messages.empty(); }));
    ASSERT_TRUE(carrier());
    EXPECT_EQ(carrier()->address, 0u);
}

TEST_F(apd_roaming_test, announces_the_address_of_its_configuration) {
    start("[tunnel]\nenabled = true\naddress = \"10.1.2.3\"\n");
    ASSERT_TRUE(run_until([&] { return !accepted.messages.empty(); }));
    EXPECT_EQ(carrier().value().address, 0x0a010203u);
}

TEST_F(apd_roaming_test, announces_nothing_when_it_does_not_carry) {
    start("");
    EXPECT_FALSE(carrier());
}

TEST_F(apd_roaming_test, passes_statements_on_in_order) {
    start();
    state(roaming_role::foreign, s1, 10, 0x0a000001);
    state(roaming_role::home, s2, 20, 0x0a000002);
    state(roaming_role::local, s1, 10, 7);
    state(roaming_role::gone, s2);
    EXPECT_EQ(next_statements(4),
              (statements{s1_foreign, s2_home, "3 06:00:00:00:00:01 10 0", "4 06:00:00:00:00:02 0 0"}));
}

// It may have been told more before apd started.
TEST_F(apd_roaming_test, repeats_what_it_has_to_a_new_client_manager) {
    start();
    state(roaming_role::foreign, s1, 10, 0x0a000001);
    ASSERT_EQ(next_statements(1), statements{s1_foreign});
    register_again();
    EXPECT_EQ(next_statements(1), statements{s1_foreign});
}

TEST_F(apd_roaming_test, repeats_a_complete_list_as_such) {
    start();
    state(roaming_role::foreign, s1, 10, 0x0a000001);
    state(roaming_role::begin);
    state(roaming_role::home, s2, 20, 0x0a000002);
    state(roaming_role::end);
    EXPECT_EQ(next_statements(4), (statements{s1_foreign, "5 " + no_client, s2_home, "6 " + no_client}));
    register_again();
    EXPECT_EQ(next_statements(3), (statements{"5 " + no_client, s2_home, "6 " + no_client}));
}

// The tunnel ends in the middle of a list.
TEST_F(apd_roaming_test, keeps_everything_until_a_list_ends) {
    start();
    state(roaming_role::foreign, s1, 10, 0x0a000001);
    state(roaming_role::begin);
    ASSERT_EQ(next_statements(2).size(), 2u);
    register_again();
    EXPECT_EQ(next_statements(1), statements{s1_foreign});
}

class radiod_asks : public apd_roaming_test {
protected:
    void ask() {
        kx::home_question_message question{};
        question.station = s1;
        question.bssid = bssid;
        ASSERT_EQ(radiod.send(kx::endpoint_homes, kx::home_question_message_id, kx::ipc_flag_notification,
                              {reinterpret_cast<const std::uint8_t *>(&question), sizeof(question)}),
                  kx::ipc_result::sent);
    }
    std::optional<kx::home_answer_message> answer() {
        std::optional<kx::ipc_message> message;
        run_until([&] { return (message = radiod.receive()).has_value(); });
        kx::home_answer_message content{};
        if (!message || message->id != kx::home_answer_message_id || message->payload.size() != sizeof(content)) {
            return std::nullopt;
        }
        std::memcpy(&content, message->payload.data(), sizeof(content));
        return content;
    }

    kx::ipc_socket radiod = kx::ipc_socket::open(kx::endpoint_radiod);
};

TEST_F(radiod_asks, and_the_controller_answers) {
    start();
    ask();
    const auto asked = [&] {
        return !accepted.messages.empty() && kx::read_roaming_frame<kx::home_question>(accepted.messages.back().bytes);
    };
    ASSERT_TRUE(run_until(asked));
    const auto question = kx::read_roaming_frame<kx::home_question>(accepted.messages.back().bytes);
    EXPECT_EQ(question->station, s1);
    EXPECT_EQ(question->bssid, bssid);
    kx::home_answer content{};
    content.station = s1;
    content.bssid = bssid;
    content.home_bssid = home_bssid;
    content.vlan = 10;
    accepted.tunnel->send(kx::tunnel_destination_own, kx::make_roaming_frame(content));
    const auto received = answer();
    ASSERT_TRUE(received);
    EXPECT_EQ(received->station, s1);
    EXPECT_EQ(received->bssid, bssid);
    EXPECT_EQ(received->home_bssid, home_bssid);
    EXPECT_EQ(received->vlan, 10);
}

TEST_F(radiod_asks, and_hears_of_a_client_that_has_moved) {
    start();
    state(roaming_role::foreign, s2, 10, 0x0a000001);
    state(roaming_role::home, s1, 10, 0x0a000001);
    std::optional<kx::ipc_message> message;
    ASSERT_TRUE(run_until([&] { return (message = radiod.receive()).has_value(); }));
    EXPECT_EQ(message->id, kx::client_moved_message_id);
    EXPECT_EQ(message->payload, std::vector<std::uint8_t>(s1.begin(), s1.end()));
}

TEST_F(radiod_asks, and_there_is_no_tunnel) {
    apd.emplace(base.get(), write_file("ap.toml", config(listener.port(), "[tunnel]\nenabled = true\n")),
                apd::detail_log(false));
    ask();
    const auto received = answer();
    ASSERT_TRUE(received);
    EXPECT_EQ(received->station, s1);
    EXPECT_EQ(received->vlan, 0);
}

TEST_F(radiod_asks, and_the_access_point_does_not_carry) {
    start("");
    ask();
    ASSERT_TRUE(answer());
}

TEST_F(radiod_asks, in_words_that_are_no_question) {
    start();
    const std::vector<std::uint8_t> garbage(11, 2);
    radiod.send(kx::endpoint_homes, kx::home_question_message_id, kx::ipc_flag_notification, garbage);
    EXPECT_TRUE(logged("dropped a message that is no question of radiod"));
}

}  // namespace
