// The stations that the driver lists on a VAP, and their records in a bulk report.
#ifndef TESTS_SIM_STATION_LIST_H
#define TESTS_SIM_STATION_LIST_H

#include <algorithm>
#include <string>
#include <string_view>

#include "lifecycle.h"

namespace sim {

inline constexpr uint8_t FILL = 0xee;  // fills the bytes of a driver's record that the daemon does not read

inline void have_ath0(site &sim) {
    ready_to_talk();
    have_interface(sim, "ath0", "first", 0x0102, BSSID);
}

// The driver's record of a station, in the host's order.
inline bytes station(std::string_view mac, uint16_t inactivity, uint16_t length, size_t size) {
    bytes record(size, FILL);
    const auto put = [&](size_t at, const bytes &value) {
        std::copy(value.begin(), value.end(), record.begin() + static_cast<std::ptrdiff_t>(at));
    };
    put(0, host16(length));
    put(16, mac_bytes(mac));
    put(140, host16(inactivity));
    return record;
}

inline bytes station(std::string_view mac, uint16_t inactivity = 0x0708, uint16_t length = 156) {
    return station(mac, inactivity, length, length);
}

inline bytes entry(std::string_view mac, const bytes &ip) { return zeros(6) + mac_bytes(mac) + ip; }

inline steps begun(int count) {
    return log(3, "Sending bulk info") + log(3, "Got " + std::to_string(count) + " vap configuration");
}

inline steps first_vap() { return vap_read("ath0", BSSID, "first", 258); }

inline steps asked_driver(std::string_view ifname = "ath0") {
    return did("socket") + did("ioctl(0x89f6, " + std::string(ifname) + ", 16384, 0)");
}

inline steps listed(const steps &stations = {}, std::string_view ifname = "ath0") {
    return asked_driver(ifname) + did("close") + stations;
}

inline steps seen(std::string_view mac, int inactivity = 0x0708) {
    return log(3, "Client inactivity timer : " + std::to_string(inactivity)) +
           log(3, "CLIENT MAC  : " + std::string(mac)) + client_lookup(mac, false);
}

inline bytes first_record(const bytes &entries = {}) { return list_record(BSSID, "first", 0x0102, entries); }

inline steps sent(const bytes &entries) { return to_controller(bulk_message(1, first_record(entries))); }

}  // namespace sim

#endif
