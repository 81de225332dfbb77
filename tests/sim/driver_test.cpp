#include "client_mgr/neighbours/driver.h"

#include "arrange.h"
#include "daemon_steps.h"
#include "sim_test.h"

namespace sim {
namespace {

const bytes BSSID = hex("0a 1b 2c 3d 4e 5f");
const bytes STA = hex("02 11 22 33 44 55");

// Operation 2, no SSID, reason code 1 in the host's order, the station, 32 bytes of SSID.
const bytes REQUEST = hex("02 00") + host16(1) + hex("02 11 22 33 44 55") + zeros(32);

const steps SENDING = log(3, "Sending disassoc to 02:11:22:33:44:55");
const steps IN_SYSLOG =
    syslog(LOG_USER | LOG_CRIT, "<clmgr> Send Disassociation 0a:1b:2c:3d:4e:5f -> 02:11:22:33:44:55 [reason 8]");

int disassoc(const char *ifname, int reason) {
    return client_mgr_sta_disassoc(ifname, BSSID.data(), STA.data(), reason);
}

}  // namespace

// --- disassociation

SIM_TEST(driver, disassociates_with_reason_code_1_whatever_the_reason) {
    EXPECT_EQ(0, disassoc("ath0", 8));
    sim.expect({did("socket"), SENDING, driver_request(0x8be6, "ath0", REQUEST), IN_SYSLOG, did("close")});
}

SIM_TEST(driver, writes_the_callers_reason_to_the_system_log_alone) {
    for (int reason : {0, 1, 2, 65535, -1}) {
        EXPECT_EQ(0, disassoc("ath1", reason));
        sim.expect(
            {did("socket"), SENDING, driver_request(0x8be6, "ath1", REQUEST),
             syslog(LOG_USER | LOG_CRIT, "<clmgr> Send Disassociation 0a:1b:2c:3d:4e:5f -> 02:11:22:33:44:55 [reason " +
                                             std::to_string(reason) + "]"),
             did("close")});
    }
}

SIM_TEST(driver, reports_a_failed_disassociation_in_the_system_log_too) {
    sim.fail_nth("ioctl", 1);
    EXPECT_EQ(0, disassoc("ath0", 8));
    sim.expect({did("socket"), SENDING, failed(driver_request(0x8be6, "ath0", REQUEST)),
                log(1, "client_mgr_sta_disassoc: Failed to disassoc STA"), IN_SYSLOG, did("close")});
}

SIM_TEST(driver, takes_a_driver_result_that_is_not_negative_for_success) {
    sim.fail_nth("ioctl", 1, 3);
    EXPECT_EQ(0, disassoc("ath0", 8));
    sim.expect({did("socket"), SENDING, failed(driver_request(0x8be6, "ath0", REQUEST), 3), IN_SYSLOG, did("close")});
}

SIM_TEST(driver, fails_to_disassociate_without_a_socket) {
    sim.fail_nth("socket", 1);
    EXPECT_EQ(0, disassoc("ath0", 8));
    sim.expect({failed(did("socket")), SENDING, log(1, "client_mgr_sta_disassoc: Failed to disassoc STA"), IN_SYSLOG});
}

SIM_TEST(driver, passes_an_interface_name_of_16_characters_without_terminator) {
    // Nothing past the 16 characters may be read.
    const std::vector<char> name = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p'};
    disassoc(name.data(), 8);
    sim.expect({did("socket"), SENDING, driver_request(0x8be6, "abcdefghijklmnop", REQUEST), IN_SYSLOG, did("close")});
}

SIM_TEST(driver, cuts_a_longer_interface_name_at_16_characters) {
    disassoc("abcdefghijklmnopqrstuvwxyz", 8);
    sim.expect({did("socket"), SENDING, driver_request(0x8be6, "abcdefghijklmnop", REQUEST), IN_SYSLOG, did("close")});
}

// --- BSSID

SIM_TEST(driver, reads_the_bssid_as_the_interfaces_hardware_address) {
    sim.hwaddr["ath0"] = BSSID;
    uint8_t bssid[6] = {};
    EXPECT_EQ(0, client_mgr_get_bssid(bssid, "ath0"));
    EXPECT_EQ(BSSID, bytes(bssid, bssid + 6));
    sim.expect({did("socket"), did("ioctl(0x8927, ath0)"), did("close")});
}

SIM_TEST(driver, leaves_the_bssid_alone_without_a_hardware_address) {
    uint8_t bssid[6] = {1, 2, 3, 4, 5, 6};
    EXPECT_EQ(-1, client_mgr_get_bssid(bssid, "ath9"));
    EXPECT_EQ(hex("01 02 03 04 05 06"), bytes(bssid, bssid + 6));
    sim.expect(
        {did("socket"), did("ioctl(0x8927, ath9) = -1"), log(1, "Error obtaining the BSSID for ath9"), did("close")});
}

SIM_TEST(driver, reads_no_bssid_without_a_socket) {
    sim.hwaddr["ath0"] = BSSID;
    sim.fail_nth("socket", 1);
    uint8_t bssid[6];
    EXPECT_EQ(-1, client_mgr_get_bssid(bssid, "ath0"));
    sim.expect({failed(did("socket")), log(1, "Error obtaining the BSSID for ath0")});
}

SIM_TEST(driver, opens_a_socket_for_each_request) {
    sim.hwaddr["ath0"] = BSSID;
    uint8_t bssid[6];
    client_mgr_get_bssid(bssid, "ath0");
    client_mgr_get_bssid(bssid, "ath0");
    sim.expect({read_hwaddr("ath0"), read_hwaddr("ath0")});
}

SIM_TEST(driver, logs_an_interface_name_within_16_characters) {
    const std::vector<char> name = {'a', 'b', 'c', 'd', 'e', 'f', 'g', 'h', 'i', 'j', 'k', 'l', 'm', 'n', 'o', 'p'};
    uint8_t bssid[6];
    EXPECT_EQ(-1, client_mgr_get_bssid(bssid, name.data()));
    sim.expect({did("socket"), did("ioctl(0x8927, abcdefghijklmnop) = -1"),
                log(1, "Error obtaining the BSSID for abcdefghijklmnop"), did("close")});
}

}  // namespace sim
