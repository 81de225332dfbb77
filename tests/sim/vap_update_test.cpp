#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/clients/vaps.h"
#include "vap_table.h"

namespace sim {

SIM_TEST(vap_update, reports_the_vap_with_its_bssid_read_again) {
    ready_to_talk();
    vap_cfg &vap = have_vap(3, "ath3", "02:00:00:00:00:01", 0x31323334);
    set_text(vap.ssid, 32, "abcdefghijklmnopqrstuvwxyz012345");
    set_text(vap.captive_cfg, 32, "welcome");
    sim.hwaddr = {{"ath3", BSSID_0}};
    EXPECT_EQ(0, client_mgr_vap_update("ath3\0\0\0\0\0\0\0"));
    sim.expect({log(3, "Rcvd vap update for ath3"), read_hwaddr("ath3"), log(3, "BSSID : 0a:1b:2c:3d:4e:50"),
                log(3, "SSID  abcdefghijklmnopqrstuvwxyz012345"), log(3, "VLAN  825373492"),
                to_controller(hex("01 0e 00"              // version, header length, type
                                  "0001 00 003c"          // one record, 60 bytes
                                  "a0 a1 a2 a3 a4 a5"     // this access point
                                  "01 04 002e"            // VAP configuration, 46 bytes
                                  "0a 1b 2c 3d 4e 50") +  // as read
                              padded("abcdefghijklmnopqrstuvwxyz012345", 32) +
                              hex("31 32 33 34"))});
    EXPECT_EQ(hex("02 00 00 00 00 01"), bytes(vap.bssid.begin(), vap.bssid.end())) << "the entry is not refreshed";
}

// When a VAP before it cannot be read any more, a VAP moves up and leaves its old entry.
SIM_TEST(vap_update, reports_the_first_entry_of_that_name) {
    have_two_vaps(sim);
    client_mgr_vap_init();
    sim.vaps[0].readable = false;
    sim.vaps[1] = apcfg_entry("ath1", "renamed", 30);
    client_mgr_vap_init();
    sim.forget();
    EXPECT_EQ("ath1", name_of(g_cfg.vaps[0]));
    EXPECT_EQ("ath1", name_of(g_cfg.vaps[1]));
    EXPECT_EQ(0, client_mgr_vap_update("ath1\0\0\0\0\0\0\0"));
    sim.expect({log(3, "Rcvd vap update for ath1"), read_hwaddr("ath1"), log(3, "BSSID : 0a:1b:2c:3d:4e:61"),
                log(3, "SSID  renamed"), log(3, "VLAN  30"),
                to_controller(hex("01 0e 00 0001 00 003c a0a1a2a3a4a5  01 04 002e  0a1b2c3d4e61") +
                              padded("renamed", 32) + hex("0000001e"))});
}

SIM_TEST(vap_update, of_an_unknown_interface_ends_with_its_receipt) {
    have_two_vaps(sim);
    client_mgr_vap_init();
    sim.forget();
    EXPECT_EQ(0, client_mgr_vap_update("ath7\0\0\0\0\0\0\0"));
    sim.expect({log(3, "Rcvd vap update for ath7")});
}

SIM_TEST(vap_update, compares_interface_names_over_12_bytes) {
    ready_to_talk();
    have_vap(0, "ath0", "02:00:00:00:00:01", 1);
    const char dirty[12] = {'a', 't', 'h', '0', '\0', 'x'};
    EXPECT_EQ(0, client_mgr_vap_update(dirty));
    sim.expect({log(3, "Rcvd vap update for ath0")});
}

SIM_TEST(vap_update, reads_an_interface_name_of_12_characters_within_its_field) {
    ready_to_talk();
    have_vap(15, "wlan0.vap123", "02:00:00:00:00:01", 1);
    sim.hwaddr = {{"wlan0.vap123", BSSID_0}};
    EXPECT_EQ(0, client_mgr_vap_update("wlan0.vap123 and what lies behind"));
    sim.expect({log(3, "Rcvd vap update for wlan0.vap123"), read_hwaddr("wlan0.vap123"),
                log(3, "BSSID : 0a:1b:2c:3d:4e:50"), log(3, "SSID  "), log(3, "VLAN  1"),
                to_controller(hex("01 0e 00 0001 00 003c a0a1a2a3a4a5  01 04 002e  0a1b2c3d4e50") + zeros(32) +
                              hex("00000001"))});
}

SIM_TEST(vap_update, without_a_name_reports_the_first_unused_entry) {
    ready_to_talk();
    have_vap(0, "ath0", "02:00:00:00:00:01", 1);
    EXPECT_NE(0, client_mgr_vap_update("\0\0\0\0\0\0\0\0\0\0\0"));
    sim.expect({log(3, "Rcvd vap update for "), did("socket"), did("ioctl(0x8927, ) = -1"),
                log(1, "Error obtaining the BSSID for "), did("close"), log(1, "Unable to get bssid for vap ")});
}

SIM_TEST(vap_update, needs_the_controller) {
    have_vap(0, "ath0", "02:00:00:00:00:01", 1);
    sim.hwaddr = {{"ath0", BSSID_0}};
    for (uint32_t flags : {0U, 1U, 2U, 3U}) {
        g_cfg.status_flags = flags;
        g_cfg.ctrlr_ip = flags == 3 ? 0 : 1;
        client_mgr_vap_update("ath0\0\0\0\0\0\0\0");
        sim.expect({log(3, "Rcvd vap update for ath0"), NOT_READY});
    }
}

SIM_TEST(vap_update, without_bssid_sends_nothing) {
    ready_to_talk();
    have_vap(0, "ath0", "02:00:00:00:00:01", 1);
    EXPECT_NE(0, client_mgr_vap_update("ath0\0\0\0\0\0\0\0"));
    sim.expect({log(3, "Rcvd vap update for ath0"), did("socket"), did("ioctl(0x8927, ath0) = -1"),
                log(1, "Error obtaining the BSSID for ath0"), did("close"),
                log(1, "Unable to get bssid for vap ath0")});
}

SIM_TEST(vap_update, that_cannot_be_sent_is_logged_twice) {
    ready_to_talk();
    have_vap(0, "ath0", "02:00:00:00:00:01", 1);
    sim.hwaddr = {{"ath0", BSSID_0}};
    sim.fail_nth("apcomm_send_msg", 1);
    EXPECT_NE(0, client_mgr_vap_update("ath0\0\0\0\0\0\0\0"));
    sim.expect({log(3, "Rcvd vap update for ath0"), read_hwaddr("ath0"), log(3, "BSSID : 0a:1b:2c:3d:4e:50"),
                log(3, "SSID  "), log(3, "VLAN  1"),
                failed(to_controller(hex("01 0e 00 0001 00 003c a0a1a2a3a4a5  01 04 002e  0a1b2c3d4e50") + zeros(32) +
                                     hex("00000001"))),
                log(1, "APComm Unable to send data"), log(1, "Error sending VAP config")});
}

}  // namespace sim
