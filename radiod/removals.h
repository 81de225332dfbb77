// The stations that one VAP's hostapd is to send away by the daemon's order, until it has done so.
#ifndef RADIOD_REMOVALS_H
#define RADIOD_REMOVALS_H

#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "common/mac_address.h"
#include "radiod/kernel/station_messages.h"

namespace radiod {

using kx::mac_address;

// An order holds for the station's present association. It outlives a hostapd that does not answer, and is sent again.
// No I/O; callers pass the time.
class removals {
public:
    using time_point = std::chrono::steady_clock::time_point;
    // Takes a command of hostapd's control interface. `done` is called with whether hostapd has replied to it.
    using sender = std::function<void(std::string command, std::function<void(bool replied)> done)>;

    // Calls of expire(), until which hostapd has reported a station that it has sent away.
    static constexpr unsigned report_time = 5;

    explicit removals(sender send) : send_(std::move(send)) {}

    // `how`: what follows the station's address in hostapd's command DISASSOCIATE.
    void order(const mac_address &station, std::string how, time_point now);
    // hostapd has not taken an order.
    bool has_open() const;
    // Sends those orders again. `listed` are the kernel's stations: whoever has left, or has associated after its
    // order, is not sent away. None: the kernel does not list them.
    void repeat(const std::optional<std::vector<kernel_station>> &listed, time_point now);
    void arrived(const mac_address &station) { orders_.erase(station); }
    // Whether the station has left by an order.
    bool departed(const mac_address &station);
    // The authorized stations of the list, without those that are to go.
    std::vector<mac_address> staying(std::span<const kernel_station> listed, time_point now);
    // To be called once a second.
    void expire();

private:
    struct removal {
        std::string how;
        std::uint32_t number = 0;  // of the order
        time_point since{};
        enum class state : std::uint8_t { open, in_flight, taken } is = state::open;
        bool has_departed = false;
        unsigned age = 0;  // since it was taken
    };

    bool is_to_go(const kernel_station &station, time_point now) const;
    void send(const mac_address &station, removal &its);
    void replied(const mac_address &station, std::uint32_t number, bool taken);

    sender send_;
    std::map<mac_address, removal> orders_;
    std::uint32_t last_number_ = 0;
};

}  // namespace radiod

#endif
