// hostapd's interfaces for single stations on one VAP (AP_VLAN): which station gets which. The interfaces are in
// hostapd's vlan_file, each with a number, and named after it: wlan0.1001. No I/O; callers pass the time.
//
// A station's frames are then apart from those of the VAP, down to the group key, so they can be of another VLAN.
#ifndef RADIOD_INTERFACE_POOL_H
#define RADIOD_INTERFACE_POOL_H

#include <chrono>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "common/mac_address.h"

namespace radiod {

using kx::mac_address;

class interface_pool {
public:
    using time_point = std::chrono::steady_clock::time_point;

    // hostapd may let a station in by an earlier answer, which has the number (RADIUS_ACL_TIMEOUT of its
    // ieee802_11_auth.c).
    static constexpr std::chrono::seconds kept{31};

    // Replaces the numbers. Stations keep those that are still there.
    void use(const std::set<std::uint16_t> &numbers);
    bool empty() const { return numbers_.empty(); }

    // The station's number, or a new one for a station that is about to associate. None when all are taken.
    std::optional<std::uint16_t> take(const mac_address &station, time_point now);
    // The number that it is to have; 0: none.
    std::uint16_t find(const mac_address &station) const;
    // That, or the number that it has had and keeps for a while; 0: none.
    std::uint16_t find_kept(const mac_address &station) const;
    // The station is on the interface of that number.
    void arrived(const mac_address &station, std::uint16_t number);
    // It does not need its number any more. It keeps it for a while.
    void release(const mac_address &station, time_point now);

private:
    struct taken {
        std::uint16_t number = 0;
        bool is_wanted = false;
        bool is_here = false;
        time_point since{};
    };

    std::set<std::uint16_t> numbers_;
    std::map<mac_address, taken> stations_;
};

// The number in the name of an interface of VAP `ifname`; none when the name is no such name.
std::optional<std::uint16_t> number_of_interface(std::string_view name, std::string_view ifname);

}  // namespace radiod

#endif
