// The daemon walks over the driver's station list for the bulk client information.
#include "station_list.h"

#include <algorithm>
#include <cstring>
#include <string>

#include "client_mgr/clients/bulk_report.h"
#include "wire/ctrlr_messages.h"

namespace sim {

SIM_TEST(station_list, of_155_bytes_holds_no_station) {
    have_ath0(sim);
    for (size_t size : {1u, 155u}) {
        sim.stations["ath0"] = first(station(CLIENT), size);
        client_mgr_send_bulk_info();
        sim.expect({begun(1), first_vap(), listed(), sent({})});
    }
    for (size_t size : {156u, 157u, 311u}) {
        sim.stations["ath0"] = station(CLIENT) + bytes(size - 156, FILL);
        client_mgr_send_bulk_info();
        sim.expect({begun(1), first_vap(), listed(seen(CLIENT)), sent(entry(CLIENT, zeros(4)))});
    }
}

SIM_TEST(station_list, steps_by_the_length_of_each_record) {
    have_ath0(sim);
    sim.stations["ath0"] = station(CLIENT, 1, 301) + station(CLIENT_2, 2, 157) + station(ELSEWHERE, 3, 156);
    client_mgr_send_bulk_info();
    sim.expect({begun(1), first_vap(), listed(seen(CLIENT, 1) + seen(CLIENT_2, 2) + seen(ELSEWHERE, 3)),
                sent(entry(CLIENT, zeros(4)) + entry(CLIENT_2, zeros(4)) + entry(ELSEWHERE, zeros(4)))});
}

SIM_TEST(station_list, ends_behind_a_record_of_length_0) {
    have_ath0(sim);
    sim.stations["ath0"] = station(CLIENT, 1, 0, 156) + station(CLIENT_2);
    client_mgr_send_bulk_info();
    sim.expect({begun(1), first_vap(), listed(seen(CLIENT, 1)), sent(entry(CLIENT, zeros(4)))});
}

SIM_TEST(station_list, ends_behind_a_record_that_runs_past_the_end) {
    have_ath0(sim);
    for (uint16_t length : {uint16_t{313}, uint16_t{0xffff}}) {
        sim.stations["ath0"] = station(CLIENT, 1, length, 156) + station(CLIENT_2);
        client_mgr_send_bulk_info();
        sim.expect({begun(1), first_vap(), listed(seen(CLIENT, 1)), sent(entry(CLIENT, zeros(4)))});
    }
    // A record may reach to the very end.
    sim.stations["ath0"] = station(CLIENT, 1, 312, 156) + station(CLIENT_2);
    client_mgr_send_bulk_info();
    sim.expect({begun(1), first_vap(), listed(seen(CLIENT, 1)), sent(entry(CLIENT, zeros(4)))});
}

// A record is read while 156 bytes remain, whatever its own length.
SIM_TEST(station_list, takes_records_shorter_than_what_is_read) {
    have_ath0(sim);
    bytes list = station(CLIENT, 1, 4, 160);
    const bytes length = host16(156);
    std::copy(length.begin(), length.end(), list.begin() + 4);
    const bytes mac = mac_bytes(CLIENT);
    std::copy(mac.begin(), mac.end(), list.begin() + 20);
    const bytes inactivity = host16(2);
    std::copy(inactivity.begin(), inactivity.end(), list.begin() + 144);
    sim.stations["ath0"] = list;
    client_mgr_send_bulk_info();
    const std::string overlapping = "02:13:24:35:02:13";
    sim.expect({begun(1), first_vap(), listed(seen(overlapping, 1) + seen(CLIENT, 2)),
                sent(entry(overlapping, zeros(4)) + entry(CLIENT, zeros(4)))});
}

// 16384 bytes hold 105 records of 156 bytes.
SIM_TEST(station_list, is_never_longer_than_its_buffer) {
    have_ath0(sim);
    for (size_t claimed : {16384u, 16385u, 65535u}) {
        bytes list;
        while (list.size() < 16384) {
            list = list + station(CLIENT);
        }
        list.resize(claimed);
        sim.stations["ath0"] = list;
        client_mgr_send_bulk_info();
        steps stations;
        bytes entries;
        for (int i = 0; i < 105; i++) {
            stations = stations + seen(CLIENT);
            entries = entries + entry(CLIENT, zeros(4));
        }
        sim.expect({begun(1), first_vap(), listed(stations), sent(entries)});
    }
}

SIM_TEST(station_list, fills_a_record_by_itself) {
    struct {
        vap_client_list_record record;
        station_entry entries[2];
        uint8_t behind;
    } out;
    memset(&out, 0x55, sizeof out);
    sim.stations["ath0"] = station(CLIENT) + station(CLIENT_2) + station(ELSEWHERE);
    report_cursor at = {.record = &out.record, .room = 2 * sizeof(station_entry) + 15, .left_out = 4};
    EXPECT_EQ(0, client_mgr_get_client_bulk_info(&at, "ath0"));
    sim.expect({listed(seen(CLIENT) + seen(CLIENT_2) + log(3, "Client inactivity timer : 1800"))});
    EXPECT_EQ(2, out.record.stations);
    EXPECT_EQ(5u, at.left_out);
    EXPECT_EQ(entry(CLIENT, zeros(4)) + entry(CLIENT_2, zeros(4)),
              bytes(reinterpret_cast<uint8_t *>(out.entries), &out.behind));
    EXPECT_EQ(0x55, out.behind);
}

SIM_TEST(station_list, that_the_driver_refuses_counts_no_station) {
    vap_client_list_record record;
    memset(&record, 0x55, sizeof record);
    report_cursor at = {.record = &record, .room = 0, .left_out = 0};
    sim.fail_nth("ioctl", 1);
    EXPECT_EQ(-1, client_mgr_get_client_bulk_info(&at, "ath0"));
    sim.expect({failed(asked_driver()), log(1, "Error obtaining the client list for ath0"), did("close")});
    EXPECT_EQ(0, record.stations);
    for (size_t size : {0u, 155u}) {
        sim.stations["ath0"] = bytes(size, FILL);
        memset(&record, 0x55, sizeof record);
        EXPECT_EQ(0, client_mgr_get_client_bulk_info(&at, "ath0"));
        sim.expect({listed()});
        EXPECT_EQ(0, record.stations);
    }
}

}  // namespace sim
