// The bulk VAP configuration, and the start that both bulk reports share.
#include "client_mgr/clients/bulk_report.h"

#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "lifecycle.h"
#include "wire/ctrlr_messages.h"

namespace sim {
namespace {

void have_two_interfaces(site &sim) {
    have_interface(sim, "ath0", "first", 0x0102, BSSID);
    have_interface(sim, "ath1", "second", 0x0304, BSSID_2);
}

steps begun(int count) {
    return log(3, "Sending bulk vap config") + log(3, "Got " + std::to_string(count) + " vap configuration");
}

steps first_vap() { return vap_read("ath0", BSSID, "first", 258); }
steps second_vap() { return vap_read("ath1", BSSID_2, "second", 772); }

bytes first_record() { return config_record(BSSID, "first", 0x0102); }
bytes second_record() { return config_record(BSSID_2, "second", 0x0304); }

}  // namespace

SIM_TEST(bulk_config, reports_each_vap) {
    ready_to_talk();
    have_two_interfaces(sim);
    client_mgr_send_bulk_cfg();
    sim.expect({
        log(3, "Sending bulk vap config"),
        log(3, "Got 2 vap configuration"),
        log(3, "vap ath0 status = AP_TRUE"),
        read_hwaddr("ath0"),
        log(3, "BSSID : b0:b1:b2:b3:b4:b5"),
        log(3, "SSID  first"),
        log(3, "VLAN  258"),
        log(3, "vap ath1 status = AP_TRUE"),
        read_hwaddr("ath1"),
        log(3, "BSSID : c0:c1:c2:c3:c4:c5"),
        log(3, "SSID  second"),
        log(3, "VLAN  772"),
        to_controller(hex("01 0e 00 0002 00 006a a0a1a2a3a4a5"
                          "01 04 002e b0b1b2b3b4b5 6669727374") +
                      zeros(27) +
                      hex("00000102"
                          "01 04 002e c0c1c2c3c4c5 7365636f6e64") +
                      zeros(26) + hex("00000304")),
    });
}

SIM_TEST(bulk_config, leaves_the_vap_table_alone) {
    have_two_vaps();
    const bytes before(reinterpret_cast<uint8_t *>(&g_cfg), reinterpret_cast<uint8_t *>(&g_cfg + 1));
    have_interface(sim, "ath0", "first", 0x0102, ELSEWHERE);
    client_mgr_send_bulk_cfg();
    sim.forget();
    EXPECT_EQ(before, bytes(reinterpret_cast<uint8_t *>(&g_cfg), reinterpret_cast<uint8_t *>(&g_cfg + 1)));
}

SIM_TEST(bulk_config, waits_for_the_controller) {
    have_two_interfaces(sim);
    whenever_not_ready([&] {
        client_mgr_send_bulk_cfg();
        sim.expect({log(3, "Sending bulk vap config"), log(1, "Not yet ready to talk to controller")});
    });
}

SIM_TEST(bulk_config, needs_the_list_of_interfaces) {
    ready_to_talk();
    have_two_interfaces(sim);
    for (int result : {-1, 1}) {
        sim.fail_nth("apcfg_vap_get_ifname_list", 1, result);
        client_mgr_send_bulk_cfg();
        sim.expect({log(3, "Sending bulk vap config"), log(1, "Error getting the VAP ifname list")});
        sim.end_rules();
    }
}

SIM_TEST(bulk_config, leaves_out_a_vap_without_configuration) {
    ready_to_talk();
    have_two_interfaces(sim);
    sim.vaps[0].readable = false;
    client_mgr_send_bulk_cfg();
    sim.expect({begun(2), second_vap(), to_controller(bulk_message(1, second_record()))});
}

SIM_TEST(bulk_config, leaves_out_a_vap_without_bssid) {
    ready_to_talk();
    have_two_interfaces(sim);
    sim.fail_nth("ioctl", 1);
    client_mgr_send_bulk_cfg();
    sim.expect({begun(2), log(3, "vap ath0 status = AP_TRUE"), did("socket"),
                failed(did(ioctl_text(0x8927, "ath0", ""))), log(1, "Error obtaining the BSSID for ath0"), did("close"),
                second_vap(), to_controller(bulk_message(1, second_record()))});
}

SIM_TEST(bulk_config, reports_a_vap_that_is_down) {
    ready_to_talk();
    have_two_interfaces(sim);
    for (uint32_t word : {0u, 2u, 0x01000000u, 0xffffffffu}) {
        sim.vaps[1].record.status = word;
        client_mgr_send_bulk_cfg();
        sim.expect({begun(2), first_vap(), vap_read("ath1", BSSID_2, "second", 772, "AP_FALSE"),
                    to_controller(bulk_message(2, first_record() + second_record()))});
    }
}

SIM_TEST(bulk_config, without_vaps_is_a_header) {
    ready_to_talk();
    client_mgr_send_bulk_cfg();
    sim.expect({begun(0), to_controller(hex("01 0e 00 0000 00 000e a0a1a2a3a4a5"))});
}

SIM_TEST(bulk_config, of_vaps_that_cannot_be_read_is_a_header) {
    ready_to_talk();
    have_two_interfaces(sim);
    sim.fail_from("apcfg_vap_get_by_ifname", 1, 1);
    client_mgr_send_bulk_cfg();
    sim.expect({begun(2), to_controller(bulk_message(0, {}))});
}

SIM_TEST(bulk_config, that_cannot_be_sent_is_logged) {
    ready_to_talk();
    have_two_interfaces(sim);
    sim.fail_nth("apcomm_send_msg", 1);
    client_mgr_send_bulk_cfg();
    sim.expect({begun(2), first_vap(), second_vap(),
                failed(to_controller(bulk_message(2, first_record() + second_record()))), NOT_SENT,
                log(1, "Error sending VAP config")});
}

SIM_TEST(bulk_config, takes_names_and_ssids_without_terminator) {
    ready_to_talk();
    const std::string ssid = "0123456789abcdef0123456789ABCDEF";
    have_interface(sim, "abcdefghijkl", ssid, 0xfffe, BSSID);
    set_text(sim.vaps[0].record.captive_cfg, 32, "not a part of the SSID");
    client_mgr_send_bulk_cfg();
    sim.expect({begun(1), vap_read("abcdefghijkl", BSSID, ssid, 65534),
                to_controller(bulk_message(1, config_record(BSSID, ssid, 0xfffe)))});
}

// The name in the record may fill its field. The name in the list is not used.
SIM_TEST(bulk_config, reads_a_vap_by_the_name_in_its_record) {
    ready_to_talk();
    have_interface(sim, "ath0", "first", 0x0102, BSSID);
    for (const std::string name : {"wifi0", "wifi0vap-1234567"}) {
        memcpy(sim.vaps[0].record.ifname, padded(name, 16).data(), 16);
        sim.hwaddr = {{name, mac_bytes(BSSID)}};
        client_mgr_send_bulk_cfg();
        sim.expect({begun(1), vap_read(name, BSSID, "first", 258), to_controller(bulk_message(1, first_record()))});
    }
}

SIM_TEST(bulk_config, reports_as_many_vaps_as_can_be_listed) {
    ready_to_talk();
    steps all;
    bytes records;
    for (int i = 0; i < 255; i++) {
        const std::string name = "ath" + std::to_string(i);
        const auto vlan = static_cast<uint16_t>(1000 + i);
        have_interface(sim, name, "net " + name, vlan, BSSID);
        all = all + vap_read(name, BSSID, "net " + name, vlan);
        records = records + config_record(BSSID, "net " + name, vlan);
    }
    client_mgr_send_bulk_cfg();
    sim.expect({begun(255), all, to_controller(bulk_message(255, records))});
}

SIM_TEST(bulk_request, is_answered_by_configuration_and_clients_in_this_order) {
    ready_to_talk();
    have_interface(sim, "ath0", "first", 0x0102, BSSID);
    sim.controller(one_record(CLIENT_MGR_REQ_BULK_INFO, {}));
    sim.expect({
        received(CLIENT_MGR_REQ_BULK_INFO, 0),
        log(3, "Received CLIENT_MGR_REQ_BULK_INFO"),
        begun(1),
        first_vap(),
        to_controller(bulk_message(1, first_record())),
        log(3, "Sending bulk info"),
        log(3, "Got 1 vap configuration"),
        first_vap(),
        did("socket"),
        did("ioctl(0x89f6, ath0, 16384, 0)"),
        did("close"),
        to_controller(
            bulk_message(1, hex("00 04 0036 b0b1b2b3b4b5") + padded("first", 32) + hex("00000102") + zeros(8))),
    });
}

SIM_TEST(bulk_request, is_answered_by_two_bare_headers_when_no_bssid_can_be_read) {
    ready_to_talk();
    have_two_interfaces(sim);
    sim.hwaddr.clear();
    g_cfg.num_vaps = 2;
    const auto without_bssid = [](const std::string &ifname) {
        return log(3, "vap " + ifname + " status = AP_TRUE") + did("socket") +
               failed(did(ioctl_text(0x8927, ifname, ""))) + log(1, "Error obtaining the BSSID for " + ifname) +
               did("close");
    };
    sim.controller(one_record(CLIENT_MGR_REQ_BULK_INFO, {}));
    sim.expect({
        received(CLIENT_MGR_REQ_BULK_INFO, 0),
        log(3, "Received CLIENT_MGR_REQ_BULK_INFO"),
        begun(2),
        without_bssid("ath0"),
        without_bssid("ath1"),
        to_controller(hex("01 0e 00 0000 00 000e a0a1a2a3a4a5")),
        log(3, "Sending bulk info"),
        log(3, "Got 2 vap configuration"),
        without_bssid("ath0"),
        without_bssid("ath1"),
        to_controller(hex("01 0e 00 0000 00 000e a0a1a2a3a4a5")),
    });
    EXPECT_EQ(0u, g_cfg.num_vaps);
}

}  // namespace sim
