#include "radiod/silent_stations.h"

#include <algorithm>

namespace radiod {
namespace {

using namespace std::chrono_literals;

constexpr auto heard_within = 1s;
constexpr auto accuracy = 20ms;  // of the two times that are compared

}  // namespace

silent_stations examine(std::span<const mac_address> silent, std::span<const kernel_station> listed,
                        std::span<const bridge_entry> entries, const std::function<bool(unsigned port)> &is_here) {
    silent_stations found;
    for (const kernel_station &station : listed) {
        if (std::ranges::find(silent, station.mac) == silent.end()) {
            continue;
        }
        const auto is_later_elsewhere = [&](const bridge_entry &each) {
            return each.address == station.mac && each.age + accuracy < station.inactive && !is_here(each.port);
        };
        if (std::ranges::any_of(entries, is_later_elsewhere)) {
            found.roamed_away.push_back(station.mac);
        } else if (station.inactive < heard_within) {
            found.heard.push_back(station.mac);
        }
    }
    return found;
}

}  // namespace radiod
