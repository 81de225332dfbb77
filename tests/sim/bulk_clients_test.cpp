// The bulk client information: the stations that the driver lists on each VAP.
#include <algorithm>
#include <cstring>
#include <string>

#include "client_mgr/base/client_mgr_cfg.h"
#include "client_mgr/clients/bulk_report.h"
#include "client_mgr/clients/vaps.h"
#include "client_mgr/tables/client_tbl.h"
#include "station_list.h"

namespace sim {
namespace {

steps seen_with_ip(std::string_view mac, std::string_view ip, int inactivity = 0x0708) {
    return log(3, "Client inactivity timer : " + std::to_string(inactivity)) +
           log(3, "CLIENT MAC  : " + std::string(mac)) + client_lookup(mac, true) +
           log(3, "CLIENT IP   : " + std::string(ip));
}

}  // namespace

SIM_TEST(bulk_clients, reports_the_stations_of_each_vap) {
    have_ath0(sim);
    have_interface(sim, "ath1", "second", 0x0304, BSSID_2);
    client_info client = client_of(CLIENT);
    set_bytes(client.cl_ip.bytes, hex("0a5b5c5d"));
    have_client(sim, client);
    sim.stations["ath0"] = station(CLIENT, 0x0506) + station(CLIENT_2, 0x8788);
    sim.stations["ath1"] = station("22:33:44:55:66:77", 9);
    client_mgr_send_bulk_info();
    sim.expect({
        log(3, "Sending bulk info"),
        log(3, "Got 2 vap configuration"),
        first_vap(),
        asked_driver("ath0"),
        did("close"),
        log(3, "Client inactivity timer : 1286"),
        log(3, "CLIENT MAC  : 02:13:24:35:46:57"),
        client_lookup(CLIENT, true),
        log(3, "CLIENT IP   : 10.91.92.93"),
        log(3, "Client inactivity timer : 34696"),
        log(3, "CLIENT MAC  : 0e:1d:2c:3b:4a:59"),
        client_lookup(CLIENT_2, false),
        vap_read("ath1", BSSID_2, "second", 772),
        listed(seen("22:33:44:55:66:77", 9), "ath1"),
        to_controller(hex("01 0e 00 0002 00 00aa a0a1a2a3a4a5"
                          "00 04 0056 b0b1b2b3b4b5 6669727374") +
                      zeros(27) +
                      hex("00000102 0002 000000000000"
                          "000000000000 021324354657 0a5b5c5d  000000000000 0e1d2c3b4a59 00000000"
                          "00 04 0046 c0c1c2c3c4c5 7365636f6e64") +
                      zeros(26) +
                      hex("00000304 0001 000000000000"
                          "000000000000 223344556677 00000000")),
    });
    EXPECT_EQ(2u, g_cfg.num_vaps);
}

SIM_TEST(bulk_clients, waits_for_the_controller) {
    have_ath0(sim);
    g_cfg.num_vaps = 7;
    whenever_not_ready([&] {
        client_mgr_send_bulk_info();
        sim.expect({log(3, "Sending bulk info"), log(1, "Not yet ready to talk to controller")});
    });
    EXPECT_EQ(7u, g_cfg.num_vaps);
}

SIM_TEST(bulk_clients, needs_the_list_of_interfaces) {
    have_ath0(sim);
    g_cfg.num_vaps = 7;
    sim.fail_nth("apcfg_vap_get_ifname_list", 1);
    client_mgr_send_bulk_info();
    sim.expect({log(3, "Sending bulk info"), log(1, "Error getting the VAP ifname list")});
    EXPECT_EQ(7u, g_cfg.num_vaps);
}

SIM_TEST(bulk_clients, without_vaps_is_a_header) {
    ready_to_talk();
    g_cfg.num_vaps = 7;
    client_mgr_send_bulk_info();
    sim.expect({begun(0), to_controller(hex("01 0e 00 0000 00 000e a0a1a2a3a4a5"))});
    EXPECT_EQ(0u, g_cfg.num_vaps);
}

SIM_TEST(bulk_clients, does_not_count_vaps_that_cannot_be_read) {
    have_ath0(sim);
    have_interface(sim, "ath1", "second", 0x0304, BSSID_2);
    have_interface(sim, "ath2", "third", 0x0506, ELSEWHERE);
    sim.vaps[1].readable = false;
    sim.hwaddr.erase("ath2");
    g_cfg.num_vaps = 3;
    client_mgr_send_bulk_info();
    sim.expect({begun(3), first_vap(), listed(), log(3, "vap ath2 status = AP_TRUE"), did("socket"),
                failed(did(ioctl_text(0x8927, "ath2", ""))), log(1, "Error obtaining the BSSID for ath2"), did("close"),
                sent({})});
    EXPECT_EQ(1u, g_cfg.num_vaps);
}

SIM_TEST(bulk_clients, reports_a_vap_that_is_down) {
    have_ath0(sim);
    sim.vaps[0].record.status = 0;
    client_mgr_send_bulk_info();
    sim.expect({begun(1), vap_read("ath0", BSSID, "first", 258, "AP_FALSE"), listed(), sent({})});
}

SIM_TEST(bulk_clients, reports_a_vap_without_stations_when_the_driver_fails) {
    have_ath0(sim);
    have_interface(sim, "ath1", "second", 0x0304, BSSID_2);
    sim.stations["ath0"] = station(CLIENT);
    sim.stations["ath1"] = station(CLIENT);
    sim.fail_nth("ioctl", 2, -5);
    client_mgr_send_bulk_info();
    sim.expect({begun(2), first_vap(), failed(asked_driver(), -5), log(1, "Error obtaining the client list for ath0"),
                did("close"), vap_read("ath1", BSSID_2, "second", 772), listed(seen(CLIENT), "ath1"),
                to_controller(bulk_message(
                    2, first_record() + list_record(BSSID_2, "second", 0x0304, entry(CLIENT, zeros(4)))))});
}

SIM_TEST(bulk_clients, asks_the_driver_by_the_name_in_the_vaps_record) {
    have_ath0(sim);
    for (const std::string name : {"wifi0", "wifi0vap-1234567"}) {
        memcpy(sim.vaps[0].record.ifname, padded(name, 16).data(), 16);
        sim.hwaddr = {{name, mac_bytes(BSSID)}};
        sim.stations = {{name, station(CLIENT)}};
        client_mgr_send_bulk_info();
        sim.expect(
            {begun(1), vap_read(name, BSSID, "first", 258), listed(seen(CLIENT), name), sent(entry(CLIENT, zeros(4)))});
    }
}

SIM_TEST(bulk_clients, takes_any_result_of_the_driver_that_is_not_negative) {
    have_ath0(sim);
    sim.stations["ath0"] = station(CLIENT);
    sim.fail_nth("ioctl", 2, 1);
    client_mgr_send_bulk_info();
    sim.expect(
        {begun(1), first_vap(), failed(asked_driver(), 1), did("close"), seen(CLIENT), sent(entry(CLIENT, zeros(4)))});
}

SIM_TEST(bulk_clients, goes_to_the_driver_without_a_socket) {
    have_ath0(sim);
    sim.stations["ath0"] = station(CLIENT);
    sim.fail_nth("socket", 2);
    client_mgr_send_bulk_info();
    sim.expect(
        {begun(1), first_vap(), failed(did("socket")), log(1, "Error obtaining the client list for ath0"), sent({})});
}

SIM_TEST(bulk_clients, sets_the_number_of_vaps_before_it_sends) {
    have_ath0(sim);
    g_cfg.num_vaps = 7;
    sim.on("apcomm_send_msg", [] { EXPECT_EQ(1u, g_cfg.num_vaps); });
    sim.fail_nth("apcomm_send_msg", 1);
    client_mgr_send_bulk_info();
    sim.expect({begun(1), first_vap(), listed(), failed(sent({})), NOT_SENT, log(1, "Error sending bulk info")});
    EXPECT_EQ(1u, g_cfg.num_vaps);
}

// There are more records than the VAP table has entries. No search reads past the table's end.
SIM_TEST(bulk_clients, may_count_more_vaps_than_the_table_holds) {
    ready_to_talk();
    for (int i = 0; i < 20; i++) {
        have_interface(sim, "ath" + std::to_string(i), "net", 1, BSSID);
    }
    set_mac(g_cfg.vaps[15].bssid, BSSID_2);
    client_mgr_send_bulk_info();
    sim.forget();
    EXPECT_EQ(20u, g_cfg.num_vaps);
    uint32_t idx = 99;
    EXPECT_EQ(0, client_mgr_get_vap_idx(mac_bytes(BSSID_2).data(), &idx));
    EXPECT_EQ(15u, idx);
    memcpy(g_cfg.ctrlr_msg_buf, mac_bytes(ELSEWHERE).data(), 6);
    EXPECT_EQ(-1, client_mgr_get_vap_idx(mac_bytes(ELSEWHERE).data(), &idx));
}

SIM_TEST(bulk_clients, logs_an_address_of_zero) {
    have_ath0(sim);
    have_client(sim, client_of(CLIENT));
    sim.stations["ath0"] = station(CLIENT);
    client_mgr_send_bulk_info();
    sim.expect({begun(1), first_vap(), listed(seen_with_ip(CLIENT, "0.0.0.0")), sent(entry(CLIENT, zeros(4)))});
}

// --- the end of the message

namespace {

struct full_report {
    steps stations_of_a_full_vap;
    bytes entries_of_a_full_vap;
};

// 105 stations on each of `count` VAPs. Nine VAPs fit whole; 710 bytes remain for the stations of the tenth.
full_report have_full_vaps(site &sim, int count) {
    ready_to_talk();
    full_report full;
    bytes list;
    for (int i = 0; i < 105; i++) {
        list = list + station(CLIENT);
        full.stations_of_a_full_vap = full.stations_of_a_full_vap + seen(CLIENT);
        full.entries_of_a_full_vap = full.entries_of_a_full_vap + entry(CLIENT, zeros(4));
    }
    for (int i = 0; i < count; i++) {
        const std::string name = "ath" + std::to_string(i);
        have_interface(sim, name, "net", 1, BSSID);
        sim.stations[name] = list;
    }
    return full;
}

}  // namespace

SIM_TEST(bulk_clients, leaves_out_what_does_not_fit) {
    const full_report full = have_full_vaps(sim, 10 + 61);
    steps vaps;
    bytes records;
    for (int i = 0; i < 9; i++) {
        const std::string name = "ath" + std::to_string(i);
        vaps = vaps + vap_read(name, BSSID, "net", 1) + listed(full.stations_of_a_full_vap, name);
        records = records + list_record(BSSID, "net", 1, full.entries_of_a_full_vap);
    }
    steps tenth = vap_read("ath9", BSSID, "net", 1) + asked_driver("ath9") + did("close");
    for (int i = 0; i < 44; i++) {
        tenth = tenth + seen(CLIENT);
    }
    for (int i = 0; i < 61; i++) {
        tenth = tenth + log(3, "Client inactivity timer : 1800");
    }
    records = records + list_record(BSSID, "net", 1, first(full.entries_of_a_full_vap, size_t{44} * 16));
    ASSERT_EQ(16384u - 6, 14 + records.size());
    for (int left_out : {61, 2, 0}) {
        sim.vaps.resize(10 + static_cast<size_t>(left_out));
        client_mgr_send_bulk_info();
        steps others;
        for (int i = 0; i < left_out; i++) {
            others = others + vap_read("ath" + std::to_string(10 + i), BSSID, "net", 1);
        }
        sim.expect({begun(10 + left_out), vaps, tenth, others,
                    log(1, "No room for " + std::to_string(left_out) + " VAPs and 61 stations in the bulk info"),
                    to_controller(bulk_message(10, records))});
        EXPECT_EQ(10u + static_cast<unsigned>(left_out), g_cfg.num_vaps);
    }
}

// 10 VAPs with 986 stations leave 54 bytes, enough for an eleventh VAP without stations.
SIM_TEST(bulk_clients, fills_the_message_to_its_last_byte) {
    const full_report full = have_full_vaps(sim, 11);
    sim.stations["ath9"].resize(size_t{41} * 156);
    bytes records;
    for (size_t i = 0; i < 10; i++) {
        records =
            records + list_record(BSSID, "net", 1, first(full.entries_of_a_full_vap, (i < 9 ? size_t{105} : 41) * 16));
    }
    records = records + list_record(BSSID, "net", 1);
    ASSERT_EQ(16384u, 14 + records.size());
    const std::string sent_whole = to_controller(bulk_message(11, records))[0].what;
    for (size_t stations : {0u, 1u}) {
        sim.stations["ath10"] = first(sim.stations["ath0"], stations * 156);
        client_mgr_send_bulk_info();
        const std::vector<std::string> effects = sim.take_effects();
        EXPECT_EQ(sent_whole, effects.back());
        EXPECT_EQ(stations != 0 && sim.log_level >= 1 ? 1 : 0,
                  std::count(effects.begin(), effects.end(),
                             log(1, "No room for 0 VAPs and 1 stations in the bulk info")[0].what));
        EXPECT_EQ(11u, g_cfg.num_vaps);
    }
}

}  // namespace sim
