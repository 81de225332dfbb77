#include "client_mgr/neighbours/captive_msg.h"

#include "arrange.h"
#include "client_mgr/tables/client_tbl.h"
#include "daemon_steps.h"
#include "sim_test.h"

namespace sim {
namespace {

constexpr const char *STA = "02:11:22:33:44:55";

// Id 0x61626364, 44 bytes of payload, a notification; the client.
const bytes START = hex("61 62 63 64  00 00 00 2c  00 00 00 01  02 11 22 33 44 55");
const bytes GUEST = hex("00 00 00 00");
const bytes NO_GUEST = hex("00 00 00 01");

const steps SENDING = log(3, "Sending Assoc IPC to /kx/ipc/captive_app");

int send(const char *text, uint32_t id = 0x61626364) {
    return client_mgr_captive_msg_send(mac_bytes(STA).data(), text, id);
}

void have_station(site &sim, uint32_t flag) {
    client_info client = client_of(STA);
    client.flag = flag;
    have_client(sim, client);
}

}  // namespace

SIM_TEST(captive_msg, names_the_client_to_the_portal) {
    have_station(sim, CLIENT_FLAG_LOCAL);
    EXPECT_GT(send("welcome"), 0);
    sim.expect({client_lookup(STA, true), SENDING, to_captive_portal(START + padded("welcome", 34) + NO_GUEST)});
}

SIM_TEST(captive_msg, about_an_unauthorised_guest_has_portal_flag_0) {
    have_station(sim, CLIENT_FLAG_GUEST);
    send("welcome");
    sim.expect({client_lookup(STA, true), SENDING, to_captive_portal(START + padded("welcome", 34) + GUEST)});
    have_station(sim, 0xffffffff);
    send("welcome");
    sim.expect({client_lookup(STA, true), SENDING, to_captive_portal(START + padded("welcome", 34) + GUEST)});
    have_station(sim, 0xffffffdf);
    send("welcome");
    sim.expect({client_lookup(STA, true), SENDING, to_captive_portal(START + padded("welcome", 34) + NO_GUEST)});
}

SIM_TEST(captive_msg, about_an_unknown_client_has_portal_flag_1) {
    EXPECT_GT(send("welcome"), 0);
    sim.expect({client_lookup(STA, false), log(1, "Captive cl failed 02:11:22:33:44:55"), SENDING,
                to_captive_portal(START + padded("welcome", 34) + NO_GUEST)});
}

SIM_TEST(captive_msg, of_any_id_has_the_same_line) {
    have_station(sim, 0);
    const bytes client = hex("02 11 22 33 44 55");
    for (uint8_t id : bytes{67, 166, 167, 168, 169}) {
        send("x", id);
        sim.expect(
            {client_lookup(STA, true), SENDING,
             to_captive_portal(zeros(3) + bytes{id} + hex("0000002c 00000001") + client + padded("x", 34) + NO_GUEST)});
    }
}

SIM_TEST(captive_msg, that_cannot_be_sent_is_logged_and_nothing_else) {
    have_station(sim, 0);
    sim.fail_nth("kx_ipc_send", 1);
    EXPECT_LT(send("welcome"), 0);
    sim.expect({client_lookup(STA, true), SENDING, failed(to_captive_portal(START + padded("welcome", 34) + NO_GUEST)),
                log(1, " Send Assoc to Captive application failed!")});
}

SIM_TEST(captive_msg, is_sent_when_the_send_returns_0) {
    have_station(sim, 0);
    sim.fail_nth("kx_ipc_send", 1, 0);
    EXPECT_EQ(0, send("welcome"));
    sim.expect(
        {client_lookup(STA, true), SENDING, failed(to_captive_portal(START + padded("welcome", 34) + NO_GUEST), 0)});
}

SIM_TEST(captive_msg, carries_an_empty_text_as_34_zeros) {
    have_station(sim, 0);
    send("");
    sim.expect({client_lookup(STA, true), SENDING, to_captive_portal(START + zeros(34) + NO_GUEST)});
}

// The text has every length up to 33 characters, which need no terminator. Nothing past the text may be read.
SIM_TEST(captive_msg, carries_a_text_of_up_to_33_characters_whole) {
    have_station(sim, 0);
    const std::string text = "abcdefghijklmnopqrstuvwxyz0123456";
    for (size_t len = 1; len <= 33; len++) {
        std::vector<char> exact(text.begin(), text.begin() + static_cast<std::ptrdiff_t>(len));
        if (len < 33) {
            exact.push_back('\0');
        }
        send(exact.data());
        sim.expect(
            {client_lookup(STA, true), SENDING, to_captive_portal(START + padded(text.substr(0, len), 34) + NO_GUEST)});
    }
}

SIM_TEST(captive_msg, cuts_a_text_after_33_characters) {
    have_station(sim, 0);
    send("abcdefghijklmnopqrstuvwxyz0123456 and what lies behind");
    sim.expect({client_lookup(STA, true), SENDING,
                to_captive_portal(START + padded("abcdefghijklmnopqrstuvwxyz0123456", 34) + NO_GUEST)});
}

}  // namespace sim
