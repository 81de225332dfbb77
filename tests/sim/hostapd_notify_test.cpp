#include "client_mgr/neighbours/hostapd_notify.h"

#include <cstring>

#include "lifecycle.h"
#include "wire/local_messages.h"

namespace sim {
namespace {

const bytes MESSAGE =
    hex("01020304 05060708090a 0b0c0d0e0f10 111213141516"
        "1718191a1b1c1d1e1f20212223242526 2728292a2b2c2d2e2f30313233343536");

const bytes COMMAND = hex("00000009") + MESSAGE + zeros(1038);

const steps CALLED = log(3, "called client_mgr_notify_hostapd");
const steps OPENED = did("hostapd_config_open_connection(hapdcfg, 0)");
const steps SENT = did("hostapd_config_send_command(" + show(COMMAND) + ")");
const steps CLOSED = did("hostapd_config_close_connection");

int notify() {
    pmk_info_message msg;
    memcpy(&msg, MESSAGE.data(), sizeof msg);
    const int result = client_mgr_notify_hostapd(&msg);
    EXPECT_EQ(0, memcmp(&msg, MESSAGE.data(), sizeof msg));
    return result;
}

}  // namespace

SIM_TEST(hostapd_notify, sends_one_command_on_a_connection_of_its_own) {
    ASSERT_EQ(54u, MESSAGE.size());
    ASSERT_EQ(1096u, COMMAND.size());
    EXPECT_EQ(0, notify());
    sim.expect({CALLED, OPENED, SENT, CLOSED});
}

SIM_TEST(hostapd_notify, opens_a_connection_for_each_command) {
    EXPECT_EQ(0, notify());
    EXPECT_EQ(0, notify());
    sim.expect({CALLED, OPENED, SENT, CLOSED, CALLED, OPENED, SENT, CLOSED});
}

SIM_TEST(hostapd_notify, does_nothing_when_hostapd_cannot_be_reached) {
    for (int result : {-1, -7}) {
        sim.fail_nth("hostapd_config_open_connection", 1, result);
        EXPECT_EQ(-1, notify());
        sim.expect({CALLED, failed(OPENED, result), log(1, " Connection to the Hostapd failed ")});
        sim.end_rules();
    }
}

SIM_TEST(hostapd_notify, takes_any_other_result_of_the_open_for_a_connection) {
    sim.fail_nth("hostapd_config_open_connection", 1, 5);
    EXPECT_EQ(0, notify());
    sim.expect({CALLED, failed(OPENED, 5), SENT, CLOSED});
}

SIM_TEST(hostapd_notify, closes_the_connection_after_a_command_that_failed) {
    sim.fail_nth("hostapd_config_send_command", 1);
    EXPECT_EQ(0, notify());
    sim.expect({CALLED, OPENED, failed(SENT), CLOSED});
}

SIM_TEST(hostapd_notify, does_not_look_at_the_result_of_the_close) {
    sim.fail_nth("hostapd_config_close_connection", 1);
    EXPECT_EQ(0, notify());
    sim.expect({CALLED, OPENED, SENT, failed(CLOSED)});
}

}  // namespace sim
